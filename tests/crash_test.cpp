// An injection that is killed, or finds the disk full, at each call by which it changes the restored system, and the
// order of these calls. Whatever happens, and whenever: hive and driver files are the old ones or complete, and the
// next run succeeds and leaves nothing behind; or an undo, which is killed in the same way, brings the old ones back.
// scripts/crash runs the same on larger hives and in more ways.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "tests/support/hive_log_builder.h"
#include "tests/support/restore_job.h"

namespace {

namespace fs = std::filesystem;
using testing::EndsWith;

// A call by which a run changed the restored system, or tried to.
struct Call {
  std::string name;
  int error = 0;
  std::string inode, path, other, size;  // `other`: where a link or a rename leads
  bool IsWrite() const { return name.find("write") != std::string::npos || name == "copy_file_range"; }
};

struct Outcome {
  int signal = 0, status = -1;
  std::string output;
};

// kExample: of the 10.0 example, whose run chooses the driver as Windows would.
enum class HiveKind { kClean, kDirty, kExample };

struct Setup {
  HiveKind hive;
  bool named;  // the file system cannot make files without a name
};

// Keys of 1,000 bytes to add to the hive; set for the long form of the test.
unsigned long MoreKeys() {
  const char *keys = std::getenv("VXR_CRASH_KEYS");
  return keys == nullptr ? 0 : std::strtoul(keys, nullptr, 10);
}

using Tree = std::map<std::string, std::string>;

class CrashTest : public RestoreJobTest, public testing::WithParamInterface<Setup> {
 protected:
  CrashTest();

  void MakeHive();
  void MakeMachine();
  bool IsExample() const { return GetParam().hive == HiveKind::kExample; }
  void Reset() const;
  Tree Restored() const;

  // A program in a process of its own, with the variable KILL_POINT_AT when `at` is not empty.
  using Command = std::vector<std::string>;
  pid_t Start(const Command &command, const std::string &at) const;
  Outcome Await(pid_t process) const;
  Command Injection() const;
  Outcome RunVxr(const std::string &at = "") const { return Await(Start(Injection(), at)); }
  Outcome Keep(const std::string &at = "") const;
  Outcome Undo(const std::string &at = "") const;
  std::string UndoFolder() const;
  void ExpectUndone() const;
  Command InjectionByInject() const;
  std::vector<Call> Calls() const;

  // After a run that was killed there may be files on the way, whose names begin with a dot.
  void ExpectOldOrComplete(bool killed) const;
  void ExpectSecondRunCompletes() const;
  bool HiveIsOld() const { return ReadFile(hive) == old.at(hive); }

