#include "tools/vxr/boot/fix_boot_command.h"

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string_view>

#include "platform/machine/base/file_kind.h"
#include "platform/text/code_page.h"
#include "platform/text/toml_string.h"
#include "tools/vxr/base/host_file.h"
#include "tools/vxr/base/machine_session.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/base/program.h"
#include "tools/vxr/boot/boot_report.h"
#include "vxrcore/machine.h"

namespace {

namespace fs = std::filesystem;

constexpr char kHelp[] = "; see vxr fix-boot --help";
constexpr char kImageDisk[] = R"(\\.\PhysicalDrive0)";
constexpr std::uint32_t kCheckLevel = 3;  // of the log's lines that say what was found

// A disk alone, in a machine of which nothing else is used: its drive is there for the system directory.
constexpr char kImageMachine[] = R"([system]
system_directory = 'X:\Windows\System32'
windows_directory = 'X:\Windows'
os = { major = 6, minor = 1 }
[[drive]]
root = 'X:\'
type = 'ramdisk'
path = '/'
[[disk]]
number = 0
)";

// --- The geometry of an image ---------------------------------------------------------------------------------------

struct GeometryNumber {
  const char *key;   // in the machine's text
  const char *name;  // for people
  std::uint64_t least, most;
};

// The boot sector has 16 bits for the heads and for the sectors a track.
constexpr GeometryNumber kNumbers[] = {
    {"cylinders", "cylinders", 1, INT64_MAX},
    {"heads", "heads", 1, 0xFFFF},
    {"sectors", "sectors a track", 1, 0xFFFF},
    {"bytes", "bytes a sector", 512, 65536},
};

bool RefuseGeometry(const std::string &message) {
  PrintError("--geometry: " + message + kHelp);
  return false;
}

bool ReadGeometryNumber(const GeometryNumber &number, std::string_view text, std::uint64_t *value) {
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), *value);
  const bool whole = failure == std::errc() && end == text.data() + text.size();
  if (whole && *value >= number.least && *value <= number.most) return true;
  return RefuseGeometry(std::string(number.name) + " cannot be \"" + std::string(text) +
                        "\"; give a whole number from " + std::to_string(number.least) + " to " +
                        std::to_string(number.most));
}

// "C,H,S,B" as the inline table of a machine's text; nothing, after a message, when it is none.
std::optional<std::string> GeometryToml(std::string_view text) {
  std::string toml;
  std::uint64_t value = 0;
  for (const GeometryNumber &number : kNumbers) {
    const bool last = &number == std::end(kNumbers) - 1;
    const std::size_t comma = text.find(',');
    if ((comma == std::string_view::npos) != last) {
      RefuseGeometry("give four numbers: cylinders, heads, sectors a track, bytes a sector, such as 1044,255,63,512");
      return std::nullopt;
    }
    if (!ReadGeometryNumber(number, text.substr(0, comma), &value)) return std::nullopt;
    toml += (toml.empty() ? "{ " : ", ") + std::string(number.key) + " = " + std::to_string(value);
    text.remove_prefix(last ? 0 : comma + 1);
  }
  if ((value & (value - 1)) != 0) {
    RefuseGeometry("bytes a sector cannot be " + std::to_string(value) + "; give a power of two, such as 512 or 4096");
    return std::nullopt;
  }
  return toml + " }";
}

// --- An image as a machine ------------------------------------------------------------------------------------------

bool IsImage(const std::string &path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (fs::is_regular_file(status) || fs::is_block_file(status)) {
    if (IsUtf8(path)) return true;
    PrintError(path + ": the name is not UTF-8; rename the image, or make a link to it");
  } else if (fs::exists(status)) {
    PrintError(path + " " + machine::FileKind(status.type()) + "; give a disk image or a block device");
  } else {
    PrintError(path + ": " + (error ? error.message() : "there is no such file") +
               "; give a disk image or a block device, or name with --machine the machine that has the disk");
  }
  return false;
}

// --- The repair -----------------------------------------------------------------------------------------------------

void OnRepairEvent(void *report, const VXRMachine_Event *event) { AddEvent(static_cast<BootReport *>(report), *event); }

// Repairs the disk of the open machine that has this device name, then closes the machine. `shown`: its name for
// people; the machine's observer fills the report.
int Repair(const std::string &device, const std::string &shown, const BootReport &report) {
  BeginWork();
  // Whatever the log was set to, it tells of a change to a disk all that was found.
  VXRDbg_Initialize(kCheckLevel, 0, nullptr);
  VXRDbg_SetLevel(kCheckLevel);
  const bool repaired = VXREng_FixBootVolume(device.c_str()) != 0;
  CloseMachine();
  if (!repaired) {
    PrintError(ExplainFailure(report, shown));
    return 1;
  }
  for (const std::string &line : DescribeRepair(report, shown)) PrintLine(line);
  return 0;
}

int RepairImage(const FixBootOptions &options) {
  const std::optional<std::string> geometry = GeometryToml(options.geometry);
  if (!geometry) return kExitUsage;
  if (!IsImage(options.disk)) return 1;
  const std::string text =
      kImageMachine + ("image = " + machine::TomlString(options.disk)) + "\ngeometry = " + *geometry + "\n";
  BootReport report;
  if (!OpenMachineText(text, options.disk, OnRepairEvent, &report)) return kExitUsage;
  return Repair(kImageDisk, options.disk, report);
}

int RepairDisk(const FixBootOptions &options) {
  BootReport report;
  if (!OpenMachine(options.machine, OnRepairEvent, &report)) return kExitUsage;
  if (!InCodePage(options.disk)) {
    CloseMachine();
    return kExitUsage;
  }
  return Repair(machine::Utf8ToAnsi(options.disk, VXRMachine_CodePage()), options.disk, report);
}

}  // namespace

int FixBootCommand(const FixBootOptions &options) {
  if (kDescribedMachines && options.machine.empty() && options.geometry.empty()) {
    PrintError(std::string("name the disk's machine with --machine, or an image's geometry with --geometry") + kHelp);
    return kExitUsage;
  }
  return options.geometry.empty() ? RepairDisk(options) : RepairImage(options);
}
