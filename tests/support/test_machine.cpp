#include "tests/support/test_machine.h"

#include <stdlib.h>

#include "platform/machine/base/fault.h"
#include "platform/machine/base/handles.h"
#include "tests/support/standard_machine.h"

namespace {

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
  machine::SetFaultPlan({});
  Close();
  VXRMachine_SetObserver(nullptr, nullptr);
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
}

void MachineTest::Open(const std::string &rest, const std::string &system) {
  WriteFile("machine.toml", (system.empty() ? kStandardSystem : system) + kStandardDrives + rest);
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

void MachineTest::CopyExample(const std::string &name, const std::string &relative, const std::string &drive) {
  using std::filesystem::copy_options;
  std::filesystem::copy(std::filesystem::path(VXR_SOURCE_DIR "/examples") / name, Host(relative),
                        copy_options::recursive | copy_options::overwrite_existing);
  WriteFile(relative + "/" + drive + "/Halcyra/master.ini", kMasterIni);
}

void MachineTest::BecomeExample(const std::string &name) {
  for (const char *directory : {"ram", "restored"}) std::filesystem::remove_all(Host(directory));
  CopyExample(name, ".", "ram");
  for (const std::string &file : Names(".")) {
    if (!file.ends_with(".toml")) continue;
    std::string toml = ReadFile(file);
    toml.replace(toml.find("[system]\n"), 9, "[system]\nclock = 2026-11-19T12:00:00Z\n");
    WriteFile(file, toml);
  }
}

std::size_t MachineTest::OpenHandles() const { return machine::OpenHandles(); }

std::size_t MachineTest::OpenViews() const { return machine::OpenViews(); }
