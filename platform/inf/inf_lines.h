// The line grammar of INF files.
#pragma once

#include "platform/inf/inf_records.h"

namespace machine {

// Appends the lines of a section body to `section`. A field left open ends where the body does.
void ParseLines(std::string_view body, const InfSettings &settings, InfSection *section);

// Whether the line, given without its end, ends in a continuation.
bool EndsInContinuation(std::string_view line, const InfSettings &settings);

// The length of the longest beginning of at most `limit` bytes that splits no two-byte character.
std::size_t WholeCharacters(std::string_view text, std::size_t limit, const InfSettings &settings);

}  // namespace machine
