#include "tools/vxr/run/restored_facts.h"

#include <cstring>

#include "platform/machine/base/little_endian.h"
#include "platform/machine/hive/hive.h"
#include "rescue/system_files.h"
#include "tools/vxr/base/host_file.h"
#include "tools/vxr/base/machine_session.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/extension/extension_file.h"

namespace {

using rescue::SystemVersion;

// --- The job ---------------------------------------------------------------------------------------------------------

struct JobValue {
  std::uint32_t type = REG_NONE;
  std::string data;  // as the library gets it: texts in the machine's code page
};

std::optional<JobValue> ReadJobValue(const std::string &key, const char *name) {
  JobValue value;
  std::uint32_t size = 0;
  if (!VXRMachine_ReadValue(key.c_str(), name, &value.type, nullptr, &size)) return std::nullopt;
  value.data.resize(size);
  VXRMachine_ReadValue(key.c_str(), name, &value.type, value.data.data(), &size);
  return value;
}

// Empty when there is no such value.
std::string ReadJobText(const std::string &key, const char *name) {
  const std::optional<JobValue> value = ReadJobValue(key, name);
  return value ? std::string(value->data.c_str()) : "";
}

// What becomes of a value that a run takes for a number, which is its first byte, whatever it holds.
struct JobNumber {
  bool present = false, wrong = false;
};

JobNumber TakeNumber(const char *name, std::uint32_t *target, JobFacts *facts) {
  const std::optional<JobValue> value = ReadJobValue(facts->key, name);
  if (!value || value->data.empty()) return {};
  *target = static_cast<unsigned char>(value->data.front());
  std::string is;
  if (machine::IsTextType(value->type)) {
    is = "the text \"" + MachineText(value->data.c_str()) + "\"; write a number (REG_DWORD), without quotes";
  } else if (value->type == REG_DWORD && value->data.size() == 4) {
    const std::uint32_t number = machine::ReadLe32(reinterpret_cast<const std::uint8_t *>(value->data.data()));
    if (number != *target) is = std::to_string(number) + "; write a number up to 255";
  }
  if (is.empty()) return {true, false};
  const std::size_t end = is.rfind(';');
  facts->wrongValues.push_back(facts->key + ": " + name + " is " + is.substr(0, end) +
                               ", of which a run takes the first byte, " + std::to_string(*target) + is.substr(end));
  return {true, true};
}

// The restored system's directory where the run reaches it: RootPath gives the drive, and the whole where nothing else
// tells.
std::string RestoredDirectory(std::string recorded, const std::string &root) {
  if (root.empty()) return "";
  if (recorded.empty()) return root + "\\system32";
  recorded.front() = root.front();
  return recorded;
}

// --- The restored system ---------------------------------------------------------------------------------------------

// Opens a hive of the restored system to look at it; false when there is none that can be.
bool OpenSystemsHive(const std::string &systemDirectory, const char *name, machine::Hive *hive) {
  const std::string path = HostPathOf(systemDirectory + "\\config\\" + name);
  return !path.empty() && OpenHiveFile(hive, path, machine::HiveUse::kLook);
}

std::optional<SystemVersion> KernelVersion(const std::string &systemDirectory) {
  rescue::ImageFacts facts;
  const bool read = static_cast<bool>(rescue::ReadImage(HostPathOf(systemDirectory + "\\ntoskrnl.exe"), &facts));
  return read ? facts.version : std::nullopt;
}

std::optional<SystemVersion> SoftwareVersion(const std::string &systemDirectory) {
  machine::Hive hive;
  return OpenSystemsHive(systemDirectory, "SOFTWARE", &hive) ? rescue::SoftwareVersion(&hive) : std::nullopt;
}

std::optional<bool> HasDriverDatabase(const std::string &systemDirectory) {
  machine::Hive hive;
  return OpenSystemsHive(systemDirectory, "SYSTEM", &hive) ? rescue::HasDriverDatabase(&hive) : std::nullopt;
}

// --- For people ------------------------------------------------------------------------------------------------------

// What the restored system says against a version, by the best witness that there is; empty when nothing does.
std::string Objection(const std::string &systemDirectory, const SystemVersion &version) {
  if (const auto kernel = KernelVersion(systemDirectory)) {
    return *kernel == version ? "" : "the restored system's kernel is " + Text(*kernel);
  }
  if (const auto software = SoftwareVersion(systemDirectory)) {
    return *software == version ? "" : "the restored system's SOFTWARE hive says " + Text(*software);
  }
  const auto database = HasDriverDatabase(systemDirectory);
  const bool late = version >= rescue::kFirstWithDatabase;
  if (!database || *database == late) return "";
  return std::string("the restored system's SYSTEM hive is that of ") +
         (*database ? "6.2 or later (it has DriverDatabase)" : "6.1 or earlier (it has no DriverDatabase)");
}

std::string VersionContradiction(const JobFacts &facts) {
  constexpr std::uint32_t kLowestMajor = 5;
  if (!facts.known || facts.wrongVersion || facts.systemDirectory.empty()) return "";
  const SystemVersion version = {facts.major, facts.minor};
  const std::string objection = Objection(facts.systemDirectory, version);
  if (facts.major == 0) {
    return "Neither an extension file nor OSVerMaj says which Windows was restored, and no driver is looked for" +
           (objection.empty() ? "" : "; " + objection) + ". Set OSVerMaj and OSVerMin";
  }
  const bool tooLow = facts.major < kLowestMajor;
  if (objection.empty() && !tooLow) return "";
  return std::string(facts.ownVersion ? "The job" : "The extension file") + " says " + Text(version) + ", " +
         (tooLow ? "and drivers are looked for from 5.0 on. "
                 : objection + ": drivers for the wrong version are looked for. ") +
         (facts.ownVersion ? "Correct OSVerMaj and OSVerMin" : "Check BMEFile, or set OSVerMaj and OSVerMin");
}

}  // namespace