  std::string hive = kHivePath;
  Tree old, complete;
  std::vector<Call> calls;  // of the run that was left alone
};

std::string Text(const std::vector<uint8_t> &bytes) { return std::string(bytes.begin(), bytes.end()); }

bool IsOnTheWay(const std::string &path) { return fs::path(path).filename().string().starts_with('.'); }

// With the clock standing still, a complete hive has the same bytes each time.
void CrashTest::MakeMachine() {
  if (IsExample()) {
    BecomeExample("raid-10.0-x64");
    hive = "restored/Windows/System32/config/SYSTEM";
    return;
  }
  OpenJob();
  Close();
  const std::string toml = ReadFile("machine.toml");
  const std::string head = "[system]\n";
  EXPECT_TRUE(toml.starts_with(head));
  WriteFile("machine.toml", head + "clock = 2026-11-19T12:00:00Z\n" + toml.substr(head.size()));
  MakeHive();
}

CrashTest::CrashTest() {
  MakeMachine();
  old = Restored();
  const Outcome undisturbed = RunVxr();
  EXPECT_EQ(undisturbed.status, 0) << undisturbed.output;
  complete = Restored();
  calls = Calls();
  if (std::getenv("VXR_CRASH_HIVE") == nullptr && !IsExample()) {
    EXPECT_EQ(old.at(kHivePath).find("newest39") == std::string::npos, GetParam().hive == HiveKind::kDirty);
    EXPECT_NE(complete.at(kHivePath).find("newest39"), std::string::npos) << "a key of a log is lost";
  }
}

// A real hive and its logs, when one is given; or one with keys that, when it is dirty, are in its two logs alone.
void CrashTest::MakeHive() {
  if (const char *given = std::getenv("VXR_CRASH_HIVE")) {
    for (const std::string ending : {"", ".LOG1", ".LOG2"}) {
      if (!fs::exists(given + ending)) continue;
      fs::copy_file(given + ending, Host(kHivePath + ending), fs::copy_options::overwrite_existing);
    }
    return;
  }
  std::vector<HiveValue> values = SystemHiveValues(1);
  for (unsigned long i = 0; i < MoreKeys(); ++i) {
    values.push_back({"ControlSet001\\Enum\\" + std::to_string(i), "Data", 3, std::vector<uint8_t>(1000, 7)});
  }
  std::vector<std::vector<uint8_t>> states = {BuildHive(values)};
  for (const char *key : {"ControlSet001\\Services\\newer", "ControlSet001\\Services\\newest"}) {
    for (int i = 0; i < 40; ++i) values.push_back(NumberValue(key + std::to_string(i), "Start", 3));
    states.push_back(BuildHive(values));
  }
  if (GetParam().hive == HiveKind::kClean) {
    WriteFile(kHivePath, Text(states.back()));
    return;
  }
  SetSequence(&states[0], 7, 6);
  const auto logOf = [&](uint32_t number, std::size_t to) {
    LogEntrySpec entry;
    entry.pages = ChangedPages(states[to - 1], states[to]);
    entry.binsSize = static_cast<uint32_t>(states[to].size() - 4096);
    return Text(BuildNewLog(states[0], number, {entry}));
  };
  WriteFile(kHivePath, Text(states[0]));
  WriteFile(std::string(kHivePath) + ".LOG1", logOf(7, 1));
  WriteFile(std::string(kHivePath) + ".LOG2", logOf(8, 2));
}

void CrashTest::Reset() const {
  fs::remove_all(folder / "restored/Windows");
  for (const auto &[name, bytes] : old) {
    fs::create_directories(Host(name).parent_path());
    std::ofstream(Host(name), std::ios::binary) << bytes;
  }
}

Tree CrashTest::Restored() const {
  Tree tree;
  for (const auto &entry : fs::recursive_directory_iterator(folder / "restored")) {
    const std::string name = fs::relative(entry.path(), folder).string();
    if (entry.is_regular_file()) tree[name] = ReadFile(name);
  }
  return tree;
}

pid_t CrashTest::Start(const Command &command, const std::string &at) const {
  fs::remove(Host("calls"));
  const std::string output = Host("output"), record = Host("calls"), below = Host("restored");
  std::vector<char *> arguments;
  for (const std::string &argument : command) arguments.push_back(const_cast<char *>(argument.c_str()));
  arguments.push_back(nullptr);
  const pid_t process = fork();
  if (process != 0) return process;
  setenv("LD_PRELOAD", VXR_KILL_POINT, 1);
  setenv("KILL_POINT_BELOW", below.c_str(), 1);
  setenv("KILL_POINT_RECORD", record.c_str(), 1);
  setenv("TMPDIR", folder.c_str(), 1);
  if (!at.empty()) setenv("KILL_POINT_AT", at.c_str(), 1);
  if (GetParam().named) setenv("KILL_POINT_NAMED", "1", 1);
  const int file = ::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  dup2(file, 1);
  dup2(file, 2);
  execv(arguments[0], arguments.data());
  _exit(127);
}

CrashTest::Command CrashTest::Injection() const {
  Command command = {VXR_PROGRAM, "run", "--machine", Host("machine.toml"), "--job", IsExample() ? "10" : "1"};
  if (IsExample()) command.insert(command.end(), {"--rules", "windows", "--record", "auto"});
  return command;
}

Outcome CrashTest::Keep(const std::string &at) const {
  return Await(Start({VXR_KEEP_FOR_UNDO, Host("restored"), Host("complete")}, at));
}

Outcome CrashTest::Undo(const std::string &at) const { return Await(Start({VXR_PROGRAM, "undo", UndoFolder()}, at)); }

Outcome CrashTest::Await(pid_t process) const {
  int status = 0;
  EXPECT_EQ(waitpid(process, &status, 0), process);
  Outcome outcome;
  if (WIFSIGNALED(status)) outcome.signal = WTERMSIG(status);
  if (WIFEXITED(status)) outcome.status = WEXITSTATUS(status);
  outcome.output = ReadFile("output");
  return outcome;
}

std::vector<Call> CrashTest::Calls() const {
  std::vector<Call> result;
  std::istringstream lines(ReadFile("calls"));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    Call call;
    std::string error;
    for (std::string *field : {&call.name, &error, &call.inode, &call.path, &call.other, &call.size}) {
      std::getline(fields, *field, '\t');
    }
    call.error = std::stoi(error);
    for (std::string *path : {&call.path, &call.other}) {
      if (!path->empty()) *path = fs::relative(*path, folder).string();
    }
    result.push_back(call);
  }
  return result;
}

