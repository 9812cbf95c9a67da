// A run's outcome for people and for programs.
#pragma once

#include <nlohmann/json.hpp>

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

// What an injection would write and delete in the restored hive: as its rehearsal did, else as the plan says.
std::vector<ValueRecord> ValuesToWrite(const RunOutcome &outcome, const RunRecord &record);
std::vector<DeletedValue> ValuesToDelete(const RunOutcome &outcome, const RunRecord &record);

void PrintStatusLine(const StatusLine &line);
void PrintRunText(const RunOptions &options, const RunOutcome &outcome, const RunRecord &record);
// What a run did, without what it was asked; of one that was only `rehearsed`, what it would do.
nlohmann::ordered_json RunJson(const RunRecord &record, bool rehearsed);
void PrintRunJson(const RunOptions &options, const RunOutcome &outcome, const RunRecord &record);
