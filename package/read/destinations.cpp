// Where files of a package go in the restored system.
#include <algorithm>
#include <charconv>
#include <iterator>

#include "package/read/reading.h"
#include "package/read/sources.h"

namespace package {
namespace {

// A directory id and the place that it stands for; without base it is not in the restored system's directories.
struct Place {
  long id;
  std::string RestoredPlaces::*base;
  const char *below;
};
constexpr long kSystem = 11, kDrivers = 12, kStore = 13;
constexpr long kShell = 16384;  // ids above it are those of shell folders
constexpr Place kPlaces[] = {
    {10, &RestoredPlaces::windows, ""},
    {kSystem, &RestoredPlaces::system, ""},
    {kDrivers, &RestoredPlaces::system, "drivers"},
    {kStore, &RestoredPlaces::system, "drivers"},  // the driver store's packages cannot be made offline
    {17, &RestoredPlaces::inf, ""},
    {18, &RestoredPlaces::windows, "Help"},
    {20, &RestoredPlaces::windows, "Fonts"},
    {21, &RestoredPlaces::system, "viewers"},
    {23, &RestoredPlaces::system, "spool\\drivers\\color"},
    {24, &RestoredPlaces::root, ""},
    {25, &RestoredPlaces::windows, ""},
    {30, &RestoredPlaces::root, ""},
    {50, &RestoredPlaces::windows, "system"},
    {51, &RestoredPlaces::system, "spool"},
    {52, &RestoredPlaces::system, "spool\\drivers"},
    {55, &RestoredPlaces::system, "spool\\prtprocs"},
    {kShell + 20, &RestoredPlaces::windows, "Fonts"},
    {kShell + 35, &RestoredPlaces::root, "ProgramData"},
    {kShell + 36, &RestoredPlaces::windows, ""},
    {kShell + 37, &RestoredPlaces::system, ""},
    {kShell + 38, &RestoredPlaces::root, "Program Files"},
    {kShell + 41, &RestoredPlaces::windows, "SysWOW64"},
    {kShell + 42, &RestoredPlaces::root, "Program Files (x86)"},
    {kShell + 43, &RestoredPlaces::root, "Program Files\\Common Files"},
    {kShell + 44, &RestoredPlaces::root, "Program Files (x86)\\Common Files"},
};

bool ParseId(const std::string &text, long *id) {
  const std::from_chars_result read = std::from_chars(text.data(), text.data() + text.size(), *id);
  return !text.empty() && read.ec == std::errc() && read.ptr == text.data() + text.size();
}

// The line of [DestinationDirs] for the file's list.
bool FindDestination(const InfSource &inf, const FileLine &file, FoundLine *line) {
  if (!file.list.empty() && FindLine(inf.file.get(), "DestinationDirs", file.list, line)) return true;
  return FindLine(inf.file.get(), "DestinationDirs", "DefaultDestDir", line);
}

// What a service's binary may begin with.
constexpr const char *kBinaryPlaces[] = {"%10%\\",         "%11%\\",         "%12%\\",    "%13%\\",
                                         "\\SystemRoot\\", "%SystemRoot%\\", "System32\\"};

}  // namespace

std::string PlaceOf(long id, const RestoredPlaces &places) {
  const auto *place = std::find_if(std::begin(kPlaces), std::end(kPlaces), [id](const Place &p) { return p.id == id; });
  if (place == std::end(kPlaces) || (places.*place->base).empty()) return {};
  return JoinNames(places.*place->base, place->below);
}

bool ResolveTarget(const InfSource &inf, const FileLine &file, const RestoredPlaces &places, std::string *path,
                   std::string *reason) {
  if (!PlainName(file.target)) {
    *reason = "\"" + file.target + "\" is not the name of one file";
    return false;
  }
  long id = file.serves ? kDrivers : kSystem;
  std::string folder;
  FoundLine line;
  if (FindDestination(inf, file, &line)) {
    const std::string text = TextOf(line, 1), below = TextOf(line, 2);
    if (!ParseId(text, &id)) {
      *reason = "\"" + text + "\" is not the number of a directory";
      return false;
    }
    if (!PlainFolder(below, &folder)) {
      *reason = "\"" + below + "\" is not a folder below directory " + text;
      return false;
    }
  }
  const std::string place = PlaceOf(id, places);
  if (place.empty()) {
    *reason = "directory " + std::to_string(id) + " is not among the restored system's own";
    return false;
  }
  *path = JoinNames(JoinNames(place, folder), file.target);
  return true;
}

bool GoesToStore(const InfSource &inf, const FileLine &file) {
  FoundLine line;
  long id = 0;
  return FindDestination(inf, file, &line) && ParseId(TextOf(line, 1), &id) && id == kStore;
}

bool BinaryName(const std::string &binary, std::string *name) {
  for (const std::string_view place : kBinaryPlaces) {
    if (!machine::SameName(std::string_view(binary).substr(0, place.size()), place)) continue;
    name->clear();
    std::string folder;
    const std::string below = binary.substr(place.size());
    return below.find('/') == below.npos && PlainFolder(below, &folder, name) && !name->empty() &&
           below.ends_with(*name);
  }
  return false;
}

bool IsDriver(const ServiceLines &service) { return (service.type.value_or(kUsualType) & kDriverTypes) != 0; }

bool DriverName(const ServiceLines &service, std::string *name) {
  return IsDriver(service) && BinaryName(service.binary, name);
}

}  // namespace package
