#include "tests/support/test_machine.h"

#include <stdlib.h>

#include <fstream>
#include <iterator>

#include "platform/machine/fault.h"

namespace {

constexpr char kSystem[] = R"([system]
system_directory = 'X:\Windows\System32'
windows_directory = 'X:\Windows'
os = { major = 6, minor = 1, build = 7601, platform = 2, sp_major = 1, sp_minor = 0, suite = 0x100, product = 1 }
processor = { count = 2, architecture = 9, type = 8664, level = 6, revision = 0x3A09 }
memory = 8589934592
)";

constexpr char kDrives[] = R"(
[[drive]]
root = 'X:\'
type = 'ramdisk'
path = 'ram'

[[drive]]
root = 'D:\'
type = 'fixed'
path = 'restored'

[registry.'SOFTWARE\Varnelt\Halcyra']
HCDIR = 'X:\Halcyra'

)";

constexpr char kMasterIni[] = "[debugging]\r\nvxrcore=5\r\n";

std::string Copy(const char *text) { return text == nullptr ? "" : text; }

}  // namespace

MachineTest::MachineTest() {
  std::string name = std::filesystem::temp_directory_path() / "vxr-test-XXXXXX";
  if (::mkdtemp(name.data()) == nullptr) ADD_FAILURE() << "no temporary folder " << name;
  folder = std::filesystem::canonical(name);
  for (const char *directory : {"ram/Windows/System32", "ram/Windows/inf", "ram/Halcyra/logs.dir", "restored"}) {
    std::filesystem::create_directories(Host(directory));
  }
  const auto observe = [](void *context, const VXRMachine_Event *event) {
    auto *test = static_cast<MachineTest *>(context);
    if (event->kind == VXRMACHINE_DEBUG_TEXT) {
      test->log += Copy(event->text);
      return;
    }
    test->events.push_back(
        {event->kind, event->type, event->size, Copy(event->subject), Copy(event->detail), Copy(event->text)});
  };
  VXRMachine_SetObserver(observe, this);
}

MachineTest::~MachineTest() {
#ifdef VXR_FAULT_POINTS
  machine::SetFaultPlan({});
#endif
  Close();
  VXRMachine_SetObserver(nullptr, nullptr);
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
}

void MachineTest::Open(const std::string &rest, const std::string &system) {
  WriteFile("machine.toml", (system.empty() ? kSystem : system) + kDrives + rest);
  WriteFile("ram/Halcyra/master.ini", kMasterIni);
  OpenFile("machine.toml");
}

void MachineTest::OpenFile(const std::string &relative) {
  char message[1024] = "";
  ASSERT_TRUE(VXRMachine_Open(Host(relative).c_str(), message, sizeof message)) << message;
  open = true;
  const auto collect = [](void *context, const char *text) {
    static_cast<MachineTest *>(context)->statusLines.emplace_back(text);
  };
  window = VXRMachine_CreateWindow(collect, this);
  ASSERT_NE(window, nullptr);
}

void MachineTest::Close() {
  if (!open) return;
  open = false;
  // The log outlives a machine: it is ended here so that the next machine's log begins with its own settings.
  VXRDbg_Cleanup();
  window = nullptr;
  EXPECT_TRUE(VXRMachine_Close());
}

std::filesystem::path MachineTest::Host(const std::string &relative) const { return folder / relative; }

void MachineTest::WriteFile(const std::string &relative, const std::string &content) {
  const std::filesystem::path path = Host(relative);
  std::filesystem::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content;
  file.close();
  if (!file) ADD_FAILURE() << "cannot write " << path;
}

std::string MachineTest::ReadFile(const std::string &relative) const {
  std::ifstream file(Host(relative), std::ios::binary);
  if (!file) ADD_FAILURE() << "cannot read " << Host(relative);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

std::string MachineTest::JobToml(int number, const std::string &more) {
  return "[registry.'SOFTWARE\\Varnelt\\Relmar\\" + std::to_string(number) + R"(']
Disk = '\\.\PhysicalDrive0'
InfDir = 'X:\drivers'
BootPart = '\\.\PhysicalDrive0\Partition1'
RootPath = 'D:\'
BMEFile = 'X:\machine.bme'
)" + more +
         "\n";
}

void MachineTest::CopyExample(const std::string &name, const std::string &relative, const std::string &drive) {
  std::filesystem::copy(std::filesystem::path(VXR_EXAMPLES_DIR) / name, Host(relative),
                        std::filesystem::copy_options::recursive);
  WriteFile(relative + "/" + drive + "/Halcyra/master.ini", kMasterIni);
}
