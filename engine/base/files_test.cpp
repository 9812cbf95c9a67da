#include "engine/base/files.h"

#include <sys/stat.h>

#include <cstring>

#include "engine/base/processes.h"
#include "platform/machine/base/fault.h"
#include "tests/support/own_code_page.h"
#include "tests/support/test_machine.h"

namespace {

using testing::HasSubstr;
using testing::Not;

using FilesTest = MachineTest;

// --- Mapping --------------------------------------------------------------------------------------------------------

// --- Copying --------------------------------------------------------------------------------------------------------

TEST_F(FilesTest, ReadOnlyTargetIsOverwritten) {
  Open();
  WriteFile("ram/new.sys", "new");
  WriteFile("restored/old.sys", "the old one");
  ASSERT_TRUE(platform::SetFileAttributesA("D:\\old.sys", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE));
  EXPECT_TRUE(VXREng_CopyFile("X:\\new.sys", "D:\\old.sys", FALSE));
  EXPECT_EQ(ReadFile("restored/old.sys"), "new");
  EXPECT_THAT(log, HasSubstr("FLUSH:VXREng_CopyFile:checking attr for D:\\old.sys\n"
                             "FLUSH:VXREng_CopyFile:D:\\old.sys:attr=0x00000021:set to FILE_ATTRIBUTE_NORMAL.\n"
                             "CHECK:VXREng_CopyFile:copied ok:src=X:\\new.sys:tgt=D:\\old.sys\n"));
}

#ifdef VXR_FAULT_POINTS
TEST_F(FilesTest, CommandInterpreterCopiesWhereTheCallCannot) {
  Open();
  struct {
    const char *source, *sourceFile, *target, *targetFile, *command;
  } const rows[] = {
      {"X:\\a.sys", "ram/a.sys", "D:\\b.sys", "restored/b.sys", "cmd.exe /c copy /y X:\\a.sys D:\\b.sys:exit"},
      {"X:\\a+b.sys", "ram/a+b.sys", "D:/e.sys", "restored/e.sys",
       "cmd.exe /c copy /y \"X:\\a+b.sys\" \"D:/e.sys\":exit"},
      {"X:\\\xE9.sys", "ram/é.sys", "D:\\f-1_~$.sys", "restored/f-1_~$.sys",
       "cmd.exe /c copy /y \"X:\\\xE9.sys\" D:\\f-1_~$.sys:exit"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.command);
    WriteFile(row.sourceFile, row.source);
    log.clear();
    machine::SetFaultPlan({"CopyFileA", 1, false, 0});
    EXPECT_TRUE(VXREng_CopyFile(row.source, row.target, FALSE));
    machine::SetFaultPlan({});
    EXPECT_EQ(ReadFile(row.targetFile), row.source);
    EXPECT_THAT(log, HasSubstr(std::string("CHECK:VXREng_ExecCommand:succss cmmd=") + row.command));
    EXPECT_THAT(log, HasSubstr("copied ok"));
  }
  EXPECT_EQ(OpenHandles(), 0u);
}
#endif

TEST_F(FilesTest, NamesThatQuotesDoNotHoldReachNoCommand) {
  Open();
  std::vector<std::pair<const char *, const char *>> rows = {
      {"a\" & format D:", "a quotation mark"}, {"%a%.sys", "a percent sign"}, {"a?.sys", "a wildcard"}};
  if (UseCodePage(932)) rows.insert(rows.end(), {{"a\x81", "half a character"}, {"\x81%x", "half a character"}});
  for (const auto &[name, reason] : rows) {
    log.clear();
    EXPECT_FALSE(VXREng_CopyFile((std::string("X:\\") + name).c_str(), "D:\\a.sys", FALSE));
    EXPECT_THAT(log, HasSubstr(std::string("ERROR:VXREng_CopyFile:a file name holds ") + reason + ", not copied:"));
    EXPECT_THAT(log, Not(HasSubstr("VXREng_ExecCommand")));
  }
}

// --- Existence ------------------------------------------------------------------------------------------------------

// --- Commands -------------------------------------------------------------------------------------------------------

}  // namespace
