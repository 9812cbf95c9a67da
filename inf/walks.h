// The two walks that this folder makes: over the lines of an INF section, over the texts of a multi-string.
#pragma once

#include <cstring>

#include "inf/field_reader.h"

// Each line of a section:
//   for (BOOL more = FirstLine(hInf, section, &line); more; more = NextLine(&line))
// FALSE when the section is missing or has no line.
inline BOOL FirstLine(HINF hInf, const char *szSection, INFCONTEXT *line) {
  return platform::SetupFindFirstLineA(hInf, szSection, nullptr, line);
}

// FALSE after the section's last line.
inline BOOL NextLine(INFCONTEXT *line) { return platform::SetupFindNextLine(line, line); }

// A field of the line as a text; null when the line has no such field.
inline HeapText TextField(HINF hInf, INFCONTEXT *line, DWORD index) {
  return VXRDev_GetInfLineField(hInf, index, line, nullptr, VXRINF_TYPE_SZ);
}

// The same; null, too, when the field is empty, which a value omitted at a comma is.
inline HeapText FilledField(HINF hInf, INFCONTEXT *line, DWORD index) {
  HeapText field = TextField(hInf, line, index);
  if (field != nullptr && *field == '\0') field = nullptr;
  return field;
}

// The text behind `text` in its multi-string, the empty one at the end. A directory's list can hold thousands of names:
// going on from the last one keeps a walk linear, where asking by number would count from the start each time.
inline const char *NextText(const char *text) { return text + std::strlen(text) + 1; }
