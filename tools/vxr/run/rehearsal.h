// The command line's own look after a verification: an injection that is rehearsed on the same machine. The
// verification says whether drivers would be found; this, whether they could be put in.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/vxr/run/run_record.h"

// What an injection would fail at. All texts are UTF-8.
struct RehearsalProblem {
  std::string file;    // that it is about; empty: the run
  std::string text;    // what is wrong
  std::string advice;  // what to do, a sentence
};

struct Rehearsal {
  bool done = false;
  std::uint32_t code = 0;  // the library's result
  RunRecord record;        // what would happen
  std::vector<RehearsalProblem> problems;
};

// Whether an injection would not do all that it is to do. Without a boot disk it would do nothing.
inline bool WouldFail(const Rehearsal &rehearsal) {
  return !rehearsal.problems.empty() || !rehearsal.record.scanProblem.empty();
}

// Whether a run that ended with that code came as far as the restored system, so that a rehearsal can add to it.
bool WorthRehearsing(std::uint32_t code);

// Rehearses the job's injection on the open machine and takes what it finds of each file into the verification's own
// record. Ends the log, whose file stays as the verification left it, and leaves the machine without an observer. Not
// `done` on Windows, which has no rehearsals.
Rehearsal RehearseInjection(std::uint32_t job, RunRecord *verified);