void CrashTest::ExpectOldOrComplete(bool killed) const {
  Tree now = Restored();
  if (killed) std::erase_if(now, [](const auto &file) { return IsOnTheWay(file.first); });
  for (const auto &[name, bytes] : now) {
    const bool isOld = old.contains(name) && bytes == old.at(name);
    EXPECT_TRUE(isOld || (complete.contains(name) && bytes == complete.at(name))) << name << " is torn or astray";
  }
  for (const auto &[name, bytes] : old) EXPECT_TRUE(now.contains(name)) << name << " is gone";
}

void CrashTest::ExpectSecondRunCompletes() const {
  const Outcome second = RunVxr();
  EXPECT_EQ(second.status, 0) << second.output;
  EXPECT_TRUE(Restored() == complete) << "the second run did not complete what the first began";
  const std::vector<Call> made = Calls();
  EXPECT_TRUE(std::any_of(made.begin(), made.end(), [this](const Call &call) {
    return call.name == "fsync" && call.path == fs::path(hive).parent_path();
  })) << "a power failure may still undo what the first run's rename did";
}

// --- Killed ----------------------------------------------------------------------------------------------------------

TEST_P(CrashTest, KilledAtAnyCall) {
  unsigned sawOld = 0, sawNew = 0;
  for (std::size_t n = 1; n <= calls.size(); ++n) {
    for (const char *when : {"before", "half", "after"}) {
      if (*when == 'h' && !calls[n - 1].IsWrite()) continue;
      const std::string at = when + (":" + std::to_string(n));
      SCOPED_TRACE(at + ", " + calls[n - 1].name + " of " + calls[n - 1].path);
      Reset();
      const Outcome run = RunVxr(at);
      ASSERT_EQ(run.signal, SIGKILL) << run.output;
      ExpectOldOrComplete(true);
      ++(HiveIsOld() ? sawOld : sawNew);
      ExpectSecondRunCompletes();
      if (HasFailure()) return;
    }
  }
  // A power failure may bring the name back beside the new hive; there is nothing to save then.
  WriteFile(fs::path(hive).parent_path() / ".SYSTEM.vxr-tmp", "of the run before");
  ExpectSecondRunCompletes();
  EXPECT_GT(sawOld, 20u);
  EXPECT_GT(sawNew, 1u);
}

// --- No room ---------------------------------------------------------------------------------------------------------

TEST_P(CrashTest, NoRoomAtAnyCall) {
  unsigned unsaved = 0;
  bool lastUnflushed = false;
  for (std::size_t n = 1; n <= calls.size(); ++n) {
    for (const char *when : {"full", "full-on"}) {
      const std::string at = when + (":" + std::to_string(n));
      SCOPED_TRACE(at + ", " + calls[n - 1].name + " of " + calls[n - 1].path);
      Reset();
      const Outcome run = RunVxr(at);
      ASSERT_EQ(run.signal, 0);
      ExpectOldOrComplete(false);
      // What is said of the hive is so; where it is old and nothing is said, the run failed before.
      const bool unchanged = run.output.find("was not saved and is unchanged") != std::string::npos;
      const bool unflushed = run.output.find("saved, but is not surely on the disk") != std::string::npos;
      EXPECT_EQ(unchanged || unflushed, run.status == 4) << run.status << '\n' << run.output;
      EXPECT_EQ(HiveIsOld(), unchanged || (run.status != 0 && run.status != 4)) << run.status << '\n' << run.output;
      unsaved += unchanged;
      lastUnflushed = unflushed;
      if (HasFailure()) return;
    }
  }
  EXPECT_GT(unsaved, 4u);
  EXPECT_TRUE(lastUnflushed) << "the last call is the flush of the hive's directory";
}

// --- The order of calls ----------------------------------------------------------------------------------------------

