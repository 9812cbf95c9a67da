// Windows' file name patterns.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace machine {

// A pattern made ready for many names. "?" matches one character, and none before a dot or at the end; "*" any
// characters; "*.*" every name, with a dot or without; a pattern that ends in a dot only names without extension. Names
// of the old 8.3 form do not exist here, so "*.inf" does not match "a.inf_old" as it may on Windows.
struct NamePattern {
  // The other values than characters, as the Windows file systems know them.
  enum : char32_t {
    kAny = 0x110000,  // any characters
    kAnyToLastDot,    // any characters but the last dot
    kOne,             // one character, or none before a dot and at the end
    kDot              // a dot, or nothing at the end
  };
  std::vector<char32_t> items;
};

NamePattern MakePattern(std::string_view pattern);                       // UTF-8
bool MatchesPattern(const NamePattern &pattern, std::string_view name);  // UTF-8; case does not matter

}  // namespace machine
