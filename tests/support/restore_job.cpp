#include "tests/support/restore_job.h"

#include <hivex.h>

#include "tests/support/hive_structure.h"
#include "tests/support/scsi_machine.h"
#include "tests/support/standard_machine.h"

namespace fs = std::filesystem;

const char *const RestoreJobTest::kHivePath = "restored/Windows/system32/config/SYSTEM";

const char *const RestoreJobTest::kInf = R"([Version]
Signature = "$Windows NT$"
Class = SCSIAdapter
ClassGUID = {4D36E97B-E325-11CE-BFC1-08002BE10318}
Provider = %Acme%
DriverVer = 03/04/2011,1.2.3.4

[Manufacturer]
%Acme% = Models, NTamd64

[Models.NTamd64]
%Fast% = Inst, PCI\VEN_1000&DEV_0030

[Inst]
CopyFiles = Files, @fastui.dll

[Files]
fast.sys

[Inst.Services]
AddService = fast, 0x00000002, Service

[Service]
DisplayName = %Fast%
ServiceType = 1
StartType = 0
ErrorControl = 1
ServiceBinary = %12%\fast.sys
LoadOrderGroup = SCSI miniport

[Strings]
Acme = "Acme"
Fast = "Fast Adapter"
)";

namespace {

constexpr const char *kDrive = R"(
[[drive]]
root = 'Q:\'
type = 'cdrom'
path = 'cd'

)";

}  // namespace

RestoreJobTest::RestoreJobTest() {
  fs::create_directories(folder / "cd");
  fs::create_directories((folder / kHivePath).parent_path());
  WriteHive(folder / kHivePath, SystemHiveValues(1));
  WriteFile("restored/Windows/system32/drivers/FAST.SYS", "the old driver");
  WriteFile("ram/drivers/fast.inf", kInf);
  WriteFile("ram/drivers/fast.sys", "the new driver, longer than the old one");
  WriteFile("ram/drivers/fastui.dll", "a library");
}

void RestoreJobTest::OpenJob(const std::function<void(std::string *)> &bend) {
  std::string toml = kDrive + ScsiMachine() + kStandardJob;
  if (bend) bend(&toml);
  Open(toml);
}

uint32_t RestoreJobTest::Run(bool inject) { return VXREng_RunVXR(1, inject ? 1 : 0, nullptr, window); }

void RestoreJobTest::ExpectHiveWhole() const {
  const std::string file = (folder / kHivePath).string(), bytes = ReadFile(kHivePath);
  EXPECT_EQ(HiveProblem({bytes.begin(), bytes.end()}), "");
  hive_h *hive = hivex_open(file.c_str(), 0);
  ASSERT_NE(hive, nullptr) << "the hive cannot be read any more";
  for (const HiveValue &value : SystemHiveValues(1)) {
    hive_node_h node = hivex_root(hive);
    std::string rest = value.key;
    while (node && !rest.empty()) {
      const std::size_t end = rest.find('\\');
      node = hivex_node_get_child(hive, node, rest.substr(0, end).c_str());
      rest = end == std::string::npos ? "" : rest.substr(end + 1);
    }
    EXPECT_NE(node, 0u) << "the hive lost " << value.key;
    if (!node || value.name.empty()) continue;
    hive_value_h cell = hivex_node_get_value(hive, node, value.name.c_str());
    EXPECT_NE(cell, 0u) << "the hive lost " << value.key << ", " << value.name;
  }
  hivex_close(hive);
}
