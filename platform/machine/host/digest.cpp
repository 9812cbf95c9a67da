#include "platform/machine/host/digest.h"

#include <nettle/base16.h>
#include <nettle/sha2.h>

#include <algorithm>
#include <vector>

#include "platform/machine/host/file_bytes.h"

namespace machine {

Status FileDigest(int file, std::uint64_t size, std::string *digest) {
  sha256_ctx state;
  sha256_init(&state);
  std::vector<std::uint8_t> buffer(std::min<std::uint64_t>(size, 256 << 10));
  for (std::uint64_t at = 0; at < size;) {
    const std::size_t count = std::min<std::uint64_t>(buffer.size(), size - at);
    if (Status read = ReadAt(file, at, buffer.data(), count); !read) return read;
    sha256_update(&state, count, buffer.data());
    at += count;
  }
  std::uint8_t bytes[SHA256_DIGEST_SIZE];
  sha256_digest(&state, sizeof bytes, bytes);
  digest->resize(BASE16_ENCODE_LENGTH(sizeof bytes));
  base16_encode_update(digest->data(), sizeof bytes, bytes);
  return {};
}

}  // namespace machine
