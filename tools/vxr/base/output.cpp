#include "tools/vxr/base/output.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/architecture.h"

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

// UTF-8 text without C0 and C1 control characters; the latter are C2 80 to C2 9F.
std::string Printable(std::string_view text) {
  std::string clean;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
    if (byte == 0xC2 && next >= 0x80 && next <= 0x9F) {
      clean += '?';
      ++i;
    } else {
      clean += byte < 0x20 || byte == 0x7F ? '?' : text[i];
    }
  }
  return clean;
}

std::vector<std::string> g_errors;
bool g_works = false;

}  // namespace

void PrintLine(std::string_view text, Style style) {
  const bool styled = style != Style::kPlain && WantsColour();
  std::printf("%s%s%s\n", styled ? Sequence(style) : "", Printable(text).c_str(), styled ? "\x1b[0m" : "");
}

void PrintTitle(const std::string &text) {
  PrintLine("");
  PrintLine(text, Style::kBold);
}

void PrintError(std::string_view message) {
  while (!message.empty() && message.back() == '\n') message.remove_suffix(1);
  g_errors.push_back(Printable(message));
  std::fflush(stdout);
  std::fprintf(stderr, "vxr: %s\n", g_errors.back().c_str());
}

std::vector<std::string> TakeErrors() { return std::exchange(g_errors, {}); }

std::string Bytes(std::uint64_t size) {
  std::string digits = std::to_string(size);
  for (std::size_t at = digits.size(); at > 3; at -= 3) digits.insert(at - 3, ",");
  return digits + (size == 1 ? " byte" : " bytes");
}

std::string ArchitectureText(std::uint32_t architecture) {
  const NamedArchitecture *known = FindArchitecture(architecture);
  return known == nullptr ? "processor architecture " + std::to_string(architecture) : known->usual;
}

std::string Sentence(std::string text) {
  if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') text[0] = static_cast<char>(text[0] - 'a' + 'A');
  return text + ".";
}

std::string Hexadecimal(std::uint32_t number) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", number);
  return text;
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

std::string Padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

void BeginWork() {
  g_works = true;
#ifdef SIGPIPE
  std::signal(SIGPIPE, SIG_IGN);
#endif
#ifdef SIGXFSZ
  std::signal(SIGXFSZ, SIG_IGN);
#endif
}

bool FinishOutput() {
  static bool told = false;
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return true;
  if (!std::exchange(told, true)) PrintError("standard output cannot be written; nothing else is affected");
  return false;
}

int FinishCommand(int exitStatus, bool document) {
  const bool lost = !FinishOutput() && (!g_works || document);
  return lost && exitStatus == 0 ? 1 : exitStatus;
}