// A new file gets its name only when all of it is on the disk, and the name is on the disk before the next step; the
// hive, which names the drivers, comes last. So however much of what was not flushed a power failure drops or tears, a
// name has its old file or the complete new one.
TEST_P(CrashTest, NamesComeAfterFlushes) {
  std::set<std::string> placed, moved;
  std::set<std::string> unflushed;  // directories with a new name
  for (std::size_t i = 0; i < calls.size(); ++i) {
    const Call &call = calls[i];
    SCOPED_TRACE(std::to_string(i + 1) + ", " + call.name + " of " + call.path + " " + call.other);
    if (call.error != 0) continue;
    EXPECT_FALSE(moved.contains(call.inode)) << "a file that has its name is changed";
    if (call.name == "fsync") unflushed.erase(call.path);
    if (call.name != "link" && call.name != "rename") {
      EXPECT_TRUE(!old.contains(call.path) || call.name == "chmod") << "an old file is changed";
      continue;
    }
    std::size_t flushed = i, changed = i;  // the last calls of their kind on the file; names do not count
    for (std::size_t before = 0; before < i; ++before) {
      const Call &earlier = calls[before];
      if (earlier.error != 0 || earlier.inode != call.inode || earlier.name == "link") continue;
      (earlier.name == "fsync" ? flushed : changed) = before;
    }
    EXPECT_LT(changed, i);
    EXPECT_TRUE(flushed < i && changed < flushed) << "not all of it is flushed";
    EXPECT_TRUE(call.name == "link" || IsOnTheWay(call.path)) << "an old file is moved away";
    if (IsOnTheWay(call.other)) continue;
    EXPECT_THAT(unflushed, testing::IsEmpty()) << "an earlier name may be lost";
    unflushed.insert(fs::path(call.other).parent_path());
    moved.insert(call.inode);
    placed.insert(call.other);
    if (call.other == hive) {
      EXPECT_EQ(placed.size(), 3u) << "the hive comes before the drivers";
    }
  }
  EXPECT_THAT(unflushed, testing::IsEmpty());
  const bool example = IsExample();
  EXPECT_THAT(placed, testing::UnorderedElementsAre(hive, EndsWith(example ? "drivers/twraid.sys" : "drivers/FAST.SYS"),
                                                    EndsWith(example ? "drivers/twflt.sys" : "/FASTUI.DLL")));
}

// --- Two runs at once ------------------------------------------------------------------------------------------------

TEST_P(CrashTest, ASecondRunIsRefusedUntilTheFirstEnds) {
  for (const std::size_t n : {std::size_t{1}, calls.size() / 2, calls.size() - 2}) {
    Reset();
    const pid_t first = Start(Injection(), "stop:" + std::to_string(n));
    int status = 0;
    ASSERT_EQ(waitpid(first, &status, WUNTRACED), first);
    ASSERT_TRUE(WIFSTOPPED(status));
    const Tree before = Restored();
    const Outcome second = RunVxr();
    EXPECT_EQ(second.status, 4) << second.output;
    EXPECT_THAT(second.output, testing::HasSubstr("is in use by another run; wait for its end, then run again"));
    EXPECT_TRUE(Restored() == before) << "a run that was refused changed something";
    ASSERT_EQ(kill(first, SIGKILL), 0);
    EXPECT_EQ(Await(first).signal, SIGKILL);
    ExpectSecondRunCompletes();
  }
}

// --- Undo ------------------------------------------------------------------------------------------------------------

// Empty: there is none.
std::string CrashTest::UndoFolder() const {
  std::error_code missing;
  for (const auto &entry : fs::directory_iterator(Host("restored/Windows/vxr-undo"), missing)) return entry.path();
  return "";
}

// Whatever is there, one command makes it what it was; without a folder it is that already.
void CrashTest::ExpectUndone() const {
  if (!UndoFolder().empty()) {
    const Outcome undo = Undo();
    EXPECT_EQ(undo.status, 0) << undo.output;
  }
  std::error_code empty;
  fs::remove(Host("restored/Windows/vxr-undo"), empty);
  EXPECT_TRUE(Restored() == old) << "it is not what it was";
}

