// Bytes in memory that only reads can touch, up to a page that nothing can: a write, or a read past the end, ends the
// program.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class GuardedMemory {
 public:
  // `slack`: readable bytes behind the last one, such as 1 to have an even number of bytes at an odd address.
  explicit GuardedMemory(const std::vector<uint8_t> &bytes, size_t slack = 0);
  ~GuardedMemory();
  GuardedMemory(const GuardedMemory &) = delete;
  GuardedMemory &operator=(const GuardedMemory &) = delete;

  const uint8_t *data() const { return begin; }

 private:
  uint8_t *pages = nullptr;
  size_t length = 0;
  const uint8_t *begin = nullptr;
};
