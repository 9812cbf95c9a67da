#include "log/log.h"

#include "platform/machine/base/fault.h"
#include "tests/support/own_code_page.h"
#include "tests/support/standard_machine.h"
#include "tests/support/test_machine.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class LogTest : public MachineTest {
 protected:
  // On Windows the program is the test's own, which has that name.
  void OpenAs([[maybe_unused]] const std::string &program = "C:\\Tools\\agent.exe",
              [[maybe_unused]] unsigned codePage = 1252) {
#ifdef _WIN32
    Open();
#else
    Open("", std::string(kStandardSystem) + "clock = 2026-11-19T12:30:05Z\nprogram = '" + program +
                 "'\ncode_page = " + std::to_string(codePage) + "\n");
#endif
    VXRDbg_Cleanup();
    log.clear();
  }

  void WriteMasterIni(const std::string &content) { WriteFile("ram/Halcyra/master.ini", content); }

  std::string LogFile(const std::string &program = "agent") const {
    SYSTEMTIME now{};
    platform::GetSystemTime(&now);
    char date[16];
    std::snprintf(date, sizeof date, "%02u%02u%04u", now.wDay, now.wMonth, now.wYear);
    return "ram/Halcyra/logs.dir/" + program + "-vxr-" + date + ".log";
  }

  // What the lines of each level come to: the digits of the levels that are written.
  std::string LevelsWritten() {
    log.clear();
    for (const int level : {-1, 0, 1, 2, 3, 4, 5, 6}) VXRDbg_Log(level, "%d\n", level);
    std::string digits = log;
    std::erase(digits, '\n');
    return digits;
  }
};

TEST_F(LogTest, TakesItsLevelFromMasterIniWithinBounds) {
  const struct {
    const char *ini;
    int fallback;
    const char *written;
  } cases[] = {
      {"[debugging]\nvxrcore=3\n", 0, "0123"}, {"[debugging]\nvxrcore=9\n", 3, "012345"},
      {"[debugging]\nvxrcore=-4\n", 3, "0"},   {"[debugging]\nother=5\n", 1, "01"},
      {"[other]\nvxrcore=5\n", 9, "012345"},   {"", -7, "0"},
  };
  OpenAs();
  for (const auto &c : cases) {
    SCOPED_TRACE(c.ini);
    WriteMasterIni(c.ini);
    VXRDbg_Initialize(c.fallback, 0, nullptr);
    EXPECT_EQ(LevelsWritten(), c.written);
    VXRDbg_Cleanup();
  }
}

TEST_F(LogTest, NamesItsFileAfterTheProgramAndTheDay) {
  NEEDS_DESCRIBED_MACHINE();
  const struct {
    const char *program;
    const char *name;
    unsigned codePage = 1252;
  } cases[] = {
      {"C:\\Tools\\agent.exe", "agent"},
      {"C:\\Tools\\Restore Agent.exe", "Restore Agent"},
      {"AGENT.EXE", "AGENT.EXE"},
      {"/usr/bin/vxr", "vxr"},
      {"C:\\a.exe.d\\tool.exe.bak", "tool"},
      {"abcdefghijklmnopqrst.exe", "abcdefghijklmno"},
      {"abcdefghijklmno.exe", "abcdefghijklmno"},
      {"C:a?|b.exe", "C_a__b"},
      // Characters of two bytes: the first one's second is a backslash, the 15th byte begins one, and the last one's
      // second is a vertical line.
      {"C:\\Tools\\表示.exe", "表示", 932},
      {"表示プログラム一覧.exe", "表示プログラム", 932},
      {"ポ:ポ.exe", "ポ_ポ", 932},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.program);
    OpenAs(c.program, c.codePage);
    VXRDbg_Log(0, "first\n");
    VXRDbg_Cleanup();
    EXPECT_THAT(ReadFile(LogFile(c.name)), HasSubstr("first\n"));
    Close();
  }
}

TEST_F(LogTest, StartsWithTheFirstLineAndEndsWithCleanup) {
  NEEDS_DESCRIBED_MACHINE();
  OpenAs();
  WriteMasterIni("");
  EXPECT_EQ(VXRDbg_Log(0, "line %d\n", 1), 7);
  EXPECT_EQ(VXRDbg_Log(4, "too detailed\n"), 0);
  VXRDbg_Cleanup();
  const std::string file = "X:\\Halcyra\\logs.dir\\agent-vxr-19112026.log";
  const std::string when = "2026/11/19@12:30:05:[L=03:F=00000003:" + file + "]\n";
  EXPECT_EQ(ReadFile(LogFile()),
            "*** Varnelt VXRCORE LOG STARTS:" + when + "line 1\n*** Varnelt VXRCORE LOG ENDS:" + when);
  EXPECT_THAT(log, StartsWith("agent:VXRDbg_Initialize:started...\n"));
  EXPECT_THAT(log, HasSubstr("agent:VXRDbg_Initialize:set dbglvl = 3 for agent from X:\\Halcyra\\master.ini...\n"
                             "agent:VXRDbg_Initialize:creating log file " +
                             file + "...\n"));
  EXPECT_THAT(log, EndsWith("agent:VXRDbg_Cleanup:log file " + file + " closed...\nagent:VXRDbg_Cleanup():Done.\n"));
}

