// Conversions between ANSI code pages, UTF-8 and UTF-16. A character that the target lacks becomes '?'.
#pragma once

#include <string>
#include <string_view>

namespace machine {

// Code page 0 stands for the open machine's, 1252 when none is open.
std::string Utf8ToAnsi(std::string_view text, unsigned codePage = 0);
std::string AnsiToUtf8(std::string_view text, unsigned codePage = 0);
std::u16string AnsiToUtf16(std::string_view text, unsigned codePage = 0);
std::string Utf16ToAnsi(std::u16string_view text, unsigned codePage = 0);
std::u16string Utf8ToUtf16(std::string_view text);
bool IsLeadByte(unsigned char byte, unsigned codePage = 0);
bool KnownCodePage(unsigned codePage);

// Comparison without regard to case by the machine's code page: <0, 0, >0.
int CompareNoCase(std::string_view a, std::string_view b);
std::string ToUpper(std::string_view text);

}  // namespace machine
