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

TEST_F(FilesTest, WhatCannotBeMappedLeavesNothingOpen) {
  Open();
  WriteFile("ram/empty", "");
  const std::string longName = "X:\\" + std::string(260, 'x');  // 263 characters: fits, and is not there
  const std::string tooLong = longName + "x";
  struct {
    const char *name;
    const char *line;
  } const rows[] = {
      {nullptr, "ERROR:VXREng_MapFile:szFileName is NULL\n"},
      {"X:\\none", "ERROR:VXREng_MapFile:CreateFile():failed!ec=2:0x00000002:msg=X:\\none\n"},
      {"X:\\empty", "ERROR:VXREng_MapFile:CreateFileMapping():failed!ec=1006:0x000003ee:msg="},
      {longName.c_str(), "ERROR:VXREng_MapFile:CreateFile():failed!"},
      {tooLong.c_str(), "ERROR:VXREng_MapFile:path has 264 characters, at most 263 can be mapped"},
  };
  for (const auto &row : rows) {
    log.clear();
    EXPECT_EQ(VXREng_MapFile(row.name), nullptr);
    EXPECT_THAT(log, HasSubstr(row.line));
    EXPECT_EQ(OpenHandles(), 0u);
  }
  EXPECT_FALSE(VXREng_UnmapFile(nullptr));
}

#ifdef VXR_FAULT_POINTS
TEST_F(FilesTest, MappingThatFailsHalfwayClosesWhatItOpened) {
  Open();
  VXRDbg_Initialize(5, 0, nullptr);  // so that no fault meets the log instead
  WriteFile("ram/file", "content");
  for (const char *call : {"HeapAlloc", "CreateFileA", "GetFileSize", "CreateFileMappingA", "MapViewOfFile"}) {
    SCOPED_TRACE(call);
    machine::SetFaultPlan({call, 1, false, 0});
    EXPECT_EQ(VXREng_MapFile("X:\\file"), nullptr);
    EXPECT_EQ(machine::FaultsMet(), 1u);
    machine::SetFaultPlan({});
    EXPECT_EQ(OpenHandles(), 0u);
    EXPECT_EQ(OpenViews(), 0u);
  }
  const HeapPtr<VXR_FILEMAP> map = VXREng_MapFile("X:\\file");
  ASSERT_NE(map, nullptr);
  EXPECT_STREQ(map->Name, "VAVXRFMap-00");
  EXPECT_TRUE(VXREng_UnmapFile(map.get()));
}
#endif

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

TEST_F(FilesTest, FileExistsByNameDirectoryOrPattern) {
  Open();
  WriteFile("ram/drivers/a.inf", "");
  const std::string tooLong(250, 'd');
  EXPECT_TRUE(VXREng_FileExists("x:\\DRIVERS"));
  EXPECT_TRUE(VXREng_FileExists("X:\\drivers\\*.inf"));
  EXPECT_FALSE(VXREng_FileExists("X:\\drivers\\*.sys"));
  EXPECT_TRUE(VXREng_FileExistsInDir("X:\\drivers", "A.INF"));
  EXPECT_FALSE(VXREng_FileExistsInDir("X:\\drivers", "b.inf"));
  log.clear();
  EXPECT_FALSE(VXREng_FileExists(nullptr));
  EXPECT_EQ(log, "");
  EXPECT_FALSE(VXREng_FileExistsInDir("", "a.inf"));
  EXPECT_FALSE(VXREng_FileExistsInDir("X:\\drivers", ""));
  EXPECT_FALSE(VXREng_FileExistsInDir(nullptr, "a.inf"));
  EXPECT_FALSE(VXREng_FileExistsInDir("X:\\drivers", nullptr));
  EXPECT_THAT(log, Not(HasSubstr("ERROR")));
  EXPECT_FALSE(VXREng_FileExistsInDir(("X:\\" + tooLong).c_str(), "abcdef"));  // 260 with the terminator missing
  EXPECT_THAT(log, HasSubstr("ERROR:VXREng_FileExistsInDir:path of 260 characters is too long"));
}

// --- Commands -------------------------------------------------------------------------------------------------------

TEST_F(FilesTest, CommandIsJudgedByItsExitCode) {
  Open();
  WriteFile("ram/a", "a");
  DWORD code = 7;
  EXPECT_TRUE(VXREng_ExecCommand("cmd.exe /c copy /y X:\\a X:\\b", &code));
  EXPECT_EQ(code, 0u);
  EXPECT_THAT(log, HasSubstr("CHECK:VXREng_ExecCommand:succss cmmd=cmd.exe /c copy /y X:\\a X:\\b:exit=0x00000000:0!\n"
                             "FLUSH:VXREng_ExecCommand:___LEAVE___\nFLUSH:VXREng_ExecCommand:___LEAVE___\n"));
  EXPECT_FALSE(VXREng_ExecCommand("cmd.exe /c copy /y X:\\none X:\\c", &code));
  EXPECT_EQ(code, 1u);
  EXPECT_THAT(log,
              HasSubstr("ERROR:VXREng_ExecCommand:failed cmmd=cmd.exe /c copy /y X:\\none X:\\c:exit=0x00000001:1!"));
  EXPECT_FALSE(VXREng_ExecCommand("X:\\nothing.exe /x", &code));
  EXPECT_EQ(code, ERROR_FILE_NOT_FOUND);
  EXPECT_THAT(log, HasSubstr("CreateProcess():failed!ec=2:0x00000002:msg=X:\\nothing.exe /x\n"));
  EXPECT_FALSE(VXREng_ExecCommand(nullptr, &code));
  EXPECT_EQ(code, 0xFFFFFFFFu);
  EXPECT_THAT(log, HasSubstr("ERROR:szCmmd is NULL!\n"));
  EXPECT_EQ(OpenHandles(), 0u);
}

#ifdef VXR_FAULT_POINTS
TEST_F(FilesTest, CommandWhoseEndIsNotKnownHasFailed) {
  Open();
  WriteFile("ram/a", "a");
  for (const char *call : {"WaitForSingleObject", "GetExitCodeProcess"}) {
    SCOPED_TRACE(call);
    DWORD code = 0;
    machine::SetFaultPlan({call, 1, false, 0});
    EXPECT_FALSE(VXREng_ExecCommand("cmd.exe /c copy /y X:\\a X:\\b", &code));
    machine::SetFaultPlan({});
    EXPECT_EQ(code, 0xFFFFFFFFu);
    EXPECT_EQ(OpenHandles(), 0u);
  }
}
#endif

}  // namespace
