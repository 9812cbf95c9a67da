#include "tests/support/fault_loop.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

#include "platform/machine/base/fault.h"
#include "platform/machine/base/handles.h"
#include "platform/machine/registry/registry.h"
#include "vxrcore/vxrcore.h"

namespace {

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

}  // namespace

std::vector<FaultLoop> AllFaultLoops() {
  std::vector<FaultLoop> loops;
  for (const bool onwards : {false, true})
    for (unsigned share = 0; share < kFaultShares; ++share) loops.push_back({onwards, share});
  return loops;
}

unsigned RunFaultLoop(const FaultLoop &loop, std::string *log, const FaultPass &pass) {
  for (unsigned n = 1 + loop.share;; n += kFaultShares) {
    SCOPED_TRACE(testing::Message() << "fault at platform call " << loop.call << " " << n);
    pass.prepare();
    log->clear();
    machine::SetFaultPlan({loop.call, n, loop.onwards, 0});
    pass.attempt();
    const bool faulted = machine::FaultsMet() > 0;
    machine::SetFaultPlan({});
    VXRDbg_Cleanup();
    EXPECT_EQ(machine::OpenHandles(), 0u);
    EXPECT_EQ(machine::OpenKeys(), 0u);
    ExpectBalancedLog(*log);
    pass.check(faulted);
    if (!faulted || testing::Test::HasFailure()) return n;
  }
}
