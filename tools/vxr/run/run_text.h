// A run's outcome for people and for programs.
#pragma once

#include "tools/vxr/run/rehearsal.h"
#include "tools/vxr/run/run_command.h"
#include "tools/vxr/run/run_record.h"

struct RunOutcome {
  std::uint32_t code;   // the library's result
  int exitStatus;       // the program's
  Rehearsal rehearsal;  // of a verification
};

// The code whose meaning the program's result has.
inline std::uint32_t MeaningCode(const RunOutcome &outcome) {
  return outcome.code == 0 ? static_cast<std::uint32_t>(outcome.exitStatus) : outcome.code;
}

void PrintStatusLine(const StatusLine &line);
void PrintRunText(const RunOptions &options, const RunOutcome &outcome, const RunRecord &record);
void PrintRunJson(const RunOptions &options, const RunOutcome &outcome, const RunRecord &record);
