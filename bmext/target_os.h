#pragma once

#include "log/heap.h"

// The INF decorations of the restored system from the most specific to the most general, as a multi-string, such as
// "ntamd64.6.1.0x1.0x100" … "nt". Null when no extension is current or its system is not supported.
HeapText VXRExt_GetTargetOS();
