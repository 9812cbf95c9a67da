#include "platform/text/program_name.h"

namespace platform {

// Without a string: the Windows library would load half of the C++ runtime for it.
std::size_t TakeProgramName(std::string_view commandLine, char *name, std::size_t size) {
  bool quoted = false;
  std::size_t taken = 0, length = 0;
  // By bytes: neither a quote nor a blank is ever the second byte of a character.
  for (const char c : commandLine) {
    if (!quoted && (c == ' ' || c == '\t')) break;
    ++taken;
    if (c == '"') {
      quoted = !quoted;
    } else if (length + 1 < size) {
      name[length++] = c;
    }
  }
  name[length] = '\0';
  return taken;
}

}  // namespace platform
