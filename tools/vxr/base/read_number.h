// Numbers in the commands' arguments.
#pragma once

#include <charconv>
#include <cstdint>
#include <string_view>

// Decimal, or hexadecimal behind 0x. False, with any number stored, when the text is not wholly one of 32 bits.
inline bool ReadNumber(std::string_view text, std::uint32_t *number) {
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (hexadecimal) text.remove_prefix(2);
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), *number, hexadecimal ? 16 : 10);
  return failure == std::errc() && end == text.data() + text.size();
}
