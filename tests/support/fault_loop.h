// Every platform call of a job made to fail in turn, once or from then on; with sanitizers, under which a pass takes
// ten times as long, the first from each place that one is called from.
#pragma once

#include <functional>
#include <string>
#include <vector>

// A loop is dealt out in shares, so that test runners can work on them side by side.
inline constexpr unsigned kFaultShares = 4;

struct FaultLoop {
  bool onwards;
  unsigned share;
  const char *call = "*";  // the platform call that fails; any
};

std::vector<FaultLoop> AllFaultLoops();

// One pass. The machine is open from the end of `prepare` until `check` closes it.
struct FaultPass {
  std::function<void()> prepare;
  std::function<void()> attempt;            // with the fault; in the first and the last pass without one
  std::function<void(bool faulted)> check;  // after the fault is gone and the log has ended
};

// Runs a pass without a fault, those of a share, and one without a fault again. After each attempt nothing must be left
// open, and in `log`, all that was written at level 5 since `prepare`, every function must be left as often as it is
// entered. Returns how many platform calls the job makes.
unsigned RunFaultLoop(const FaultLoop &loop, std::string *log, const FaultPass &pass);
