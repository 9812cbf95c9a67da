// What is more than a pass-through: streams, the host's name.
#include <cstdio>

#include "platform/layout.h"
#include "platform/text/program_name.h"

namespace platform {

std::FILE *OpenStream(const char *name, const char *mode) {
  char binary[8] = "";
  std::snprintf(binary, sizeof binary, "%sb", mode);
  return std::fopen(name, binary);
}

// From the process's command line: the runtime's own list of arguments is empty in a host built on another runtime.
const char *GetProgramName() {
  static char name[0x10000];  // room for the longest command line, in two-byte characters
  TakeProgramName(::GetCommandLineA(), name, sizeof name);
  return *name == '\0' ? nullptr : name;
}

}  // namespace platform
