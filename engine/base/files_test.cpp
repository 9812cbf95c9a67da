#include "engine/base/files.h"

#include <sys/stat.h>

#include <cstring>

#include "engine/base/processes.h"
#include "platform/machine/base/fault.h"
#include "tests/support/test_machine.h"

namespace {

using testing::HasSubstr;
using testing::Not;

using FilesTest = MachineTest;

// --- Mapping --------------------------------------------------------------------------------------------------------

TEST_F(FilesTest, MappedFileIsChangedInPlace) {
  Open();
  WriteFile("ram/machine.bme", std::string(80332, 'a'));
  WriteFile("ram/short", "ab");
  HeapPtr<VXR_FILEMAP> first = VXREng_MapFile("X:\\MACHINE.bme");
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->Size, 80332u);
  EXPECT_STREQ(first->Name, "VAVXRFMap-00");
  EXPECT_STREQ(first->File, "X:\\MACHINE.bme");
  HeapPtr<VXR_FILEMAP> second = VXREng_MapFile("X:\\short");
  ASSERT_NE(second, nullptr);
  EXPECT_STREQ(second->Name, "VAVXRFMap-01");
  EXPECT_THAT(log, HasSubstr("\tName = VAVXRFMap-01\n\tSize = 2\n"));

  std::memcpy(second->Start, "AB", 2);
  EXPECT_TRUE(VXREng_UnmapFile(second.get()));
  EXPECT_THAT(log, HasSubstr("CHECK:VXREng_UnmapFile:released mapped file X:\\shortFLUSH:"));
  EXPECT_EQ(ReadFile("ram/short"), "AB");
  const VXR_FILEMAP zero = {};
  EXPECT_EQ(std::memcmp(second.get(), &zero, sizeof(zero)), 0);

  // A record unmapped once more must not disturb the numbering.
  EXPECT_TRUE(VXREng_UnmapFile(second.get()));
  second = VXREng_MapFile("X:\\short");
  ASSERT_NE(second, nullptr);
  EXPECT_STREQ(second->Name, "VAVXRFMap-01");
  EXPECT_TRUE(VXREng_UnmapFile(first.get()));
  EXPECT_TRUE(VXREng_UnmapFile(second.get()));
  EXPECT_EQ(OpenHandles(), 0u);
}

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

TEST_F(FilesTest, CopyThatFailsBothWaysCountsByItsTarget) {
  Open();
  WriteFile("restored/old.sys", "old");
  EXPECT_TRUE(VXREng_CopyFile("X:\\none.sys", "D:\\old.sys", TRUE));
  EXPECT_EQ(ReadFile("restored/old.sys"), "old");
  EXPECT_THAT(log, HasSubstr("ERROR:VXREng_CopyFile:CopyFile():failed!ec=2:0x00000002:msg=Failed, try cmmd line\n"));
  EXPECT_THAT(log, HasSubstr("msg=cmd.exe /c copy /y X:\\none.sys D:\\old.sys\n"));
  EXPECT_FALSE(VXREng_CopyFile("X:\\none.sys", "D:\\none.sys", TRUE));
  EXPECT_THAT(log, HasSubstr("ERROR:VXREng_FileExists:FindFirstFile():failed!ec=2:0x00000002:msg=D:\\none.sys\n"));

  log.clear();
  EXPECT_TRUE(VXREng_CopyFile(nullptr, "D:\\old.sys", FALSE));
  EXPECT_FALSE(VXREng_CopyFile("D:\\old.sys", nullptr, FALSE));
  EXPECT_THAT(log, HasSubstr("ERROR:VXREng_CopyFile:szSource is NULL\n"));
  EXPECT_THAT(log, HasSubstr("ERROR:VXREng_CopyFile:szTarget is NULL\n"));
  EXPECT_THAT(log, Not(HasSubstr("copied ok")));
}

#ifdef VXR_FAULT_POINTS
TEST_F(FilesTest, CommandInterpreterCopiesWhereTheCallCannot) {
  Open();
  struct {
    const char *source, *sourceFile, *target, *targetFile, *command;
  } const rows[] = {
      {"X:\\a.sys", "ram/a.sys", "D:\\b.sys", "restored/b.sys", "cmd.exe /c copy /y X:\\a.sys D:\\b.sys:exit"},
      {"X:\\my drivers\\a.sys", "ram/my drivers/a.sys", "D:\\c.sys", "restored/c.sys",
       "cmd.exe /c copy /y \"X:\\my drivers\\a.sys\" D:\\c.sys:exit"},
      {"X:\\a&b.sys", "ram/a&b.sys", "D:\\c d.sys", "restored/c d.sys",
       "cmd.exe /c copy /y \"X:\\a&b.sys\" \"D:\\c d.sys\":exit"},
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

TEST_F(FilesTest, QuotationMarkInANameReachesNoCommand) {
  Open();
  EXPECT_FALSE(VXREng_CopyFile("X:\\a\" & format D:", "D:\\a.sys", FALSE));
  EXPECT_THAT(log, HasSubstr("ERROR:VXREng_CopyFile:a file name holds a quotation mark, not copied:"));
  EXPECT_THAT(log, Not(HasSubstr("VXREng_ExecCommand")));
}

// --- Existence ------------------------------------------------------------------------------------------------------

// --- Commands -------------------------------------------------------------------------------------------------------

}  // namespace
