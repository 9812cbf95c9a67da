// What other parts of the machine ask of the registry beside the Windows calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/machine/base/status.h"
#include "platform/machine/description/records.h"
#include "platform/platform.h"

namespace machine {

// A text value below HKEY_LOCAL_MACHINE in the ANSI code page, up to its terminator; false when there is none, when it
// is of another type, or when no machine is open. SYSTEM\CurrentControlSet is followed.
bool ReadRegistryText(const std::string &key, const char *value, std::string *text);

// Goes up whenever a value is written or a hive comes or goes, so that what was read before may be kept until then.
std::uint64_t RegistryChanges();

// What `reg.exe LOAD` and `UNLOAD` do: mount a hive file (a Windows path) at a key directly below HKEY_LOCAL_MACHINE
// such as SYSTEM_ORG, and save and unmount it. Return the tool's exit code, 0 or 1; a refusal's reason goes to the
// debugger output and to the observer.
//
// From LOAD to UNLOAD no other run can load the file, and it stays as it is on disk; what is set is kept in memory. At
// UNLOAD a hive in which something changed is written to a new file that takes the old one's place; one in which
// nothing changed is left alone. A hive that could not be saved, as one that answered a call with ERROR_BADDB or was
// discarded is not, is unmounted all the same, its changes are lost and the file is as it was. With a key below it
// still open it stays mounted.
int MountHive(const std::string &key, const char *windowsPath);
int UnmountHive(const std::string &key);

// Key handles that are open: a test compares the count before and after.
std::size_t OpenKeys();

// Called when the machine opens and when it closes. When opening fails, with one line for people, nothing is left open
// that had to be closed.
Status OpenRegistry(const Description &description);
bool CloseRegistry();  // saves changed hives of the running system; false when one could not be saved

// Whether the registry could begin a rehearsal: not with a hive mounted, whose changes would be lost with those of the
// rehearsal. The end drops hives that were mounted since, and takes back what was set in the running system's registry.
bool BeginRegistryRehearsal();
void EndRegistryRehearsal();

}  // namespace machine
