// Characters in UTF-8 and UTF-16, one at a time.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace machine {

inline constexpr char16_t kUndefined = 0xFFFF;  // no character has this number

// Takes the next character off a UTF-8 text that is not empty; kUndefined for a byte that is not well-formed UTF-8.
inline char32_t TakeUtf8(std::string_view *text) {
  const auto first = static_cast<unsigned char>((*text)[0]);
  const std::size_t more = first < 0x80 ? 0 : first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
  char32_t character = more == 0 ? first : first & (0x3F >> more);
  bool good = first < 0x80 || (first >= 0xC2 && first < 0xF5);
  for (std::size_t i = 1; good && i <= more; i++) {
    const auto byte = static_cast<unsigned char>(i < text->size() ? (*text)[i] : '\0');
    good = (byte & 0xC0) == 0x80;
    character = character << 6 | (byte & 0x3F);
  }
  constexpr char32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
  good = good && character >= kSmallest[more] && character <= 0x10FFFF && (character & ~0x7FFu) != 0xD800;
  text->remove_prefix(good ? more + 1 : 1);
  return good ? character : kUndefined;
}

inline void AppendUtf8(char32_t character, std::string *text) {
  if (character < 0x80) {
    *text += static_cast<char>(character);
    return;
  }
  const int more = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
  *text += static_cast<char>((0xFF00 >> (more + 1) & 0xFF) | character >> (6 * more));
  for (int i = more - 1; i >= 0; i--) *text += static_cast<char>(0x80 | (character >> (6 * i) & 0x3F));
}

// Takes the next character off a UTF-16 text that is not empty; kUndefined for half a pair.
inline char32_t TakeUtf16(std::u16string_view *text) {
  const char16_t first = (*text)[0];
  const char16_t second = text->size() > 1 ? (*text)[1] : u'\0';
  const bool pair = (first & 0xFC00) == 0xD800 && (second & 0xFC00) == 0xDC00;
  text->remove_prefix(pair ? 2 : 1);
  if (pair) return 0x10000 + ((first & 0x3FF) << 10 | (second & 0x3FF));
  return (first & 0xF800) == 0xD800 ? kUndefined : first;
}

inline void AppendUtf16(char32_t character, std::u16string *text) {
  if (character >= 0x10000) {
    *text += static_cast<char16_t>(0xD7C0 + (character >> 10));
    character = 0xDC00 + (character & 0x3FF);
  }
  *text += static_cast<char16_t>(character);
}

}  // namespace machine
