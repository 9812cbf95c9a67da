#include "tools/vxr/drivers/search_machine.h"

#include <cstdio>
#include <utility>

#include "tools/vxr/base/machine_session.h"
#include "vxrcore/machine.h"

namespace {

// A machine with what a run looks at before it comes to a driver.
constexpr char kMachine[] = R"([system]
system_directory = 'X:\Windows\System32'
windows_directory = 'X:\Windows'
os = { major = 10, minor = 0 }
code_page = %u
language = %u
[[drive]]
root = 'X:\'
type = 'ramdisk'
path = '/'
[[device]]
instance = 'ROOT\ACPI_HAL\0000'
class = 'Computer'
hardware_ids = ['acpiapic_mp']
[registry.'SOFTWARE\Varnelt\Halcyra']
HCDIR = 'X:\Halcyra'
[registry.'SOFTWARE\Varnelt\Relmar\1']
Disk = '\\.\PhysicalDrive0'
InfDir = 'D:\'
BootPart = '\\.\PhysicalDrive0\Partition1'
RootPath = 'D:\'
)";

std::string MachineToml(const DriversOptions &options) {
  char text[sizeof kMachine + 32];
  std::snprintf(text, sizeof text, kMachine, options.codePage, options.language);
  return text + DrivesToml(Given(options));
}

}  // namespace

bool CheckDirectories(DriversOptions *options) {
  GivenDirectories directories = Given(*options);
  if (!CheckDirectories(&directories, options->rules != "exact")) return false;
  options->directories = std::move(directories.names);
  return true;
}

bool OpenSearchMachine(const DriversOptions &options) {
  return OpenMachineText(MachineToml(options), "drivers", nullptr, nullptr);
}
