// Numbers as files of Windows hold them: lowest byte first, at any address.
#pragma once

#include <cstdint>
#include <cstring>

namespace machine {

inline std::uint32_t ReadLe16(const void *at) {
  const auto *bytes = static_cast<const std::uint8_t *>(at);
  return bytes[0] | std::uint32_t{bytes[1]} << 8;
}

inline std::uint32_t ReadLe32(const void *at) {
  return ReadLe16(at) | ReadLe16(static_cast<const std::uint8_t *>(at) + 2) << 16;
}

inline std::uint64_t ReadLe64(const void *at) {
  return ReadLe32(at) | std::uint64_t{ReadLe32(static_cast<const std::uint8_t *>(at) + 4)} << 32;
}

inline void WriteLe32(void *at, std::uint32_t number) {
  const std::uint8_t bytes[] = {static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(number >> 8),
                                static_cast<std::uint8_t>(number >> 16), static_cast<std::uint8_t>(number >> 24)};
  std::memcpy(at, bytes, sizeof bytes);
}

inline void WriteLe64(void *at, std::uint64_t number) {
  WriteLe32(at, static_cast<std::uint32_t>(number));
  WriteLe32(static_cast<std::uint8_t *>(at) + 4, static_cast<std::uint32_t>(number >> 32));
}

}  // namespace machine
