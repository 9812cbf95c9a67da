// Names in the directories of a restored volume, found as Windows finds them: without regard to case. No link is
// followed, since one could lead to the running system's own files.
#pragma once

#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

namespace rescue {

// The file or directory that the names (UTF-8) lead to, spelled as on disk; of names that differ in case alone the
// first in byte order. Empty when there is none, it cannot be reached, or a link stands on the way.
std::filesystem::path FindBelow(const std::filesystem::path &directory, std::initializer_list<const char *> names);

// The names in a directory, in byte order; none of one that cannot be read.
std::vector<std::string> ListNames(const std::filesystem::path &directory);

}  // namespace rescue
