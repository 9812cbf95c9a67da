// The %tokens% of a file and what they stand for.
#pragma once

#include "platform/inf/inf_records.h"

namespace machine {

// Any text with its tokens replaced from the file's strings.
std::string ReplaceTokens(InfFile *file, std::string_view text);

}  // namespace machine