TEST_F(LogTest, SettersHoldOnlyOnceTheLogRuns) {
  OpenAs();
  WriteMasterIni("[debugging]\nvxrcore=2\n");
  VXRDbg_SetLevel(5);
  VXRDbg_SetFlags(0x2);
  EXPECT_THAT(log, HasSubstr("agent:VXRDbg_SetLevel:setting level = 0x00000005\n"));
  EXPECT_EQ(LevelsWritten(), "012") << "the start that the setter's own line caused reads master.ini";

  VXRDbg_SetLevel(1);
  VXRDbg_Initialize(5, 0, window);
  EXPECT_EQ(LevelsWritten(), "01") << "a second start changes nothing";
  EXPECT_TRUE(statusLines.empty());
  VXRDbg_SetLevel(0xFFFFFFFF);
  EXPECT_EQ(LevelsWritten(), "");
}

TEST_F(LogTest, SendsEachLineToTheOutputsOfItsFlags) {
  OpenAs();
  VXRDbg_Initialize(5, 0, nullptr);
  VXRDbg_SetFlags(0x2);
  VXRDbg_SetWnd(window);
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  VXRDbg_SetFlags(0x4);
  VXRDbg_Log(0, "to stderr\n");
  VXRDbg_SetFlags(0x8);
  VXRDbg_Log(0, "to stdout\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "agent:VXRDbg_SetFlags:setting flags = 0x00000004\nto stderr\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "agent:VXRDbg_SetFlags:setting flags = 0x00000008\nto stdout\n");
  VXRDbg_SetFlags(0x1);
  log.clear();
  VXRDbg_Log(0, "to the file\n");
  EXPECT_EQ(log, "");
  VXRDbg_Cleanup();
  EXPECT_THAT(ReadFile(LogFile()), HasSubstr("]\nagent:VXRDbg_SetFlags:setting flags = 0x00000001\nto the file\n*** "));
  EXPECT_THAT(statusLines, testing::IsSupersetOf({"to the file\n", "to stderr\n", "to stdout\n"}))
      << "a window gets every line";
}

TEST_F(LogTest, CutsALongLineAtItsBufferForEveryOutput) {
  OpenAs();
  VXRDbg_Initialize(5, 0, window);
  const std::string fits(2046, 'a'), tooLong(3000, 'b');
  log.clear();
  statusLines.clear();
  EXPECT_EQ(VXRDbg_Log(0, "%s\n", fits.c_str()), 2047);
  EXPECT_LT(VXRDbg_Log(0, "%s\n", tooLong.c_str()), 0);
  VXRDbg_Log(0, "next\n");
  const std::string cut = std::string(2046, 'b') + "\n";
  EXPECT_EQ(log, fits + "\n" + cut + "next\n");
  EXPECT_THAT(statusLines, testing::ElementsAre(fits + "\n", cut, "next\n"));
  VXRDbg_Cleanup();
  EXPECT_THAT(ReadFile(LogFile()), HasSubstr(fits + "\n" + cut + std::string(1, '\0') + "next\n"))
      << "a stream gets the whole buffer";
  if (!UseCodePage(932)) return;
  const std::string odd(2045, 'c');
  VXRDbg_Log(0, "%s\x95\x5C\x95\x5C", odd.c_str());  // the buffer ends inside a character
  VXRDbg_Cleanup();
  EXPECT_THAT(ReadFile(LogFile()), HasSubstr(odd + "\n" + std::string(2, '\0') + "*** "));
  machine::SetCodePage(machine::kDefaultCodePage);
}

#ifdef VXR_FAULT_POINTS
TEST_F(LogTest, RunsWithoutAFileWhenThereCannotBeOne) {
  const struct {
    const char *call;
    unsigned nth;
  } cases[] = {{"RegOpenKeyA", 1}, {"RegQueryValueExA", 1}, {"RegQueryValueExA", 2},
               {"HeapAlloc", 1},   {"HeapAlloc", 2},        {"OpenStream", 1}};
  OpenAs();
  for (const auto &c : cases) {
    SCOPED_TRACE(std::string(c.call) + " " + std::to_string(c.nth));
    log.clear();
    machine::SetFaultPlan({c.call, c.nth, false, 5});
    VXRDbg_Log(0, "all the same\n");
    EXPECT_EQ(machine::FaultsMet(), 1u);
    machine::SetFaultPlan({});
    EXPECT_THAT(log, EndsWith(":F=00000002:N/A]\nall the same\n"));
    VXRDbg_Cleanup();
  }
  EXPECT_THAT(
      log,
      HasSubstr("agent:VXRDbg_Initialize:CreateFile(X:\\Halcyra\\logs.dir\\agent-vxr-19112026.log) failed!ec=5\n"));
}
#endif

}  // namespace
