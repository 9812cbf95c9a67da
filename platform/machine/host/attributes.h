// The DOS attributes of host files.
//
// An NTFS mount keeps them as Windows does, in the extended attribute system.ntfs_attrib_be. Elsewhere the read-only
// attribute of a file is the absence of every write permission, and the rest is kept in user.vxr.attributes, in the
// same form, when it differs from a file's usual attributes. Where the file system has no extended attributes the rest
// is not kept, which is no error.
#pragma once

#include <sys/stat.h>

#include <string>

#include "platform/machine/base/status.h"
#include "platform/platform.h"

namespace machine {

// Permissions to write; a file that has none of them is read-only.
inline constexpr mode_t kWriteBits = S_IWUSR | S_IWGRP | S_IWOTH;

// Attributes that keep a copy, or a new file of that name, from replacing a file.
inline constexpr DWORD kProtectingAttributes = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;

// The attributes of the file or directory at `hostName` (a path that is no symbolic link, such as PlaceName gives) with
// that status; FILE_ATTRIBUTE_NORMAL when none is set.
DWORD ReadAttributes(const std::string &hostName, const struct stat &status);

// Sets those attributes that can be set and clears the others.
Status WriteAttributes(const std::string &hostName, const struct stat &status, DWORD attributes);

}  // namespace machine
