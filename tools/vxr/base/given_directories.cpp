#include "tools/vxr/base/given_directories.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "platform/machine/base/file_kind.h"
#include "platform/text/toml_string.h"
#include "tools/vxr/base/host_file.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/base/program.h"

namespace {

bool Check(const GivenDirectories &directories) {
  if (kDescribedMachines && directories.names.size() > directories.letters.size()) {
    PrintError(std::to_string(directories.names.size()) + " directories are too many for one search; name at most " +
               std::to_string(directories.letters.size()) + ", such as one above them");
    return false;
  }
  for (const std::string &directory : directories.names) {
    std::error_code error;
    if (kDescribedMachines && !IsUtf8(HostName(std::filesystem::absolute(HostFile(directory), error)))) {
      PrintError(directory + ": the path is not UTF-8; rename the directory, or make a link to it");
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

// npos for a path on none of the drives.
std::size_t DriveIndex(const GivenDirectories &directories, const std::string &path) {
  const std::size_t index = path.size() < 2 || path[1] != ':' ? std::string::npos : directories.letters.find(path[0]);
  return index < directories.names.size() ? index : std::string::npos;
}

}  // namespace

bool CheckDirectories(GivenDirectories *directories, bool below) {
  std::vector<std::filesystem::path> places;
  for (const std::string &directory : directories->names) {
    std::error_code error;
    const std::filesystem::path place = std::filesystem::canonical(HostFile(directory), error);
    places.push_back(error ? HostFile(directory) : place);
  }
  std::vector<std::string> kept;
  for (std::size_t i = 0; i < places.size(); ++i) {
    bool covered = false;
    for (std::size_t j = 0; j < places.size(); ++j) {
      covered = covered || (places[i] == places[j] ? j < i : below && IsBelow(places[i], places[j]));
    }
    if (!covered) kept.push_back(directories->names[i]);
  }
  directories->names = std::move(kept);
  return Check(*directories);
}

std::string DrivesToml(const GivenDirectories &directories) {
  std::string toml;
  for (std::size_t i = 0; i < directories.names.size(); ++i) {
    const std::string host = HostName(std::filesystem::absolute(HostFile(directories.names[i])));
    toml += std::string("[[drive]]\nroot = '") + directories.letters[i] +
            ":\\'\ntype = 'fixed'\npath = " + machine::TomlString(host) + "\n";
  }
  return toml;
}

std::vector<std::string> MachineDirectories(const GivenDirectories &directories) {
  if (!kDescribedMachines) return directories.names;
  std::vector<std::string> named;
  for (std::size_t i = 0; i < directories.names.size(); ++i)
    named.push_back(directories.letters[i] + std::string(":\\"));
  return named;
}

std::string GivenPath(const GivenDirectories &directories, const std::string &path) {
  const std::size_t index = kDescribedMachines ? DriveIndex(directories, path) : std::string::npos;
  if (index == std::string::npos) return path;
  std::string given = directories.names[index];
  while (given.size() > 1 && given.back() == '/') given.pop_back();
  std::string rest = path.substr(2);  // empty for the directory itself
  std::replace(rest.begin(), rest.end(), '\\', '/');
  if (rest.empty() || rest == "/") return given;
  return (given == "/" ? "" : given) + rest;
}

std::string UnreadText(const std::string &given, const std::string &reason) {
  constexpr struct {
    const char *number, *words;
  } kErrors[] = {{" (error 5)", ": access is denied; check who may read it"},
                 {" (error 123)", ": its name is not UTF-8, or none that Windows allows; rename it"}};
  if (reason.find(" (error ") == std::string::npos) return reason;
  using Type = std::filesystem::file_type;
  std::error_code error;
  const Type type = std::filesystem::symlink_status(HostFile(given), error).type();
  if (type == Type::symlink) return "it is a link that leads nowhere, or out of the directory";
  if (std::filesystem::exists(std::filesystem::file_status(type)) && type != Type::regular && type != Type::directory) {
    return std::string("it ") + machine::FileKind(type);
  }
  for (const auto &[number, words] : kErrors) {
    if (reason.ends_with(number)) return reason.substr(0, reason.size() - std::strlen(number)) + words;
  }
  return reason;
}

std::string GivenText(const GivenDirectories &directories, const std::string &text) {
  for (std::size_t colon = text.find(":\\"); colon != std::string::npos; colon = text.find(":\\", colon + 1)) {
    if (colon == 0 || (colon > 1 && text[colon - 2] != ' ')) continue;
    return text.substr(0, colon - 1) + GivenPath(directories, text.substr(colon - 1));
  }
  return text;
}
