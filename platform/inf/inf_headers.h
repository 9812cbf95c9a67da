// The one pass over a file's text that finds its section headers.
#pragma once

#include "platform/inf/inf_records.h"

namespace machine {

// Enters every section. False when the text is no INF text; `*refusal`, when given, then says why.
bool FindSections(InfFile *file, InfRefusal *refusal);
// What is said of a file larger than kInfSizeMax.
void RefuseSize(InfRefusal *refusal);
// For one in UTF-16 with the high byte first.
void RefuseHighByteFirst(InfRefusal *refusal);

}  // namespace machine
