// A driver package from outside: its INF file is indexed and judged, what it asks for is planned, and the plan of the
// first candidate that can be installed is carried out on a machine in a folder. Nothing may be planned or written
// outside of the restored system, and its hive must then be as planned.
//
// Input: the text of the INF file, which also lies in the restored system's inf directory as other.inf, so that it can
// include itself. Texts of an odd size are for a 10.0 system, which has its own kind of boot record; others for 6.1.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <string_view>

#include "log/log.h"
#include "package/choose/candidates.h"
#include "package/plan/apply.h"
#include "package/plan/plan.h"
#include "package/read/driver_store.h"
#include "registry/mount/hive.h"
#include "tests/support/hive_builder.h"
#include "tests/support/pe_builder.h"
#include "tests/support/standard_machine.h"
#include "vxrcore/machine.h"
#include "vxrcore/vxrcore.h"

namespace {

namespace fs = std::filesystem;

constexpr char kTool[] = "X:\\Windows\\System32";
constexpr char kRestored[] = "D:\\", kPackage[] = "X:\\pack\\", kMounted[] = "SYSTEM_ORG\\";
const package::RestoredPlaces kPlaces = {"D:", "D:\\Windows", "D:\\Windows\\System32", "D:\\Windows\\inf"};
const package::DeviceIds kDevice = {{"PCI\\VEN_1DEA&DEV_0042&SUBSYS_00011DEA", "PCI\\VEN_1DEA&DEV_0042"},
                                    {"PCI\\VEN_1DEA&CC_0104", "PCI\\CC_0104"}};

void Require(bool condition, const char *what, const std::string &about = "") {
  if (condition) return;
  std::fprintf(stderr, "broken: %s: %s\n", what, about.c_str());
  std::abort();
}

// --- The machine ----------------------------------------------------------------------------------------------------

fs::path folder;
bool mounted = false;
std::map<std::string, std::uintmax_t> outside;  // the sizes of all files that are not the restored system's

void WriteFile(const std::string &relative, std::string_view content) {
  fs::create_directories((folder / relative).parent_path());
  std::ofstream(folder / relative, std::ios::binary) << content;
}

std::map<std::string, std::uintmax_t> FilesOutside() {
  std::map<std::string, std::uintmax_t> files;
  for (auto entry = fs::recursive_directory_iterator(folder); entry != fs::recursive_directory_iterator(); ++entry) {
    if (entry.depth() == 0 && entry->path().filename() == "restored") entry.disable_recursion_pending();
    const bool inf = entry->path().filename() == "a.inf";
    files[entry->path()] = entry->is_regular_file() && !inf ? entry->file_size() : 0;
  }
  return files;
}

// What the described machine says that it wrote.
void Observe(void *, const VXRMachine_Event *event) {
  const std::string subject = event->subject == nullptr ? "" : event->subject;
  switch (event->kind) {
    case VXRMACHINE_FILE_COPIED:
      Require(subject.starts_with(kRestored), "a file outside of the restored system", subject);
      break;
    case VXRMACHINE_VALUE_WRITTEN:
    case VXRMACHINE_VALUE_DELETED:
      Require(subject.starts_with(kMounted), "a key outside of the restored hive", subject);
      break;
    default:
      break;
  }
}

void MakeRestored() {
  std::error_code ignored;
  fs::remove_all(folder / "restored", ignored);
  std::vector<HiveValue> values = SystemHiveValues(1);
  const std::string old = "ControlSet001\\Services\\old";
  values.push_back(NumberValue(old, "Type", 1));
  values.push_back(NumberValue(old, "Start", 0));
  values.push_back(NumberValue(old, "Tag", 1));
  values.push_back(TextValue(old, "Group", "SCSI miniport"));
  values.push_back(TextValue(old, "ImagePath", "System32\\drivers\\old.sys"));
  values.push_back({old + "\\Parameters", "List", 7, {'a', 0, 0, 0, 'B', 0, 0, 0, 0, 0}});
  values.push_back(OnlyKey("DriverDatabase\\DeviceIds"));
  values.push_back(OnlyKey("DriverDatabase\\DriverInfFiles"));
  values.push_back(OnlyKey("DriverDatabase\\DriverPackages"));
  fs::create_directories(folder / "restored/Windows/System32/config");
  fs::create_directories(folder / "restored/Windows/System32/drivers");
  fs::create_directories(folder / "restored/Windows/inf");
  WriteHive(folder / "restored/Windows/System32/config/SYSTEM", values);
  WriteFile("restored/Windows/System32/drivers/old.sys", BuildImage(VersionTree({})));
}

void OpenMachine() {
  MakeRestored();
  char message[512] = "";
  Require(VXRMachine_Open((folder / "machine.toml").c_str(), message, sizeof message), "no machine", message);
  VXRDbg_SetLevel(5);
  Require(VXRReg_LoadHiveFile(kTool, "D:\\Windows\\System32\\config\\SYSTEM"), "the hive cannot be mounted");
  mounted = true;
}

void CloseMachine() {
  Require(VXRReg_UnloadHive(kTool), "the hive cannot be saved");
  VXRDbg_Cleanup();
  Require(VXRMachine_Close(), "the machine cannot be closed");
  mounted = false;
}

void MakeMachine() {
  std::string name = (fs::temp_directory_path() / "vxr-fuzz-XXXXXX").string();
  Require(::mkdtemp(name.data()) != nullptr, "no temporary folder");
  folder = name;
  std::atexit([] {
    std::error_code ignored;
    fs::remove_all(folder, ignored);
  });
  fs::create_directories(folder / "ram/Windows/System32");
  std::string image = BuildImage(VersionTree({}));
  image[90 + 48] = 6;
  for (const char *file : {"a.sys", "b.sys", "x64/c.sys", "x64/a.sys", "d.dll", "e.exe", "a.cat", "f.sy_", "g.cab"}) {
    WriteFile(std::string("ram/pack/") + file, image);
  }
  WriteFile("ram/pack/a.inf", "");
  WriteFile("machine.toml", std::string(kStandardSystem) + kStandardDrives);
  VXRMachine_SetObserver(Observe, nullptr);
  fs::create_directories(folder / "restored");
  outside = FilesOutside();
}

// --- Promises -------------------------------------------------------------------------------------------------------

bool IsBelow(const std::string &path, std::string_view place) {
  return path.starts_with(place) && path.find_first_of(":/*?\"<>|", place.size()) == path.npos &&
         (path + '\\').find("\\..\\") == path.npos && path.find("\\\\") == path.npos && path.find('\0') == path.npos &&
         path.size() > place.size() && path.back() != '\\';
}

void CheckPlan(const package::Plan &plan) {
  for (const std::string &directory : plan.directories) {
    Require(IsBelow(directory, kRestored), "a directory is planned outside of the restored system", directory);
  }
  for (const package::PlannedFile &file : plan.files) {
    Require(IsBelow(file.target, kRestored), "a file is planned outside of the restored system", file.target);
    Require(IsBelow(file.source, kPackage) || IsBelow(file.source, "D:\\Windows\\"),
            "a file is planned from outside of its package", file.source);
  }
  for (const RegistryEdit &edit : plan.edits.list) {
    const std::string &key = edit.key;
    Require(!key.empty() && key.front() != '\\' && key.back() != '\\' && key.find("\\\\") == key.npos &&
                key.find('\0') == key.npos,
            "a key is planned that no path names", key);
  }
}

// The hive as it is now against what the plan says of it.
void CheckHive(const RegistryEdits &planned) {
  const RegistryEdits none;
  for (const RegistryEdit &edit : planned.list) {
    Require(KeyExists(planned, edit.key) == KeyExists(none, edit.key), "a key is not as planned", edit.key);
    RegistryData plan, hive;
    const bool there = ReadValue(planned, edit.key, edit.name, &plan);
    Require(there == ReadValue(none, edit.key, edit.name, &hive), "a value is there or not against the plan",
            edit.key + " " + edit.name);
    Require(!there || (plan.type == hive.type && plan.bytes == hive.bytes), "a value is not as planned",
            edit.key + " " + edit.name);
  }
}

// --- One input ------------------------------------------------------------------------------------------------------

package::PlanContext MakeContext(bool newer) {
  package::PlanContext context;
  context.target = {6, 1, 7601, kAmd64};
  if (newer) context.target = {10, 0, 19045, kAmd64};
  context.places = kPlaces;
  context.controlSet = "ControlSet001";
  context.automaticRecord = newer;
  context.device = kDevice;
  return context;
}

bool PlanCandidate(const package::Candidate &candidate, const package::Index &index,
                   const package::IncludePlaces &includes, const package::PlanContext &context, package::Plan *plan) {
  package::Installation installation;
  package::PlanRefusal refusal;
  *plan = {};
  const bool planned = package::ReadCandidate(candidate, index, includes, &installation, &refusal.text) &&
                       package::PlanPackage(candidate, installation, context, plan, &refusal);
  Require(planned || !refusal.text.empty(), "refused without a reason", candidate.section);
  if (planned) CheckPlan(*plan);
  return planned;
}

void Apply(const package::Plan &plan) {
  package::ReportRemarks(plan);
  package::ReportPlan(plan);
  std::string failed;
  if (package::ApplyPlan(plan, &failed) == package::ApplyResult::kDone) CheckHive(plan.edits);
  CloseMachine();
  Require(FilesOutside() == outside, "files outside of the restored system changed");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (folder.empty()) MakeMachine();
  if (!mounted) OpenMachine();
  const std::string_view text(reinterpret_cast<const char *>(data), size);
  WriteFile("ram/pack/a.inf", text);
  WriteFile("restored/Windows/inf/other.inf", text);

  const package::PlanContext context = MakeContext(size % 2 != 0);
  const package::IncludePlaces includes = {kPlaces.inf, package::FileRepository(kPlaces.system)};
  package::Index index = package::MakeIndex(context.target);
  package::AddDirectory(&index, "X:\\pack", false);
  package::Plan plan;
  for (const package::Candidate &candidate : package::FindCandidates(index, kDevice, includes, &index.unread)) {
    if (candidate.refusal != package::Refusal::kNone) continue;
    if (!PlanCandidate(candidate, index, includes, context, &plan)) continue;
    Apply(plan);
    break;
  }
  return 0;
}
