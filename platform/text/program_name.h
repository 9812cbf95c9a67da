// The program's name at the front of a command line, as Windows' C runtime takes it. The same on every build.
#pragma once

#include <cstddef>
#include <string_view>

namespace platform {

// Quotes open and close anywhere in the name and are left out, a backslash is always itself, and the first blank or tab
// outside quotes ends it: a command line that begins with one has an empty name. Stores the name, cut to `size` bytes
// with its terminator, and returns how many bytes of the command line it takes.
std::size_t TakeProgramName(std::string_view commandLine, char *name, std::size_t size);

}  // namespace platform