JobFacts ReadJobFacts(std::uint32_t job) {
  JobFacts facts;
  facts.key = "SOFTWARE\\Varnelt\\Relmar\\" + std::to_string(static_cast<std::int32_t>(job));
  const std::string file = ReadJobText(facts.key, "BMEFile");
  std::string recorded;
  VXR_EXTIMAGE image;
  std::string problem;
  facts.known = file.empty() || ReadExtensionFile(HostPathOf(file), &image, &problem);
  facts.recorded = facts.known && !file.empty();
  if (facts.recorded) {
    const VXR_SYSINFO &info = image.Extension.SysInfo;
    facts.major = VxrGet32(info.SysOs.MajorVersion);
    facts.minor = VxrGet32(info.SysOs.MinorVersion);
    facts.architecture = VxrGet32(info.SysOs.ProcessorArchitecture);
    recorded.assign(info.SystemPath, strnlen(info.SystemPath, sizeof info.SystemPath));
  }
  const JobNumber hal = TakeNumber("HAL", &facts.architecture, &facts);
  const JobNumber major = TakeNumber("OSVerMaj", &facts.major, &facts);
  const JobNumber minor = TakeNumber("OSVerMin", &facts.minor, &facts);
  facts.ownArchitecture = hal.present;
  facts.wrongArchitecture = hal.wrong;
  facts.ownVersion = major.present || minor.present;
  facts.wrongVersion = major.wrong || minor.wrong;
  facts.systemDirectory = RestoredDirectory(std::move(recorded), ReadJobText(facts.key, "RootPath"));
  return facts;
}

std::vector<std::string> FindContradictions(const JobFacts &facts) {
  std::vector<std::string> lines = facts.wrongValues;
  if (std::string version = VersionContradiction(facts); !version.empty()) lines.push_back(std::move(version));
  return lines;
}

// An INF file has to pass twice: the running machine's list of drivers goes by its own processor.
std::string ProcessorContradiction(const JobFacts &facts) {
  const std::uint32_t running = VXRMachine_ProcessorArchitecture();
  if (!facts.known || facts.wrongArchitecture || facts.architecture == running) return "";
  const bool told = facts.ownArchitecture || facts.recorded;
  const char *source = facts.ownArchitecture ? " by the job's HAL"
                       : told                ? " by the extension file"
                                             : " for want of HAL in the job";
  return "The restored system is " + ArchitectureText(facts.architecture) + source + ", the running machine is " +
         ArchitectureText(running) + " by its processor: only drivers for both are found. " +
         (told ? "Correct" : "Set") + " HAL, or run on a machine of the same kind";
}
