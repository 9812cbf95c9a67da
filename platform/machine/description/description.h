// Reads the TOML file that describes a machine.
#pragma once

#include <filesystem>
#include <string_view>

#include "platform/machine/base/status.h"
#include "platform/machine/description/records.h"

namespace machine {

// Reads and checks a machine file. The text of a failure is one line for people (file, line, key).
Status ReadDescription(const std::filesystem::path &file, Description *description);
// The same from a text, whose paths are relative to `directory` (empty: the current one).
Status ReadDescriptionText(std::string_view text, const std::filesystem::path &directory, Description *description);

}  // namespace machine
