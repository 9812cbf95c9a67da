// What a host that watches the run hears of its decisions (vxrcore/events.h), beside the log.
#pragma once

#include <cstring>

#include "platform/platform.h"
#include "vxrcore/events.h"

// The INF file that was tried last is refused, for a reason (VXRMACHINE_REFUSED_...) whose matter `detail` names.
inline void ReportRefusal(DWORD reason, const char *detail = nullptr) {
  platform::ReportDecision(VXRMACHINE_INF_REFUSED, nullptr, detail, reason);
}

// An event for each text of a multi-string; none for null.
inline void ReportTexts(DWORD kind, const char *texts) {
  for (; texts != nullptr && *texts != '\0'; texts += std::strlen(texts) + 1) platform::ReportDecision(kind, texts);
}
