// Names that a hostile INF file gives, before they become part of a path.
#pragma once

#include <string>
#include <vector>

namespace package {

// Whether a name from an INF file is one component that Windows allows: no separator, colon, wildcard, control
// character, device name, blank or dot at its end, and not empty.
bool PlainName(const std::string &name);

// A folder below another one, such as "\x64\win10" or ".\i386": `*plain` gets it with single backslashes between its
// names and none at its ends, empty for the folder itself; `*last` the last of the names. False when one of its names
// is not plain, as ".." is.
bool PlainFolder(const std::string &folder, std::string *plain, std::string *last = nullptr);

// Whether a list has the name, without regard to case.
bool Lists(const std::vector<std::string> &names, const std::string &name);

// Both with a backslash between them; what is empty is left out with it.
std::string JoinNames(const std::string &folder, const std::string &name);

}  // namespace package
