// The program's name at the front of a command line, as Windows' C runtime takes it. The same on every build.
#pragma once

#include <string>
#include <string_view>

namespace platform {

// Quotes open and close anywhere in the name and are left out, a backslash is always itself, and the first blank or tab
// outside quotes ends it: a command line that begins with one has an empty name. `*length`, when given, gets the bytes
// taken.
std::string TakeProgramName(std::string_view commandLine, std::size_t *length = nullptr);

}  // namespace platform
