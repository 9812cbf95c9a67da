// Putting a new file in a place at once: it is written beside, flushed, and then takes the place, so that whatever
// fails, or whenever the machine stops, an old file or the new one is whole under the name.
//
// A failing function sets errno; what is not in place then vanishes with its record.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "platform/machine/descriptor.h"

namespace machine {

// The new file: without a name where the file system can do that, so that not even a power failure leaves it behind.
struct NewFile {
  int directory = -1;    // not owned; may be an O_PATH descriptor
  std::string reserved;  // the name for it beside the old file, or empty for a fresh one
  Descriptor file;       // open for reading and writing
  std::string name;      // the name that it has; empty while it has none

  // A caller whose lock keeps others from a name may reserve it: then what a stopped run left under it is cleared.
  explicit NewFile(int where, std::string reservedName = "") : directory(where), reserved(std::move(reservedName)) {}
  NewFile(const NewFile &) = delete;
  NewFile &operator=(const NewFile &) = delete;
  ~NewFile();
  std::string HostName() const { return "/proc/self/fd/" + std::to_string(file.fd); }
};

// Makes the file in its directory. One that replaces another is its owner's alone until TakeOver; `exists` says so.
bool OpenNewFile(NewFile *created, bool exists);

bool WriteAll(int file, const char *bytes, std::size_t size);

// Gives the written file what the file `old` beside it has besides its contents: access time, owner, mode and extended
// attributes, also those of NTFS. False when owner or mode cannot be the same, since others might then read or change
// it, or for want of room. Attributes that the file system or the system's rules refuse are passed over.
bool TakeOver(const NewFile &created, const std::string &old);

// Flushes the file, puts it in place and flushes the directory; `exists` says whether a file of that name is there to
// be replaced. Null, or what failed, for people. Only when the last step fails is the new file in place after a
// failure: whole, but not surely on the disk. That a file system cannot flush directories is no failure.
const char *PutInPlace(NewFile *created, const std::string &name, bool exists);

}  // namespace machine
