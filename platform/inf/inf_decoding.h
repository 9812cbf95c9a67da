// A file's bytes as text in the ANSI code page.
#pragma once

#include "platform/inf/inf_records.h"

namespace machine {

InfBytes CopyInfBytes(std::string_view text);
// Sets the file's memory and text: up to the first end-of-file character, each NUL a blank.
void DecodeInf(InfBytes bytes, unsigned codePage, InfFile *file);

}  // namespace machine
