// What the commands share: text for terminals and for programs.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

enum class Style { kPlain, kDim, kBold, kGood, kBad };

// One line on standard output, in that style when standard output is a terminal that wants colour (NO_COLOR unset).
// Texts come from INF files and registries: a control character is shown as "?", so that it cannot steer the terminal.
void PrintLine(std::string_view text, Style style = Style::kPlain);

// An empty line, then the text in bold: the beginning of a part of a report.
void PrintTitle(const std::string &text);

// One line on standard error: "vxr: " and the message, line ends at its end dropped and control characters shown as
// "?".
void PrintError(std::string_view message);

// The messages of PrintError in their order, once; empty when there was none since. For the JSON document that tells
// them.
std::vector<std::string> TakeErrors();

// "1,234 bytes".
std::string Bytes(std::uint64_t size);

// "0x00FF0001".
std::string Hexadecimal(std::uint32_t number);

// "x64": a processor architecture by its usual name; by its number when it has none.
std::string ArchitectureText(std::uint32_t architecture);

// The text with a capital at its beginning and a full stop.
std::string Sentence(std::string text);

// The text with blanks behind it, `width` bytes at least.
std::string Padded(std::string text, std::size_t width);

// The name of a registry value type, such as REG_DWORD; its number when it has none.
std::string ValueTypeName(std::uint32_t type);

// A command that changes something says so before it begins: neither a reader that goes away nor a limit of file sizes
// ends it half-way, and how its work went decides the exit status.
void BeginWork();

// Flushes standard output. False, with a message once, when what was printed did not reach its place (a full disk).
bool FinishOutput();
// The same for a command that ends with `exitStatus`; the program's, when its output is lost: 1 in place of 0, unless
// work was done and no `document` was asked for.
int FinishCommand(int exitStatus, bool document);
