// The one function that copies files, for CopyFileA and for the command interpreter's copy.
//
// Every attempt tells the observer how it ended. Whoever calls CopyFileA may try the command interpreter after a
// failure; when that fails for the same reason, the observer is not told again, and when it succeeds, the copied event
// comes after the failure's. So the last event about a target always says how it stands, and no failure is told twice.
#pragma once

#include "platform/machine/base/status.h"

namespace machine {

enum class CopyCaller { kCall, kCommand };

// Copies contents, time of the last change and attributes (marked for the archive, as Windows does). The copy is
// written beside the target, flushed, and put in its place at once, so that on any failure an old target is whole, and
// nothing is left behind. An old target keeps the spelling of its name. Fails, beside as the paths do, with
// ERROR_FILE_NOT_FOUND no source; ERROR_FILE_EXISTS with `failIfExists`; ERROR_SHARING_VIOLATION both are one file;
// ERROR_DISK_FULL; ERROR_ACCESS_DENIED either is a directory, or the target is read-only, hidden, system or a symbolic
// link.
Status CopyWindowsFile(const char *source, const char *target, bool failIfExists, CopyCaller caller);

}  // namespace machine
