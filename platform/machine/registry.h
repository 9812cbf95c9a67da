// What other parts of the machine ask of the registry beside the Windows calls.
#pragma once

#include <string>

#include "platform/platform.h"

namespace machine {

// A text value below HKEY_LOCAL_MACHINE in the ANSI code page; false when there is none.
bool ReadRegistryText(const std::string &key, const char *value, std::string *text);

// What `reg.exe LOAD` and `UNLOAD` do: mount a hive file (a Windows path) at a key below HKEY_LOCAL_MACHINE such as
// SYSTEM_ORG, and save and unmount it. Return the tool's exit code, 0 or 1; a refusal's reason goes to the debugger
// output and to the observer.
int MountHive(const std::string &key, const char *windowsPath);
int UnmountHive(const std::string &key);

}  // namespace machine
