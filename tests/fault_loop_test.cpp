// Every platform call of a restore run made to fail in turn, once and from then on: whatever fails, nothing crashes or
// leaks, nothing stays open, the log stays balanced, and the restored system is as it was or complete, file by file.

#include "tests/support/fault_loop.h"

#include <algorithm>
#include <iterator>

#include "tests/support/choice_job.h"
#include "tests/support/hive_reader.h"
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

std::string NameOf(const testing::TestParamInfo<RunLoop> &test) {
  const FaultLoop &faults = test.param.faults;
  return std::string(kModeNames[static_cast<int>(test.param.mode)]) + (faults.onwards ? "Onwards" : "Once") +
         (*faults.call == '*' ? "" : faults.call) + std::to_string(faults.share);
}

INSTANTIATE_TEST_SUITE_P(RestoreRun, RunFaultLoopTest, testing::ValuesIn(Loops()), NameOf);

// --- A driver chosen as Windows would choose it --------------------------------------------------------------------

const char *const kTwoDrivers[] = {"twraid.sys", "filter/twflt.sys"};

class ChoiceFaultLoopTest : public ChoiceJobTest, public testing::WithParamInterface<RunLoop> {
 protected:
  ChoiceFaultLoopTest();
  void ResetRestoredSystem();
  // How many of the drivers are there; each is whole.
  std::size_t Drivers() const;
  // A read that fails as if nothing were there makes another plan; that one is carried out whole.
  bool IsAsTold(const std::vector<std::string> &lines) const;
  bool WasTold(uint32_t kind) const;

  std::string pristine, hive;
  std::vector<std::string> oldLines, newLines;  // of the hive
};

// The pack is thinned to the package that is taken, for speed, and so that a fault leads to no other.
ChoiceFaultLoopTest::ChoiceFaultLoopTest() {
  for (const char *part :
       {"net", "enclosure", "hba", "tools", "raid/x86", "raid/legacy", "raid/w7", "raid/w11", "raid/beta"}) {
    fs::remove_all(Host("ram/drivers") / part);
  }
  pristine = RestoredTree();
  hive = ReadFile(kHivePath);
  oldLines = HiveLines(Host(kHivePath));
  OpenChoice("machine");
  EXPECT_EQ(Run(true), 0u);
  Close();
  newLines = HiveLines(Host(kHivePath));
  ResetRestoredSystem();
}

void ChoiceFaultLoopTest::ResetRestoredSystem() {
  WriteFile(kHivePath, hive);
  for (const fs::path driver : kTwoDrivers) fs::remove(Host("restored/Windows/System32/drivers") / driver.filename());
}

std::size_t ChoiceFaultLoopTest::Drivers() const {
  std::size_t count = 0;
  for (const fs::path driver : kTwoDrivers) {
    const std::string file = "restored/Windows/System32/drivers/" + driver.filename().string();
    if (!fs::exists(Host(file))) continue;
    EXPECT_EQ(ReadFile(file), ReadFile(("ram/drivers/raid/w10" / driver).string())) << "torn";
    ++count;
  }
  return count;
}

bool ChoiceFaultLoopTest::IsAsTold(const std::vector<std::string> &lines) const {
  std::vector<std::string> come, told = Told();
  std::erase_if(told, [](const std::string &line) { return line.find(": ") == line.npos; });
  for (const std::string &line : ExportDifference(oldLines, lines)) {
    if (line[0] == '+' && line[1] != '[') come.push_back(line.substr(1));
  }
  return ExportDifference(told, come).empty();
}

bool ChoiceFaultLoopTest::WasTold(uint32_t kind) const {
  return std::any_of(events.begin(), events.end(), [&](const MachineEvent &event) { return event.kind == kind; });
}

TEST_P(ChoiceFaultLoopTest, TheHiveIsOldOrComplete) {
  const bool inject = GetParam().mode == Mode::kInjection;
  uint32_t result = 0;
  const auto prepare = [&] {
    OpenChoice("machine");
    events.clear();
  };
  const auto check = [&](bool faulted) {
    Close();
    const std::vector<std::string> lines = HiveLines(Host(kHivePath));
    const bool complete = lines == newLines, old = lines == oldLines;
    EXPECT_TRUE(complete || old || (result == 0 && IsAsTold(lines)))
        << testing::PrintToString(ExportDifference(newLines, lines));
    EXPECT_EQ(Problem(), "");
    EXPECT_TRUE(Drivers() == std::size(kTwoDrivers) || old) << "the hive names drivers that are not there";
    if (inject) {
      const bool noDisk = WasTold(VXRMACHINE_BOOT_DISK_NOT_FOUND), mounted = WasTold(VXRMACHINE_HIVE_NOT_UNLOADED);
      EXPECT_TRUE(!old || result != 0 || noDisk || mounted) << "nothing says that the driver is not there";
    }
    if (!faulted) {
      EXPECT_EQ(result, 0u);
      EXPECT_EQ(complete, inject);
    }
    ResetRestoredSystem();
    EXPECT_TRUE(RestoredTree() == pristine) << "a stray file was left";
  };
  const unsigned calls = RunFaultLoop(GetParam().faults, &log, {prepare, [&] { result = Run(inject); }, check});
  RecordProperty("calls", static_cast<int>(calls));
}

// Every call of an injection, some of the other ways, for speed; and each call by which the hive is changed failing
// from then on while it can still be saved.
std::vector<RunLoop> ChoiceLoops() {
  std::vector<RunLoop> loops = {{Mode::kVerification, {false, 0}}, {Mode::kInjection, {true, 1}}};
  for (unsigned share = 0; share < kFaultShares; ++share) {
    loops.push_back({Mode::kInjection, {false, share}});
    for (const char *call : {"RegSetValueExA", "RegCreateKeyA", "RegDeleteKeyA"}) {
      loops.push_back({Mode::kInjection, {true, share, call}});
    }
  }
  return loops;
}

INSTANTIATE_TEST_SUITE_P(ChoiceRun, ChoiceFaultLoopTest, testing::ValuesIn(ChoiceLoops()), NameOf);

}  // namespace
