// Command lines, and the two programs.
#include "platform/machine/base/handles.h"
#include "platform/machine/text/command_line.h"
#include "tests/support/hive_builder.h"
#include "tests/support/test_machine.h"

namespace {

using namespace platform;
using Words = std::vector<std::string>;

TEST(CommandLineTest, SplitsAsWindowsDoes) {
  const struct {
    const char *text;
    Words expected;
  } cases[] = {
      {"", {}},
      {"  \t ", {}},
      {R"(X:\Windows\System32\reg.exe UNLOAD HKLM\KEY )", {R"(X:\Windows\System32\reg.exe)", "UNLOAD", R"(HKLM\KEY)"}},
      {R"("X:\My Windows\reg.exe"  LOAD)", {R"(X:\My Windows\reg.exe)", "LOAD"}},
      {R"("X:\dir\" a)", {R"(X:\dir\)", "a"}},  // a backslash in the program's name is itself
      {R"(p a\b\\c "d e\f")", {"p", R"(a\b\\c)", R"(d e\f)"}},
      {R"(p "a\\" b)", {"p", R"(a\)", "b"}},
      {R"(p a\"b "c\\\"d")", {"p", R"(a"b)", R"(c\"d)"}},
      {R"(p "" x)", {"p", "", "x"}},
      {R"(p "a""b" c)", {"p", R"(a"b)", "c"}},
      {R"(p "open to the end)", {"p", "open to the end"}},
      {R"(p a"b c"d)", {"p", "ab cd"}},
      {R"(p ends\\)", {"p", R"(ends\\)"}},
  };
  for (const auto &c : cases) EXPECT_EQ(machine::SplitCommandLine(c.text), c.expected) << c.text;
}

class ProcessesTest : public MachineTest {
 protected:
  // The exit code, or "error N" when the program does not start; leaves no handle open.
  static std::string Run(std::string commandLine) {
    const std::size_t before = machine::OpenHandles();
    STARTUPINFOA startup = {};
    PROCESS_INFORMATION process = {};
    if (!CreateProcessA(nullptr, commandLine.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr,
                        &startup, &process)) {
      return "error " + std::to_string(GetLastError());
    }
    DWORD exitCode = 99;
    EXPECT_EQ(WaitForSingleObject(process.hProcess, INFINITE), WAIT_OBJECT_0);
    EXPECT_FALSE(GetExitCodeProcess(process.hThread, &exitCode));
    EXPECT_TRUE(GetExitCodeProcess(process.hProcess, &exitCode));
    EXPECT_TRUE(CloseHandle(process.hThread));
    EXPECT_TRUE(CloseHandle(process.hProcess));
    EXPECT_EQ(machine::OpenHandles(), before);
    return std::to_string(exitCode);
  }
};

TEST_F(ProcessesTest, CopiesFiles) {
  WriteFile("ram/a.sys", "plain");
  WriteFile("ram/a+b.sys", "sum");
  WriteFile("ram/cmd/cmd.exe", "");
  Open();
  const struct {
    const char *commandLine, *expected;
  } cases[] = {
      {R"(cmd.exe /c copy /y X:\a.sys D:\a.sys)", "0"},
      {R"("x:\windows\SYSTEM32\cmd" /c copy /y X:\"a+b".sys "D:/e.sys")", "0"},
      {R"(cmd.exe /c copy /y X:\a b.sys D:\d.sys)", "1"},
      // What the interpreter would make of these is not that one file in that place.
      {R"(cmd.exe /c copy /y X:\a+b.sys D:\d.sys)", "1"},
      {R"(cmd.exe /c copy /y X:/a.sys D:\d.sys)", "1"},
      {R"(cmd.exe /c copy /y X:\a.sys D:\d.sys /b)", "1"},
      {R"(cmd.exe /c copy /y "X:\%name%" D:\d.sys)", "1"},
      {R"(cmd.exe /c copy /y "X:\a?.sys" D:\d.sys)", "1"},
      {R"(cmd.exe /c copy /y X:\a.sys D:\d.sys&D:)", "1"},
      {R"(cmd.exe /c copy /y X:\a.sys)", "1"},
      {R"(X:\cmd\cmd.exe /c copy /y X:\a.sys D:\d.sys)", "error 2"},
      {R"(cmd.exe /c del X:\a.sys)", "error 2"},
      {R"(cmd.exe /c copy)", "error 2"},
  };
  for (const auto &c : cases) EXPECT_EQ(Run(c.commandLine), c.expected) << c.commandLine;
  EXPECT_EQ(ReadFile("restored/a.sys"), "plain");
  EXPECT_EQ(ReadFile("restored/e.sys"), "sum");
  EXPECT_FALSE(std::filesystem::exists(Host("restored/d.sys")));
}

TEST_F(ProcessesTest, LoadsAndUnloadsHives) {
  WriteFile("ram/cmd/cmd.exe", "");
  WriteHive(Host("restored/SYSTEM"), {NumberValue("Select", "Current", 1)});
  Open();
  EXPECT_EQ(Run(R"(X:\Windows\System32\reg.exe LOAD HKLM\SYSTEM_ORG)"), "1");
  EXPECT_EQ(Run(R"(X:\Windows\System32\reg.exe LOAD HKCU\SYSTEM_ORG D:\system)"), "1");
  EXPECT_EQ(Run(R"(X:\Windows\System32\reg.exe UNLOAD HKLM\SYSTEM_ORG )"), "1") << "nothing is mounted";
  for (const char *unknown : {R"(X:\Windows\System32\reg.exe QUERY HKLM\SYSTEM_ORG)",
                              R"(X:\cmd\cmd.exe /c copy /y X:\a X:\b)", R"(cmd.exe /c del X:\a)", "cmd.exe /c copy"}) {
    EXPECT_EQ(Run(unknown), "error 2") << unknown;
  }
  HKEY key = nullptr;
  EXPECT_EQ(Run(R"("x:\windows\system32\REG" load hklm\SYSTEM_ORG D:\system)"), "0");
  EXPECT_EQ(RegOpenKeyA(HKEY_LOCAL_MACHINE, R"(SYSTEM_ORG\Select)", &key), ERROR_SUCCESS);
  RegCloseKey(key);
  EXPECT_EQ(Run(R"(X:\Windows\System32\reg.exe UNLOAD HKLM\SYSTEM_ORG )"), "0");
  EXPECT_NE(RegOpenKeyA(HKEY_LOCAL_MACHINE, R"(SYSTEM_ORG\Select)", &key), ERROR_SUCCESS);
}

}  // namespace
