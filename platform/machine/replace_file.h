// Putting a new file in a place at once: it is written beside, flushed, and then takes the place, so that whatever
// fails, or whenever the machine stops, an old file or the new one is whole under the name.
//
// A failing function says false with errno set; what is not in place then vanishes with its record.
#pragma once

#include <cstddef>
#include <string>

#include "platform/machine/descriptor.h"

namespace machine {

// The new file: without a name where the file system can do that, so that not even a power failure leaves it behind.
struct NewFile {
  int directory = -1;  // not owned; may be an O_PATH descriptor
  Descriptor file;     // open for writing
  std::string name;    // empty while it has none

  explicit NewFile(int where) : directory(where) {}
  NewFile(const NewFile &) = delete;
  NewFile &operator=(const NewFile &) = delete;
  ~NewFile();
  std::string HostName() const { return "/proc/self/fd/" + std::to_string(file.fd); }
};

// Makes the file in its directory, with the permissions that any new file has.
bool OpenNewFile(NewFile *created);

bool WriteAll(int file, const char *bytes, std::size_t size);

// Flushes the file and puts it in place; `exists` says whether a file of that name is there to be replaced.
bool PutInPlace(NewFile *created, const std::string &name, bool exists);

// Puts what happened to the directory on the disk. True also where the file system cannot flush a directory.
bool FlushDirectory(int directory);

}  // namespace machine