TEST_P(CrashTest, IsUndoneWheneverAnythingIsKilled) {
  if (IsExample()) return;  // it makes the same calls
  for (const auto &[name, bytes] : complete)
    WriteFile(fs::path("complete") / fs::path(name).lexically_relative("restored"), bytes);
  Reset();
  ASSERT_EQ(Keep().status, 0) << ReadFile("output");
  const std::vector<Call> keeping = Calls();
  ASSERT_EQ(RunVxr().status, 0) << ReadFile("output");
  ASSERT_EQ(Undo().status, 0) << ReadFile("output");
  const std::vector<Call> undoing = Calls();
  ExpectUndone();
  const std::pair<const char *, const std::vector<Call> &> parts[] = {
      {"keep", keeping}, {"run", calls}, {"undo", undoing}};
  for (const auto &[part, made] : parts) {
    EXPECT_GT(made.size(), 12u);
    for (std::size_t n = 1; n <= made.size(); ++n) {
      for (const char *when : {"before", "half", "after", "full"}) {
        if (*when == 'h' && !made[n - 1].IsWrite()) continue;
        const std::string at = when + (":" + std::to_string(n));
        SCOPED_TRACE(part + (" " + at) + ", " + made[n - 1].name + " of " + made[n - 1].path);
        Reset();
        const Outcome kept = Keep(*part == 'k' ? at : "");
        const Outcome run = *part != 'k' ? RunVxr(*part == 'r' ? at : "") : kept;
        const Outcome last = *part == 'u' ? Undo(at) : run;
        EXPECT_EQ(last.signal, *when == 'f' ? 0 : SIGKILL);
        const bool failed = kept.signal == 0 && kept.status != 0;
        EXPECT_FALSE(failed && fs::exists(Host("restored/Windows/vxr-undo"))) << kept.output;
        ExpectUndone();
        if (HasFailure()) return;
      }
    }
  }
}

CrashTest::Command CrashTest::InjectionByInject() const {
  return {VXR_PROGRAM,         "inject",       "--root",        Host("restored"), "--drivers",
          Host("ram/drivers"), "--controller", "1DEA:0A42 0104"};
}

// The whole command. What it says is so: success, nothing changed, or where what was changed can be taken back.
TEST_P(CrashTest, InjectIsUndoneWheneverItIsKilled) {
  if (!IsExample()) return;  // its restored system alone tells what it is
  Reset();
  ASSERT_EQ(Await(Start(InjectionByInject(), "")).status, 0) << ReadFile("output");
  const std::vector<Call> made = Calls();
  unsigned unchanged = 0, partly = 0;
  for (std::size_t n = 1; n <= made.size(); ++n) {
    for (const char *when : {"before", "half", "after", "full", "full-on"}) {
      if (*when == 'h' && !made[n - 1].IsWrite()) continue;
      const std::string at = when + (":" + std::to_string(n));
      SCOPED_TRACE(at + ", " + made[n - 1].name + " of " + made[n - 1].path);
      Reset();
      const Outcome run = Await(Start(InjectionByInject(), at));
      EXPECT_EQ(run.signal, *when == 'f' ? 0 : SIGKILL) << run.output;
      const bool saysUnchanged = run.output.find("; nothing was changed") != std::string::npos;
      if (saysUnchanged) {
        EXPECT_TRUE(Restored() == old) << run.output;
      }
      if (run.signal == 0 && run.status != 0) {
        const bool saysPartly = run.output.find("; some changes were made") != std::string::npos;
        EXPECT_TRUE(saysPartly ? run.output.find("vxr undo " + UndoFolder()) != std::string::npos : saysUnchanged)
            << run.output;
        ++(saysPartly ? partly : unchanged);
      }
      ExpectUndone();
      if (HasFailure()) return;
    }
  }
  EXPECT_GT(unchanged, 10u);
  EXPECT_GT(partly, 10u);
}

std::vector<Setup> Setups() {
  std::vector<Setup> setups = {{HiveKind::kClean, false}, {HiveKind::kDirty, true}, {HiveKind::kExample, false}};
  if (MoreKeys() != 0) setups.insert(setups.end(), {{HiveKind::kClean, true}, {HiveKind::kDirty, false}});
  return setups;
}

std::string NameOf(const testing::TestParamInfo<Setup> &test) {
  const HiveKind hive = test.param.hive;
  return std::string(hive == HiveKind::kExample ? "Example"
                     : hive == HiveKind::kDirty ? "DirtyHive"
                                                : "CleanHive") +
         (test.param.named ? "NamedFiles" : "NamelessFiles");
}

INSTANTIATE_TEST_SUITE_P(Injection, CrashTest, testing::ValuesIn(Setups()), NameOf);

}  // namespace
