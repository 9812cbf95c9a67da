// What a file holds, in a number that no other contents have.
#pragma once

#include <cstdint>
#include <string>

#include "platform/machine/base/status.h"

namespace machine {

// SHA-256 of the file's first `size` bytes, as 64 lower-case hexadecimal digits.
Status FileDigest(int file, std::uint64_t size, std::string *digest);

}  // namespace machine
