// The owner of one file descriptor.
#pragma once

#include <unistd.h>

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

}  // namespace machine
