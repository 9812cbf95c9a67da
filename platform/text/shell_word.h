// Words of commands that are shown to be pasted into a shell.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace machine {

// A path as one word of a POSIX shell that is no option; as it is when nothing in it means anything to one. What a
// terminal is not shown, a line break for one, is left to printf; shells drop such breaks at the end of a word.
inline std::string ShellWord(std::string_view text) {
  constexpr std::string_view kPlain = "/.-_+,:@%=";
  if (text.starts_with('-')) return ShellWord("./" + std::string(text));
  bool plain = !text.empty() && text.front() != '=', steers = false;
  unsigned char last = 0;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || byte >= 0x80;
    plain = plain && (letter || kPlain.find(c) != kPlain.npos);
    steers = steers || byte < 0x20 || byte == 0x7F || (last == 0xC2 && byte >= 0x80 && byte < 0xA0);
    last = byte;
  }
  if (plain && !steers) return std::string(text);
  std::string word = steers ? "\"$(printf '" : "'";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\'') {
      word += "'\\''";
    } else if (steers && (c == '%' || c == '\\')) {
      word += std::string(2, c);
    } else if (steers && (byte < 0x20 || byte >= 0x7F)) {
      char octal[8];
      std::snprintf(octal, sizeof octal, "\\%03o", byte);
      word += octal;
    } else {
      word += c;
    }
  }
  return word + (steers ? "')\"" : "'");
}

}  // namespace machine
