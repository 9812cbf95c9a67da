#include "rescue/disk_names.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

#include "platform/machine/base/descriptor.h"
#include "platform/machine/host/listing.h"

namespace rescue {

std::filesystem::path FindBelow(const std::filesystem::path &directory, std::initializer_list<const char *> names) {
  std::filesystem::path found = directory;
  machine::Descriptor place(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  for (const char *name : names) {
    const std::string spelled = place ? machine::FindNameNoCase(place.fd, name) : std::string();
    if (spelled.empty()) return {};
    found /= spelled;
    place = machine::Descriptor(openat(place.fd, spelled.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  }
  struct stat status;
  const bool there = place && fstat(place.fd, &status) == 0 && !S_ISLNK(status.st_mode);
  return there ? found : std::filesystem::path();
}

std::vector<std::string> ListNames(const std::filesystem::path &directory) {
  std::vector<std::string> names;
  const machine::Descriptor place(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  machine::DirectoryStream stream;
  if (!place || !machine::OpenDirectoryStream(place.fd, &stream)) return names;
  while (const dirent *entry = readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace rescue
