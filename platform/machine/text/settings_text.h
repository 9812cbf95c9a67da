// The text of a settings file: [section] and key=value lines, in the ANSI code page, or in UTF-8 or UTF-16LE when it
// begins with their byte order mark. Section, key and value are in the ANSI code page here, whatever the file is in.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace machine {

// The value of a key in the first section of that name, without regard to case, without the blanks around it and one
// pair of quotes.
std::optional<std::string> FindSetting(std::string_view file, std::string_view section, std::string_view key);

// Whether WithSetting may write it: FindSetting then reads back the value, without the blanks and quotes around it.
// False when a part holds the end of a line, or a name what the file's syntax would read as something else: "]" in a
// section, "=" in a key, "[" or ";" where a key begins, blanks around either, no key at all.
bool CanHoldSetting(std::string_view section, std::string_view key, std::string_view value);

// Whether settings can be added to the file: not when its byte order mark is that of UTF-16BE, which nothing here
// reads.
bool CanChangeSettings(std::string_view file);

// The file with that value: in the place of the old one, or on a new line at the end of its section, or in a new
// section at the end of the file. All else stays as it is, byte for byte. New lines end in CRLF, in LF where the file
// has nothing else. For what CanHoldSetting and CanChangeSettings allow.
std::string WithSetting(std::string_view file, std::string_view section, std::string_view key, std::string_view value);

}  // namespace machine
