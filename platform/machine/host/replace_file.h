// Putting a new file in a place at once: it is written beside, flushed, and then takes the place, so that whatever
// fails, or whenever the machine stops, an old file or the new one is whole under the name.
//
// A failure is always one of the host's calls; what is not in place then vanishes with its record.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "platform/machine/base/descriptor.h"
#include "platform/machine/base/status.h"

namespace machine {

// The new file: without a name where the file system can do that, so that not even a power failure leaves it behind.
// The name that it has otherwise, or for a moment, comes from the target's, so that the next run finds what one that
// was stopped left there; its lock says that it is at work.
struct NewFile {
  int directory = -1;  // not owned; may be an O_PATH descriptor
  std::string target;  // the name of the place
  Descriptor file;     // open for reading and writing
  std::string name;    // the name that it has on the way; empty while it has none
  bool inPlace = false;

  NewFile(int where, std::string place) : directory(where), target(std::move(place)) {}
  NewFile(const NewFile &) = delete;
  NewFile &operator=(const NewFile &) = delete;
  ~NewFile();
  std::string HostName() const { return "/proc/self/fd/" + std::to_string(file.fd); }
};

// Removes the unfinished new file that a run which was stopped left beside the target, if there is one. Fails when it
// cannot be removed; with EBUSY when it is no left-over but that of a run still at work.
Status ClearLeftOver(int directory, const std::string &target);

// Makes the new file, empty, in its directory, after clearing what a stopped run left there. `exists`: it will replace
// an old file, so nobody but its owner may read it before TakeOver gives it the old one's mode. EBUSY when another run
// is making a file for the same target.
Status OpenNewFile(NewFile *created, bool exists);

// Whether this process may make files in the directory.
Status MayWriteTo(int directory);

Status WriteAll(int file, const char *bytes, std::size_t size);

// Gives the written file what the old one has besides its contents: access time, owner, mode and extended attributes,
// also those of NTFS. Fails when owner or mode cannot be the same, since others might then read or change it, or for
// want of room. Attributes that the file system or the system's rules refuse are passed over.
Status TakeOver(const NewFile &created);
// The same from any open file, which may be an O_PATH descriptor.
Status TakeOver(int from, int to);

// Flushes the file, puts it in place and flushes the directory; `exists` says whether there is an old one to replace.
// The failure says for people which step it was. Only when the last step fails is the new file `inPlace` after a
// failure: whole, but not surely on the disk. That a file system cannot flush directories is no failure.
Status PutInPlace(NewFile *created, bool exists);

// Has the disk know the names in the directory; succeeds also where the file system cannot do that.
Status FlushDirectory(int directory);

}  // namespace machine
