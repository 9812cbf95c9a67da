// Conversions between ANSI code pages, UTF-8 and UTF-16. A character that the target lacks becomes '?'.
//
// A page is a table of the single bytes and, for the four East Asian pages, of the pairs that a lead byte begins. A
// byte that a one-byte page leaves undefined stands for the character of the same number, as Windows has it, so that
// such bytes come back as they went.
#pragma once

#include <string>
#include <string_view>

namespace machine {

inline constexpr unsigned kDefaultCodePage = 1252;

// Code page 0 stands for the open machine's, 1252 when none is open. An unknown page is read as 1252.
std::string Utf8ToAnsi(std::string_view text, unsigned codePage = 0);
std::string AnsiToUtf8(std::string_view text, unsigned codePage = 0);
std::u16string AnsiToUtf16(std::string_view text, unsigned codePage = 0);
std::string Utf16ToAnsi(std::u16string_view text, unsigned codePage = 0);
std::u16string Utf8ToUtf16(std::string_view text);
std::string Utf16ToUtf8(std::u16string_view text);
bool IsLeadByte(unsigned char byte, unsigned codePage = 0);
// The length of the longest beginning of at most `limit` bytes that splits no two-byte character; `isLead` says of a
// byte whether it begins one.
template <typename IsLead>
std::size_t WholeCharacters(std::string_view text, std::size_t limit, IsLead isLead) {
  if (text.size() <= limit) return text.size();
  std::size_t at = 0;
  while (at < limit) {
    const std::size_t next = at + (isLead(static_cast<unsigned char>(text[at])) ? 2 : 1);
    if (next > limit) break;
    at = next;
  }
  return at;
}
// Whether it can be a machine's code page: ASCII in its lower half, and characters of one byte or two.
bool KnownCodePage(unsigned codePage);

// Sets the open machine's code page, which must be a known one.
void SetCodePage(unsigned codePage);

// Comparison without regard to case by the machine's code page: <0, 0, >0.
int CompareNoCase(std::string_view a, std::string_view b);
std::string ToUpper(std::string_view text);

}  // namespace machine
