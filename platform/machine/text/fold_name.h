// Names of files without regard to case.
#pragma once

#include <string>
#include <string_view>

namespace machine {

inline char UpperAscii(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c; }

// What two names that differ in case alone have in common, by the machine's code page. `name` is UTF-8; what the code
// page lacks becomes "?", which no name looked up can hold.
std::string FoldName(std::string_view name);

}  // namespace machine
