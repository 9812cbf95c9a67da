// Every platform call of a restore run made to fail in turn, once and from then on, until a run meets no fault:
// whatever fails, nothing crashes or leaks, nothing stays open, the log stays balanced, and the restored system is as
// it was or complete, file by file.

#include "tests/support/fault_loop.h"

#include "tests/support/restore_job.h"

namespace {

namespace fs = std::filesystem;

enum class Mode { kInjection, kVerification, kRehearsal };
constexpr const char *kModeNames[] = {"Injection", "Verification", "Rehearsal"};

struct RunLoop {
  Mode mode;
  FaultLoop faults;
};

class RunFaultLoopTest : public RestoreJobTest, public testing::WithParamInterface<RunLoop> {
 protected:
  void ResetRestoredSystem();
  void ExpectFilesOldOrNew() const;

  std::string pristine = RestoredTree();
  std::string hive = ReadFile(kHivePath);
};

void RunFaultLoopTest::ResetRestoredSystem() {
  fs::remove_all(folder / "restored/Windows");
  WriteFile(kHivePath, hive);
  WriteFile("restored/Windows/system32/drivers/FAST.SYS", "the old driver");
}

void RunFaultLoopTest::ExpectFilesOldOrNew() const {
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

TEST_P(RunFaultLoopTest, NoFailureCrashesLeaksOrLosesData) {
  const Mode mode = GetParam().mode;
  uint32_t result = 0;
  const auto prepare = [&] {
    ResetRestoredSystem();
    OpenJob();
    if (mode == Mode::kRehearsal) {
      ASSERT_TRUE(VXRMachine_Rehearse(1));
    }
  };
  const auto check = [&](bool faulted) {
    Close();
    if (mode != Mode::kInjection) {
      EXPECT_EQ(RestoredTree(), pristine) << "the restored system was changed";
    }
    ExpectFilesOldOrNew();
    ExpectHiveWhole();
    if (!faulted) {
      EXPECT_EQ(result, 0u);
    }
  };
  const auto attempt = [&] { result = Run(mode != Mode::kVerification); };
  const unsigned calls = RunFaultLoop(GetParam().faults, &log, {prepare, attempt, check});
  RecordProperty("calls", static_cast<int>(calls));
}

std::vector<RunLoop> Loops() {
  std::vector<RunLoop> loops;
  for (const Mode mode : {Mode::kInjection, Mode::kVerification, Mode::kRehearsal})
    for (const FaultLoop &faults : AllFaultLoops()) loops.push_back({mode, faults});
  return loops;
}

INSTANTIATE_TEST_SUITE_P(RestoreRun, RunFaultLoopTest, testing::ValuesIn(Loops()), [](const auto &test) {
  const FaultLoop &faults = test.param.faults;
  return std::string(kModeNames[static_cast<int>(test.param.mode)]) + (faults.onwards ? "Onwards" : "Once") +
         std::to_string(faults.share);
});

}  // namespace
