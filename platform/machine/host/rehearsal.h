// A rehearsal: while it is on, nothing changes a file. What would be written is checked as far as that goes without
// writing, and remembered, so that later steps find it as they would have; its end forgets it all.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>

#include "platform/machine/base/status.h"
#include "platform/machine/host/host_place.h"
#include "platform/platform.h"

namespace machine {

bool Rehearsing();

// A new file of `size` bytes for that name in an open directory, which may be an O_PATH descriptor. Succeeds when it
// could be written and put in place; it then counts as being there, and its room on the file system as taken. A failure
// has a text and an errno value.
Status RehearseNewFile(int directory, const std::string &name, std::uint64_t size);

// Whether a new file was rehearsed for a place; stores its size.
bool WouldExist(const HostPlace &place, std::uint64_t *size);

// The same of a new directory. Places in it are then named from the directory on the host in which it would be:
// "new/file".
Status RehearseDirectory(int directory, const std::string &name);
bool WouldBeDirectory(int directory, const std::string &name);

// Bytes that files in an open directory can still take, less what the rehearsal took. Where the file system does not
// tell, more than any disk has.
Status RoomLeft(int directory, std::uint64_t *bytes);

// Attributes given to a file in the rehearsal. WouldHaveAttributes gives them, or the `real` ones of a file that got
// none. RehearseAttributes fails when this process may not change the file's.
Status RehearseAttributes(const struct stat &file, DWORD attributes);
DWORD WouldHaveAttributes(const struct stat &file, DWORD real);

// Begins, or ends and forgets it all. The parts with a state of their own have their own (registry, prompts).
void SetRehearsing(bool on);

}  // namespace machine
