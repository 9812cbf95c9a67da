// A run's outcome for people and for programs.
#pragma once

#include "tools/vxr/run/run_command.h"
#include "tools/vxr/run/run_record.h"

struct RunOutcome {
  std::uint32_t code;  // the library's result
  int exitStatus;      // the program's
};

void PrintStatusLine(const StatusLine &line);
void PrintRunText(const RunOptions &options, const RunOutcome &outcome, const RunRecord &record);
void PrintRunJson(const RunOptions &options, const RunOutcome &outcome, const RunRecord &record);
