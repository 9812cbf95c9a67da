// Bytes of hives and their logs, at file offsets. Every failure has a text in the form that follows a file's name.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/machine/base/descriptor.h"
#include "platform/machine/base/status.h"

namespace machine {

// Exactly `size` bytes.
Status ReadAt(int file, std::uint64_t offset, void *buffer, std::size_t size);
Status WriteAt(int file, std::uint64_t offset, const void *bytes, std::size_t size);

// Size of a regular file; of anything else a refusal that says what it is.
Status RegularFileSize(int file, std::uint64_t *size);

// Writes the file's first `size` bytes to the beginning of `to`.
Status CopyBytes(int file, std::uint64_t size, int to);

// An empty file in memory, open for reading and writing.
Status MakeMemoryFile(Descriptor *file);

}  // namespace machine
