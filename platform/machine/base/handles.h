// The handles that the described machine gives out for files, disks, volumes, mappings, searches and processes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <variant>

#include "platform/machine/base/descriptor.h"
#include "platform/platform.h"

namespace machine {

struct FileHandle {
  Descriptor file;
  bool readable = false, writable = false;  // by the access rights that it was opened with
  std::uint64_t position = 0;               // bytes, where the next transfer begins; at most 2^63 - 1
};
struct DiskHandle {
  DWORD number = 0;      // of the described disk
  FileHandle image;      // not open when the disk was opened without access rights
  DWORD sectorSize = 0;  // bytes
};
struct VolumeHandle {
  char letter = 0;  // of the described drive
};
struct MappingHandle {
  Descriptor file;         // its own, so that the file's handle may be closed first
  std::uint64_t size = 0;  // bytes
  bool writable = false;
};
struct Search;  // of a pattern (files/search.cpp)
struct SearchHandle {
  std::shared_ptr<Search> search;  // null when one name was searched for
};
struct ProcessHandle {
  DWORD exitCode = 0;
};
struct ThreadHandle {};

using HandleRecord =
    std::variant<FileHandle, DiskHandle, VolumeHandle, MappingHandle, SearchHandle, ProcessHandle, ThreadHandle>;

HANDLE AddHandle(HandleRecord record);
// Null when there is no such open handle. Valid until the handle is closed.
HandleRecord *FindHandle(HANDLE handle);
// False when there is no such open handle.
bool DropHandle(HANDLE handle);

// As FindHandle; a handle of another kind is an invalid one too.
template <class Record>
Record *FindHandleOf(HANDLE handle) {
  HandleRecord *record = FindHandle(handle);
  return record == nullptr ? nullptr : std::get_if<Record>(record);
}

// Open handles of every kind above and mapped views: a test compares the count before and after.
std::size_t OpenHandles();
std::size_t OpenViews();

}  // namespace machine
