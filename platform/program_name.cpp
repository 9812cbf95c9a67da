#include "platform/program_name.h"

namespace platform {

std::string TakeProgramName(std::string_view commandLine, std::size_t *length) {
  std::string name;
  bool quoted = false;
  std::size_t at = 0;
  // By bytes: neither a quote nor a blank is ever the second byte of a character.
  for (; at < commandLine.size() && (quoted || (commandLine[at] != ' ' && commandLine[at] != '\t')); ++at) {
    if (commandLine[at] == '"') {
      quoted = !quoted;
    } else {
      name += commandLine[at];
    }
  }
  if (length != nullptr) *length = at;
  return name;
}

}  // namespace platform
