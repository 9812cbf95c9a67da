// Texts of TOML files, which hosts make for machines of their own.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace machine {

// A text as TOML has it: quotation marks, backslashes and control characters escaped.
inline std::string TomlString(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04X", byte);
      quoted += escape;
    } else {
      if (c == '"' || c == '\\') quoted += '\\';
      quoted += c;
    }
  }
  return quoted + "\"";
}

}  // namespace machine
