// Bytes of hives and their logs, at file offsets. Every failure is a reason in one line for people, in the form that
// follows a file's name; empty without one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/machine/base/descriptor.h"

namespace machine {

// "what: reason", by errno.
std::string ErrnoReason(const std::string &what);

// Exactly `size` bytes.
std::string ReadAt(int file, std::uint64_t offset, void *buffer, std::size_t size);
std::string WriteAt(int file, std::uint64_t offset, const void *bytes, std::size_t size);

// Size of a regular file; of anything else a reason.
std::string RegularFileSize(int file, std::uint64_t *size);

// Writes the file's first `size` bytes to the beginning of `to`.
std::string CopyBytes(int file, std::uint64_t size, int to);

// An empty file in memory, open for reading and writing.
std::string MakeMemoryFile(Descriptor *file);

}  // namespace machine
