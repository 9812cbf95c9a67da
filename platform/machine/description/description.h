// Reads the TOML file that describes a machine.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "platform/machine/description/records.h"

namespace machine {

// Reads and checks a machine file. False with one line for people (file, line, key) in `*error`.
bool ReadDescription(const std::filesystem::path &file, Description *description, std::string *error);
// The same from a text, whose paths are relative to `directory` (empty: the current one).
bool ReadDescriptionText(std::string_view text, const std::filesystem::path &directory, Description *description,
                         std::string *error);

}  // namespace machine
