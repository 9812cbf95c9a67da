#include "tools/vxr/output.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

bool WantsColour() {
  static const bool wants = [] {
    const char *off = std::getenv("NO_COLOR");
    const char *terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && (off == nullptr || *off == '\0') &&
           (terminal == nullptr || std::strcmp(terminal, "dumb") != 0);
  }();
  return wants;
}

const char *Sequence(Style style) {
  switch (style) {
    case Style::kDim:
      return "\x1b[2m";
    case Style::kBold:
      return "\x1b[1m";
    case Style::kGood:
      return "\x1b[32m";
    case Style::kBad:
      return "\x1b[31m";
    case Style::kPlain:
      break;
  }
  return "";
}

}  // namespace

std::string Styled(Style style, std::string_view text) {
  if (style == Style::kPlain || !WantsColour()) return std::string(text);
  return Sequence(style) + std::string(text) + "\x1b[0m";
}

void PrintError(std::string_view message) {
  std::string line(message);
  while (!line.empty() && line.back() == '\n') line.pop_back();
  for (char &c : line) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  std::fflush(stdout);
  std::fprintf(stderr, "vxr: %s\n", line.c_str());
}

std::string Bytes(std::uint64_t size) {
  std::string digits = std::to_string(size);
  for (std::size_t at = digits.size(); at > 3; at -= 3) digits.insert(at - 3, ",");
  return digits + (size == 1 ? " byte" : " bytes");
}

std::string ValueTypeName(std::uint32_t type) {
  static const char *const kNames[] = {"REG_NONE",
                                       "REG_SZ",
                                       "REG_EXPAND_SZ",
                                       "REG_BINARY",
                                       "REG_DWORD",
                                       "REG_DWORD_BIG_ENDIAN",
                                       "REG_LINK",
                                       "REG_MULTI_SZ",
                                       "REG_RESOURCE_LIST",
                                       "REG_FULL_RESOURCE_DESCRIPTOR",
                                       "REG_RESOURCE_REQUIREMENTS_LIST",
                                       "REG_QWORD"};
  if (type < std::size(kNames)) return kNames[type];
  return "type " + std::to_string(type);
}

bool FinishOutput() {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return true;
  PrintError("standard output cannot be written; nothing else is affected");
  return false;
}
