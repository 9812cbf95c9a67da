// A walk over a section's values that stores no line.
#pragma once

#include "platform/inf/inf_records.h"

namespace machine {

// Gives `take` every value that is not empty, from field `first` (2 or more) on, of the section's lines with a key, in
// file order and with its tokens not replaced. Parses and stores nothing. False when `take` returned false, which ends
// the walk.
using TakeInfValue = bool (*)(void *context, std::string_view value);
bool WalkValues(const InfFile &file, std::uint32_t index, std::uint32_t first, TakeInfValue take, void *context);

}  // namespace machine
