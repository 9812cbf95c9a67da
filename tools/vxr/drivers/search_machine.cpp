#include "tools/vxr/drivers/search_machine.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "tools/vxr/base/host_file.h"
#include "tools/vxr/base/machine_session.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/base/program.h"
#include "vxrcore/machine.h"

namespace {

// Drives by letter; X is the recovery environment's.
constexpr char kLetters[] = "DEFGHIJKLMNOPQRSTUVWYZ";
constexpr std::size_t kMostDirectories = sizeof kLetters - 1;

// A machine with what a run looks at before it comes to a driver.
constexpr char kMachine[] = R"([system]
system_directory = 'X:\Windows\System32'
windows_directory = 'X:\Windows'
os = { major = 10, minor = 0 }
code_page = %u
language = %u
[[drive]]
root = 'X:\'
type = 'ramdisk'
path = '/'
[[device]]
instance = 'ROOT\ACPI_HAL\0000'
class = 'Computer'
hardware_ids = ['acpiapic_mp']
[registry.'SOFTWARE\Varnelt\Halcyra']
HCDIR = 'X:\Halcyra'
[registry.'SOFTWARE\Varnelt\Relmar\1']
Disk = '\\.\PhysicalDrive0'
InfDir = 'D:\'
BootPart = '\\.\PhysicalDrive0\Partition1'
RootPath = 'D:\'
)";

std::string Drive(char letter, const std::string &directory) {
  const std::string host = HostName(std::filesystem::absolute(HostFile(directory)));
  return std::string("[[drive]]\nroot = '") + letter + ":\\'\ntype = 'fixed'\npath = " + TomlString(host) + "\n";
}

std::string MachineToml(const DriversOptions &options) {
  char text[sizeof kMachine + 32];
  std::snprintf(text, sizeof text, kMachine, options.codePage, options.language);
  std::string toml = text;
  for (std::size_t i = 0; i < options.directories.size(); ++i) toml += Drive(kLetters[i], options.directories[i]);
  return toml;
}

bool Check(const DriversOptions &options) {
  if (kDescribedMachines && options.directories.size() > kMostDirectories) {
    PrintError(std::to_string(options.directories.size()) + " directories are too many for one search; name at most " +
               std::to_string(kMostDirectories) + ", such as one above them");
    return false;
  }
  for (const std::string &directory : options.directories) {
    std::error_code error;
    if (directory.empty()) {
      PrintError("a directory has an empty name; see vxr drivers --help");
      return false;
    }
    if (std::filesystem::is_directory(HostFile(directory), error)) continue;
    PrintError(directory + (std::filesystem::exists(HostFile(directory), error) ? " is no directory" : " is missing") +
               "; name a directory that holds INF files, or folders with them");
    return false;
  }
  return true;
}

bool IsBelow(const std::filesystem::path &inner, const std::filesystem::path &outer) {
  return std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

std::size_t LetterIndex(const std::string &path) {
  const char *letter = path.size() < 2 || path[1] != ':' ? nullptr : std::strchr(kLetters, path[0]);
  return letter == nullptr || *letter == '\0' ? kMostDirectories : static_cast<std::size_t>(letter - kLetters);
}

}  // namespace

bool CheckDirectories(DriversOptions *options) {
  std::vector<std::filesystem::path> places;
  for (const std::string &directory : options->directories) {
    std::error_code error;
    const std::filesystem::path place = std::filesystem::canonical(HostFile(directory), error);
    places.push_back(error ? HostFile(directory) : place);
  }
  const bool below = options->rules != "exact";
  std::vector<std::string> kept;
  for (std::size_t i = 0; i < places.size(); ++i) {
    bool covered = false;
    for (std::size_t j = 0; j < places.size(); ++j) {
      covered = covered || (places[i] == places[j] ? j < i : below && IsBelow(places[i], places[j]));
    }
    if (!covered) kept.push_back(options->directories[i]);
  }
  options->directories = std::move(kept);
  return Check(*options);
}

bool OpenSearchMachine(const DriversOptions &options) {
  return OpenMachineText(MachineToml(options), "drivers", nullptr, nullptr);
}

std::vector<std::string> SearchedDirectories(const DriversOptions &options) {
  if (!kDescribedMachines) return options.directories;
  std::vector<std::string> directories;
  for (std::size_t i = 0; i < options.directories.size(); ++i) directories.push_back(kLetters[i] + std::string(":\\"));
  return directories;
}

std::string GivenPath(const DriversOptions &options, const std::string &path) {
  const std::size_t index = kDescribedMachines ? LetterIndex(path) : kMostDirectories;
  if (index >= options.directories.size()) return path;
  std::string given = options.directories[index];
  while (given.size() > 1 && given.back() == '/') given.pop_back();
  std::string rest = path.substr(2);  // empty for the directory itself
  std::replace(rest.begin(), rest.end(), '\\', '/');
  if (rest.empty() || rest == "/") return given;
  return (given == "/" ? "" : given) + rest;
}

std::string GivenText(const DriversOptions &options, const std::string &text) {
  for (std::size_t colon = text.find(":\\"); colon != std::string::npos; colon = text.find(":\\", colon + 1)) {
    if (colon == 0 || (colon > 1 && text[colon - 2] != ' ')) continue;
    return text.substr(0, colon - 1) + GivenPath(options, text.substr(colon - 1));
  }
  return text;
}
