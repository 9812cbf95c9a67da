// Carries a plan out, or tells what it would do.
#pragma once

#include <string>

#include "package/plan/plan.h"

namespace package {

enum class ApplyResult { kDone, kNotReady, kFileNotCopied, kHiveNotChanged };

// Tells a host that watches of every file, value and key of the plan (VXRMACHINE_PLAN_... of vxrcore/events.h); of its
// changes of the hive from number `firstEdit` on, where those before belong to other devices.
void ReportPlan(const Plan &plan, std::size_t firstEdit = 0);
// Tells of the plan's warnings and notes.
void ReportRemarks(const Plan &plan);

// Checks the whole plan (sources there, room for the files, nothing in a target's way, the hive mounted), then makes
// its directories, copies its files and changes the hive. A failure is logged and named in `*failed`; what was changed
// in the hive is then taken back, and files that were copied stay and are named in the log and to the host.
ApplyResult ApplyPlan(const Plan &plan, std::string *failed);

}  // namespace package
