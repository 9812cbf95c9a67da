#include "package/read/plain_names.h"

#include <algorithm>
#include <cstring>

#include "platform/device_name.h"
#include "platform/inf/inf_file.h"

namespace package {
namespace {

constexpr std::size_t kNameMax = 255;  // characters of one component, on every file system that Windows starts from

}  // namespace

bool PlainName(const std::string &name) {
  if (name.empty() || name.size() > kNameMax || name.back() == '.' || name.back() == ' ') return false;
  for (std::size_t at = 0; at < name.size(); ++at) {
    const char c = name[at];
    if (platform::IsDBCSLeadByte(static_cast<BYTE>(c))) {
      if (++at == name.size()) return false;
    } else if (static_cast<BYTE>(c) < ' ' || std::strchr("\\/:*?\"<>|", c) != nullptr) {
      return false;
    }
  }
  return !IsDeviceName(machine::FoldAnsiName(name).c_str(), CodePageDigits);
}

bool PlainFolder(const std::string &folder, std::string *plain, std::string *last) {
  plain->clear();
  std::string component;
  for (std::size_t at = 0; at <= folder.size(); ++at) {
    const bool end = at == folder.size();
    if (!end && folder[at] != '\\' && folder[at] != '/') {
      component += folder[at];
      if (platform::IsDBCSLeadByte(static_cast<BYTE>(folder[at])) && at + 1 < folder.size()) component += folder[++at];
      continue;
    }
    if (!component.empty() && component != ".") {
      if (!PlainName(component)) return false;
      *plain = JoinNames(*plain, component);
      if (last != nullptr) *last = component;
    }
    component.clear();
  }
  return true;
}

bool Lists(const std::vector<std::string> &names, const std::string &name) {
  return std::any_of(names.begin(), names.end(),
                     [&name](const std::string &other) { return machine::SameName(other, name); });
}

std::string JoinNames(const std::string &folder, const std::string &name) {
  return folder.empty() || name.empty() ? folder + name : folder + "\\" + name;
}

}  // namespace package
