#include "platform/machine/files/path_syntax.h"

#include <algorithm>

#include "platform/device_name.h"
#include "platform/machine/base/report.h"
#include "platform/machine/description/current.h"
#include "platform/machine/description/records.h"
#include "platform/text/ansi_case.h"
#include "platform/text/code_page.h"

namespace machine {
namespace {

constexpr std::size_t kLongestPrefixedPath = 32767;
constexpr std::string_view kLongPathPrefix = R"(\\?\)";
constexpr std::string_view kDevicePrefix = R"(\\.\)";

bool IsSeparator(char c) { return c == '\\' || c == '/'; }

void DropTrailing(std::string_view *text, std::string_view characters) {
  const std::size_t last = text->find_last_not_of(characters);
  *text = text->substr(0, last == std::string_view::npos ? 0 : last + 1);
}

bool IsDevice(std::string_view name) {
  const auto inUtf8 = [] { return RaisedDigits{{"\xC2\xB9", "\xC2\xB2", "\xC2\xB3"}}; };
  std::string upper(name);
  std::transform(upper.begin(), upper.end(), upper.begin(), UpperAscii);
  return IsDeviceName(upper.c_str(), inUtf8);
}

bool HasForbiddenCharacter(std::string_view name, std::string_view forbidden) {
  return std::any_of(name.begin(), name.end(), [forbidden](char c) {
    return static_cast<unsigned char>(c) < 0x20 || forbidden.find(c) != std::string_view::npos;
  });
}

// Adds one component; `text` is the whole path, for the observer.
Status AddComponent(const char *text, std::string_view component, bool last, WindowsPath *path) {
  if (component.empty() || component == ".") return {};
  if (component == "..") {
    if (path->names.empty()) return RefusePath(text, "it leads out of the drive through \"..\"");
    path->names.pop_back();
    return {};
  }
  if (last && component.find_first_of("*?") != std::string_view::npos) {
    if (HasForbiddenCharacter(component, "<>:\"|")) return Status::Windows(ERROR_INVALID_NAME);
    path->pattern = component;
    return {};
  }
  DropTrailing(&component, ". ");
  if (component.empty() || HasForbiddenCharacter(component, "<>:\"|?*") || IsDevice(component)) {
    return Status::Windows(ERROR_INVALID_NAME);
  }
  path->names.emplace_back(component);
  return {};
}

Status AddComponents(const char *text, std::string_view rest, WindowsPath *path) {
  path->directory = !rest.empty() && IsSeparator(rest.back());
  while (!rest.empty()) {
    const auto end = std::find_if(rest.begin(), rest.end(), IsSeparator);
    const std::string_view component = rest.substr(0, static_cast<std::size_t>(end - rest.begin()));
    rest.remove_prefix(std::min(rest.size(), component.size() + 1));
    Status added = AddComponent(text, component, rest.empty() && !path->directory, path);
    if (!added) return added;
  }
  return {};
}

}  // namespace

Status ParseWindowsPath(const char *text, WindowsPath *path) {
  *path = {};
  if (Current() == nullptr) return Status::Windows(ERROR_NOT_READY);
  if (text == nullptr || *text == 0) return Status::Windows(ERROR_PATH_NOT_FOUND);
  std::string_view bytes = text;
  if (bytes.front() == '/') {
    path->host = bytes;
    return {};
  }
  const bool prefixed = bytes.starts_with(kLongPathPrefix);
  if (bytes.size() > (prefixed ? kLongestPrefixedPath : MAX_PATH - 1)) return Status::Windows(ERROR_PATH_NOT_FOUND);
  if (prefixed) bytes.remove_prefix(kLongPathPrefix.size());
  if (bytes.size() < 2 || !IsAsciiLetter(bytes[0]) || bytes[1] != ':') {
    const bool device = prefixed || bytes.starts_with(kDevicePrefix);
    return Status::Windows(device ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
  }
  path->drive = UpperAscii(bytes[0]);
  // Converted before it is split: the second byte of a two-byte character may be that of a backslash.
  const std::string rest = AnsiToUtf8(bytes.substr(2));
  return AddComponents(text, rest, path);
}

Status RefusePath(const char *windowsPath, const std::string &why) {
  VXRMachine_Event event = {};
  event.kind = VXRMACHINE_PATH_REFUSED;
  event.subject = windowsPath;
  event.detail = why.c_str();
  Report(event);
  return Status::Windows(ERROR_ACCESS_DENIED);
}

}  // namespace machine
