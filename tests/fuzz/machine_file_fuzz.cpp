// The text of a machine file from outside, read in a folder that has what the kept ones name. It opens, or is refused
// with one line; a machine that is open finds no file outside of its drives, closes, and opens once more.
#include <string>

#include "tests/fuzz/fuzz_folder.h"
#include "tests/support/hive_builder.h"
#include "vxrcore/machine.h"

namespace {

bool Open(const std::string &text) {
  char message[4096] = "";
  const bool opened = VXRMachine_OpenText(text.c_str(), FuzzFolder().c_str(), message, sizeof message) != 0;
  const std::string line = message;
  Require(opened == line.empty(), "an answer that contradicts its message", line);
  Require(line.find('\n') == std::string::npos, "more than one line", line);
  return opened;
}

void CheckPaths() {
  for (const char *path : {"X:\\Windows\\..\\..\\..\\outside", "D:\\out\\file", "X:\\in", "D:"}) {
    char host[4096] = "";
    if (!VXRMachine_HostPath(path, host, sizeof host)) continue;
    Require(std::string(host).find("outside") == std::string::npos, "a path out of its drive", host);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool made = [] {
    WriteWhole(FuzzFolder() / "outside/file", "");
    std::filesystem::create_directories(FuzzFolder() / "ram/Windows/System32");
    std::filesystem::create_directories(FuzzFolder() / "restored");
    std::filesystem::create_directory_symlink(FuzzFolder() / "outside", FuzzFolder() / "restored/out");
    WriteWhole(FuzzFolder() / "image", std::string(1024, '\0'));
    WriteHive(FuzzFolder() / "hive", SystemHiveValues(1));
    return true;
  }();
  (void)made;
  const std::string text(reinterpret_cast<const char *>(data), size);
  if (!Open(text)) return 0;
  CheckPaths();
  Require(VXRMachine_Close(), "a machine that does not close");
  Require(Open(text) && VXRMachine_Close(), "a machine that does not open once more");
  return 0;
}
