// What is more than a pass-through: streams, the host's name.
#include <cstdio>
#include <cstring>

#include "platform/layout.h"

namespace platform {

std::FILE *OpenStream(const char *name, const char *mode) {
  char binary[8] = "";
  std::snprintf(binary, sizeof binary, "%sb", mode);
  return std::fopen(name, binary);
}

// From the process's command line: the runtime's own list of arguments is empty in a host built on another runtime.
const char *GetProgramName() {
  static char name[MAX_PATH] = "";
  const char *from = ::GetCommandLineA();
  const char end = *from == '"' ? '"' : ' ';
  if (end == '"') ++from;
  SIZE_T length = 0;
  while (from[length] != '\0' && from[length] != end && length + 1 < sizeof name) ++length;
  std::memcpy(name, from, length);
  name[length] = '\0';
  return length == 0 ? nullptr : name;
}

}  // namespace platform
