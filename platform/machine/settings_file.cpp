// Settings files: [section] and key=value lines.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "platform/machine/code_page.h"
#include "platform/machine/descriptor.h"
#include "platform/machine/fault.h"
#include "platform/machine/machine.h"
#include "platform/machine/paths.h"

namespace {

std::string_view Trim(std::string_view text) {
  constexpr char kBlanks[] = " \t\r\n";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

// A name without a directory is looked for where Windows looks, in its own directory.
std::string FullName(const char *file) {
  std::string name = file;
  if (name.find_first_of("\\/:") != std::string::npos) return name;
  return machine::Current()->system.windowsDirectory + "\\" + name;
}

// The file's text in the ANSI code page.
bool ReadSettings(const char *file, std::string *text) {
  const machine::Descriptor descriptor(machine::OpenHostFile(FullName(file).c_str(), O_RDONLY | O_NONBLOCK));
  if (!descriptor) return false;
  struct stat status;
  if (fstat(descriptor.fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    platform::SetLastError(ERROR_ACCESS_DENIED);
    return false;
  }
  char block[16384];
  for (;;) {
    const ssize_t count = read(descriptor.fd, block, sizeof block);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) platform::SetLastError(machine::ErrorFromErrno(errno));
    if (count < 0) return false;
    if (count == 0) break;
    text->append(block, static_cast<std::size_t>(count));
  }
  if (text->starts_with("\xFF\xFE")) {
    std::u16string wide((text->size() - 2) / 2, u'\0');
    std::memcpy(wide.data(), text->data() + 2, wide.size() * 2);
    *text = machine::Utf16ToAnsi(wide);
  } else if (text->starts_with("\xEF\xBB\xBF")) {
    *text = machine::Utf8ToAnsi(text->substr(3));
  }
  return true;
}

std::string_view TakeLine(std::string_view *text) {
  const std::size_t end = text->find_first_of("\r\n");
  const std::string_view line = text->substr(0, end);
  text->remove_prefix(end == std::string_view::npos ? text->size() : end + 1);
  return Trim(line);
}

// The value of a key in the first section of that name.
std::optional<std::string_view> FindValue(std::string_view text, std::string_view section, std::string_view key) {
  bool inside = false;
  while (!text.empty()) {
    const std::string_view line = TakeLine(&text);
    if (line.starts_with('[')) {
      if (inside) return std::nullopt;
      inside = machine::CompareNoCase(Trim(line.substr(1, line.find(']') - 1)), section) == 0;
      continue;
    }
    const std::size_t equals = line.find('=');
    if (!inside || line.starts_with(';') || equals == std::string_view::npos) continue;
    if (machine::CompareNoCase(Trim(line.substr(0, equals)), key) != 0) continue;
    std::string_view value = Trim(line.substr(equals + 1));
    const bool quoted = value.size() >= 2 && (value[0] == '"' || value[0] == '\'') && value.back() == value[0];
    return quoted ? value.substr(1, value.size() - 2) : value;
  }
  return std::nullopt;
}

// The leading decimal number, 0 when there is none. A number too large wraps at 32 bits, as on Windows.
std::int32_t LeadingNumber(std::string_view text) {
  text = Trim(text);
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  std::uint32_t number = 0;
  for (; !text.empty() && text[0] >= '0' && text[0] <= '9'; text.remove_prefix(1)) {
    number = number * 10 + static_cast<std::uint32_t>(text[0] - '0');
  }
  return static_cast<std::int32_t>(negative ? 0 - number : number);
}

}  // namespace

namespace platform {

UINT GetPrivateProfileIntA(const char *section, const char *key, int fallback, const char *file) {
  VXR_FAULT(static_cast<UINT>(fallback), ERROR_FILE_NOT_FOUND);
  if (machine::CurrentOrNotReady() == nullptr) return static_cast<UINT>(fallback);
  if (section == nullptr || key == nullptr || file == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return static_cast<UINT>(fallback);
  }
  std::string text;
  if (!ReadSettings(file, &text)) return static_cast<UINT>(fallback);
  const std::optional<std::string_view> value = FindValue(text, section, key);
  if (value) return static_cast<UINT>(LeadingNumber(*value));
  SetLastError(ERROR_FILE_NOT_FOUND);
  return static_cast<UINT>(fallback);
}

}  // namespace platform
