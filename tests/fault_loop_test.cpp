// Every platform call of a restore run made to fail in turn, once and from then on, until a run meets no fault:
// whatever fails, nothing crashes or leaks, nothing stays open, the log stays balanced, and the restored system is as
// it was or complete, file by file.

#include <map>
#include <set>

#include "platform/machine/fault.h"
#include "platform/machine/handles.h"
#include "platform/machine/registry.h"
#include "tests/support/restore_job.h"

namespace {

namespace fs = std::filesystem;

// The loop is dealt out in shares, so that test runners can work on them side by side.
constexpr unsigned kShares = 4;

struct Loop {
  bool inject, onwards;
  unsigned share;
};

class FaultLoop : public RestoreJobTest, public testing::WithParamInterface<Loop> {
 protected:
  void ResetRestoredSystem();
  void ExpectBalancedLog() const;
  void ExpectFilesOldOrNew() const;

  std::string pristine = RestoredTree();
  std::string hive = ReadFile(kHivePath);
};

void FaultLoop::ResetRestoredSystem() {
  fs::remove_all(folder / "restored/Windows");
  WriteFile(kHivePath, hive);
  WriteFile("restored/Windows/system32/drivers/FAST.SYS", "the old driver");
}

void FaultLoop::ExpectBalancedLog() const {
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

void FaultLoop::ExpectFilesOldOrNew() const {
  for (const auto &entry : fs::recursive_directory_iterator(folder / "restored")) {
    if (entry.is_directory()) continue;
    const std::string name = entry.path().filename().string();
    const std::string content = ReadFile(fs::relative(entry.path(), folder).string());
    if (name == "FAST.SYS") {
      EXPECT_TRUE(content == "the old driver" || content == ReadFile("ram/drivers/fast.sys")) << "torn: " << content;
    } else if (name == "FASTUI.DLL") {
      EXPECT_EQ(content, "a library");
    } else {
      EXPECT_EQ(name, "SYSTEM") << "a stray file was left";
    }
  }
}

TEST_P(FaultLoop, NoFailureCrashesLeaksOrLosesData) {
  const auto [inject, onwards, share] = GetParam();
  for (unsigned n = 1 + share; !HasFailure(); n += kShares) {
    SCOPED_TRACE(testing::Message() << "fault at platform call " << n);
    ResetRestoredSystem();
    OpenJob();
    log.clear();
    machine::SetFaultPlan({"*", n, onwards, 0});
    const uint32_t result = Run(inject);
    const unsigned met = machine::FaultsMet();
    machine::SetFaultPlan({});
    VXRDbg_Cleanup();
    EXPECT_EQ(machine::OpenHandles(), 0u);
    EXPECT_EQ(machine::OpenKeys(), 0u);
    ExpectBalancedLog();
    Close();
    if (!inject) {
      EXPECT_EQ(RestoredTree(), pristine) << "a verification changed the restored system";
    }
    ExpectFilesOldOrNew();
    ExpectHiveWhole();
    if (met > 0) continue;
    EXPECT_EQ(result, 0u);
    RecordProperty("calls", static_cast<int>(n));
    return;
  }
}

std::vector<Loop> Loops() {
  std::vector<Loop> loops;
  for (const bool inject : {true, false})
    for (const bool onwards : {false, true})
      for (unsigned share = 0; share < kShares; ++share) loops.push_back({inject, onwards, share});
  return loops;
}

INSTANTIATE_TEST_SUITE_P(RestoreRun, FaultLoop, testing::ValuesIn(Loops()), [](const auto &test) {
  return std::string(test.param.inject ? "Injection" : "Verification") + (test.param.onwards ? "Onwards" : "Once") +
         std::to_string(test.param.share);
});

}  // namespace
