// The names under which INF files keep what is meant for the restored system.
#pragma once

#include "log/heap.h"

// The INF decorations of the restored system from the most specific to the most general, as a multi-string of ten
// texts: "ntamd64.6.1.0x1.0x100" … "nt". Null, after logging, when no extension is current, when its system is older
// than 5.0 or of another architecture than x86, ia64 and amd64, when its numbers are too large for a decoration of 35
// characters, or without memory.
HeapText VXRExt_GetTargetOS();
