// The sections of a file by their names, without regard to case.
#pragma once

#include "platform/inf/inf_records.h"

namespace machine {

// Enters one piece of a section, from `begin` to the file's end until another is entered behind it.
void AddBody(InfFile *file, InfSpan name, std::size_t begin);
// The number of the section of that name; kInfNone when there is none.
std::uint32_t FindSectionIndex(const InfFile &file, std::string_view name);
std::string_view SectionName(const InfFile &file, const InfSection &section);

}  // namespace machine
