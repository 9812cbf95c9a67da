// The fields of a section's lines.
#pragma once

#include "platform/inf/inf_records.h"

namespace machine {

// Whether the line has that field: 0 its key, 1 to valueCount its values.
bool HasField(const InfLine &line, std::uint32_t field);
// A field that the line has, as it stands in the file.
std::string_view RawField(const InfSection &section, const InfLine &line, std::uint32_t field);
// A field that the line has, its %tokens% replaced.
std::string FieldText(InfFile *file, const InfSection &section, const InfLine &line, std::uint32_t field);
// The number of the first line with that key from line `first` on; kInfNone when there is none. Keys are compared with
// their tokens replaced and without regard to case.
std::uint32_t FindKey(InfFile *file, const InfSection &section, std::string_view key, std::uint32_t first = 0);
// Field 1 of the first line with that key that has one. False when there is none.
bool FindValue(InfFile *file, const InfSection &section, std::string_view key, std::string *value);

}  // namespace machine
