#include "tools/vxr/drivers/target_text.h"

#include <string_view>
#include <vector>

#include "platform/architecture.h"
#include "platform/text/ansi_case.h"
#include "tools/vxr/base/read_number.h"

namespace {

constexpr std::uint32_t kWorkstation = 1, kServer = 3;

std::vector<std::string_view> Split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (;;) {
    const std::size_t end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

bool ReadVersion(std::string_view text, VXRDRV_TARGET *target) {
  const std::vector<std::string_view> parts = Split(text, '.');
  if (parts.size() != 2 && parts.size() != 3) return false;
  return ReadNumber(parts[0], &target->major) && ReadNumber(parts[1], &target->minor) &&
         (parts.size() == 2 || ReadNumber(parts[2], &target->build));
}

bool ReadArchitecture(std::string_view text, std::uint32_t *number) {
  for (const NamedArchitecture &known : kArchitectures) {
    // Of 32-bit ARM no Windows starts from what this library can set up.
    if (known.architecture == kArm || !machine::SameUtf8(text, known.name)) continue;
    *number = known.architecture;
    return true;
  }
  return false;
}

}  // namespace

bool ParseTarget(const std::string &text, VXRDRV_TARGET *target, std::string *problem) {
  const std::vector<std::string_view> parts = Split(text, '-');
  target->build = target->suite = 0;
  target->product = kWorkstation;
  if (parts.size() < 2 || parts.size() > 4 || !ReadVersion(parts[0], target)) {
    *problem = "give MAJOR.MINOR[.BUILD]-ARCH[-PRODUCT[-SUITE]], such as 10.0.19045-amd64";
  } else if (target->major < 5) {
    *problem = "Windows before 5.0 reads no such INF files";
  } else if (!ReadArchitecture(parts[1], &target->architecture)) {
    *problem = "\"" + std::string(parts[1]) + "\" is no architecture; give x86, amd64, arm64 or ia64";
  } else if (parts.size() > 2 &&
             (!ReadNumber(parts[2], &target->product) || target->product < kWorkstation || target->product > kServer)) {
    *problem = "\"" + std::string(parts[2]) + "\" is no product; give 1 workstation, 2 domain controller or 3 server";
  } else if (parts.size() > 3 && !ReadNumber(parts[3], &target->suite)) {
    *problem = "\"" + std::string(parts[3]) + "\" is no suite; give its bits, such as 0x100";
  } else {
    return true;
  }
  return false;
}
