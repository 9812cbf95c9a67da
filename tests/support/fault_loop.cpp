#include "tests/support/fault_loop.h"

#include <execinfo.h>
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <map>
#include <set>

#include "platform/machine/base/fault.h"
#include "platform/machine/base/handles.h"
#include "platform/machine/registry/registry.h"
#include "vxrcore/vxrcore.h"

namespace {

constexpr bool kSanitized = VXR_SANITIZED;

void ExpectBalancedLog(const std::string &log) {
  // These say goodbye twice.
  const std::set<std::string> twice = {"VXREng_GetStringAs", "VXREng_ExecCommand"};
  std::map<std::string, int> depth;
  // A status line may lack its line end, so that a call's line begins behind it.
  for (std::size_t at = log.find("FLUSH:"); at != std::string::npos; at = log.find("FLUSH:", at + 1)) {
    const std::string line = log.substr(at + 6, log.find('\n', at) - at - 6);
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    const std::string name = line.substr(0, colon), text = line.substr(colon);
    if (text == ":___ENTER___") depth[name] += twice.count(name) ? 2 : 1;
    if (text == ":___LEAVE___") depth[name] -= 1;
  }
  for (const auto &[name, count] : depth) EXPECT_EQ(count, 0) << name << " was entered and not left, or the reverse";
}

// Where each platform call of a pass is made from: with sanitizers, the return addresses in four callers. Those in the
// interceptor of backtrace, in NotePlace, in FaultPoint and in the call itself come before them.
using Place = std::array<void *, 8>;
std::vector<Place> places;

void NotePlace() {
  Place place = {};
  if (kSanitized) backtrace(place.data(), static_cast<int>(place.size()));
  places.push_back(place);
}

// By their numbers. What sanitizers look for lies in the code that handles a failure, so one from each place will do.
std::vector<unsigned> CallsToFail() {
  std::vector<unsigned> numbers;
  std::set<Place> seen;
  unsigned number = 0;
  for (const Place &place : places) {
    ++number;
    if (!kSanitized || seen.insert(place).second) numbers.push_back(number);
  }
  return numbers;
}

// Returns how many calls failed.
unsigned RunPass(const machine::FaultPlan &plan, std::string *log, const FaultPass &pass) {
  pass.prepare();
  log->clear();
  machine::SetFaultPlan(plan);
  pass.attempt();
  const unsigned met = machine::FaultsMet();
  machine::SetFaultPlan({});
  VXRDbg_Cleanup();
  EXPECT_EQ(machine::OpenHandles(), 0u);
  EXPECT_EQ(machine::OpenKeys(), 0u);
  ExpectBalancedLog(*log);
  pass.check(met > 0);
  return met;
}

}  // namespace

std::vector<FaultLoop> AllFaultLoops() {
  std::vector<FaultLoop> loops;
  for (const bool onwards : {false, true})
    for (unsigned share = 0; share < kFaultShares; ++share) loops.push_back({onwards, share});
  return loops;
}

unsigned RunFaultLoop(const FaultLoop &loop, std::string *log, const FaultPass &pass) {
  const auto countCalls = [&] {
    places.clear();
    EXPECT_EQ(RunPass({loop.call, UINT_MAX, false, 0, NotePlace}, log, pass), 0u);
    return static_cast<unsigned>(places.size());
  };
  const unsigned calls = countCalls();
  const std::vector<unsigned> numbers = CallsToFail();
  for (std::size_t i = loop.share; i < numbers.size() && !testing::Test::HasFailure(); i += kFaultShares) {
    SCOPED_TRACE(testing::Message() << "fault at platform call " << loop.call << " " << numbers[i]);
    EXPECT_NE(RunPass({loop.call, numbers[i], loop.onwards}, log, pass), 0u) << "the job makes fewer calls than it did";
  }
  EXPECT_EQ(countCalls(), calls) << "failures of one run change what the next one does";
  return calls;
}
