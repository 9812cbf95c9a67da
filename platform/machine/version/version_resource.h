// The version resource of a portable executable: where it lies in the file. Nothing in the file is believed: every
// offset and size in it is checked against the file, and no more is read than the headers, the section table, three
// resource directories and the resource itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "platform/platform.h"

namespace machine {

// The longest version resource in bytes: its lengths are 16-bit numbers.
inline constexpr std::size_t kLongestVersionResource = 0xFFFF;

// The bytes of an executable. `read` fills a buffer from an offset; it is asked for nothing beyond `size`, and says
// false when it cannot.
struct ImageSource {
  std::uint64_t size = 0;
  std::function<bool(std::uint64_t offset, void *buffer, std::size_t size)> read;
};

enum class VersionResource {
  kFound,
  kNone,        // not a portable executable, or one without such a resource
  kDamaged,     // the headers or directories lead out of the file, or contradict each other
  kUnreadable,  // `read` said so
};

// Reads the resource of type 16, its first name, its first language, of PE32 and PE32+ images. Of a longer one only the
// first kLongestVersionResource bytes. Anything but kFound leaves `*resource` empty.
VersionResource ReadVersionResource(const ImageSource &image, std::vector<BYTE> *resource);

}  // namespace machine
