// The owner of one file descriptor.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <utility>

namespace machine {

struct Descriptor {
  int fd = -1;

  Descriptor() = default;
  explicit Descriptor(int owned) : fd(owned) {}
  Descriptor(Descriptor &&other) noexcept : fd(std::exchange(other.fd, -1)) {}
  Descriptor &operator=(Descriptor &&other) noexcept {
    std::swap(fd, other.fd);
    return *this;
  }
  ~Descriptor() {
    if (fd >= 0) close(fd);
  }
  explicit operator bool() const { return fd >= 0; }
  int Release() { return std::exchange(fd, -1); }
};

// Whether both are of one file.
inline bool SameInode(const struct stat &a, const struct stat &b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Whether the name in the directory is still, or again, the open file's.
inline bool IsNamed(int file, int directory, const std::string &name) {
  struct stat opened, named;
  return fstat(file, &opened) == 0 && fstatat(directory, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
         SameInode(opened, named);
}

}  // namespace machine
