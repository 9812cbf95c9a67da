// Command lines as Windows programs take them apart.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace machine {

// The program and its arguments. Blanks separate; quotes keep them together. In the program's name a backslash is
// always itself; in an argument 2n backslashes before a quote are n backslashes and the quote counts, 2n+1 are n and a
// quote that is text; "" inside quotes is one quote. `text` is in the ANSI code page, and so are the parts.
std::vector<std::string> SplitCommandLine(std::string_view text);

// The same as the command interpreter has it: no backslash stands for anything but itself. Empty when it would not take
// the arguments as words: it joins files, begins switches, commands and groups, expands variables and wildcards.
std::vector<std::string> SplitInterpreterLine(std::string_view text);

}  // namespace machine
