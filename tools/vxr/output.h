// What the commands share: text for terminals and for programs.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

enum class Style { kPlain, kDim, kBold, kGood, kBad };

// The text in that style when standard output is a terminal that wants colour (NO_COLOR unset), else as it is.
std::string Styled(Style style, std::string_view text);

// One line on standard error: "vxr: " and the message, line ends in it turned into blanks.
void PrintError(std::string_view message);

// "1,234 bytes".
std::string Bytes(std::uint64_t size);

// The name of a registry value type, such as REG_DWORD; its number when it has none.
std::string ValueTypeName(std::uint32_t type);

// Flushes standard output. False, with a message, when what was printed did not reach its place (a full disk).
bool FinishOutput();
