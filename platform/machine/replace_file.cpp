#include "platform/machine/replace_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

namespace machine {
namespace {

// Gives `make` fresh names until it succeeds or fails for another reason than the name's being taken.
template <class Make>
bool WithFreshName(std::string *name, Make make) {
  static unsigned counter = 0;
  for (unsigned attempt = 0; attempt < 100; ++attempt) {
    std::array<char, 32> fresh;
    std::snprintf(fresh.data(), fresh.size(), ".vxr-%08x%04x", static_cast<unsigned>(getpid()), ++counter & 0xFFFF);
    if (make(fresh.data())) {
      *name = fresh.data();
      return true;
    }
    if (errno != EEXIST) return false;
  }
  return false;
}

}  // namespace

NewFile::~NewFile() {
  if (!name.empty()) unlinkat(directory, name.c_str(), 0);
}

bool OpenNewFile(NewFile *created) {
  created->file = Descriptor(openat(created->directory, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666));
  if (created->file) return true;
  return WithFreshName(&created->name, [created](const char *name) {
    created->file = Descriptor(openat(created->directory, name, O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666));
    return static_cast<bool>(created->file);
  });
}

bool WriteAll(int file, const char *bytes, std::size_t size) {
  while (size != 0) {
    const ssize_t written = write(file, bytes, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

bool PutInPlace(NewFile *created, const std::string &name, bool exists) {
  if (fsync(created->file.fd) != 0) return false;
  const std::string unnamed = created->HostName();
  const auto link = [&](const char *as) {
    return linkat(AT_FDCWD, unnamed.c_str(), created->directory, as, AT_SYMLINK_FOLLOW) == 0;
  };
  if (created->name.empty() && !exists) return link(name.c_str());
  if (created->name.empty() && !WithFreshName(&created->name, link)) return false;
  if (renameat(created->directory, created->name.c_str(), created->directory, name.c_str()) != 0) return false;
  created->name.clear();
  return true;
}

bool FlushDirectory(int directory) {
  const Descriptor opened(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return !opened || fsync(opened.fd) == 0 || errno == EINVAL || errno == EOPNOTSUPP;
}

}  // namespace machine
