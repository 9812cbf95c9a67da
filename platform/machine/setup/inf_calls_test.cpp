// The INF calls on a described machine.
#include <sys/stat.h>

#include "platform/machine/setup/inf_handles.h"
#include "tests/support/test_machine.h"

namespace {

using namespace platform;
using testing::ElementsAre;

constexpr char kDisk[] =
    "[Version]\r\nSignature = \"$Windows NT$\"\r\nClassGUID = {4D36E97B-E325-11CE-BFC1-08002BE10318}\r\n"
    "Class = SCSIAdapter\r\nProvider = %Maker%\r\nDriverVer = 01/02/2015, 1.2.3.4\r\n"
    "[Files]\r\nCopyFiles = a.sys, b.sys\r\nc.sys,,2\r\n[Empty]\r\n; nothing\r\n"
    "[Numbers]\r\nint = 12, -3, 0x1F, 0xFFFFFFFF, 12abc, , 4294967296, +7\r\nbin = 01, 2, FF, 0x3\r\nbad = 01, 100\r\n"
    "[Strings]\r\nMaker = \"Acme, Ltd.\"\r\n";

class InfCallsTest : public MachineTest {
 protected:
  HINF OpenInf(const char *path) { return SetupOpenInfFileA(path, nullptr, INF_STYLE_WIN4, nullptr); }

  // Field `index` of the line with `key` by size query and read, or "error N".
  template <typename Call>
  static std::string Field(Call call, INFCONTEXT *context, DWORD index) {
    DWORD size = 0;
    if (!call(context, index, nullptr, 0, &size)) return "error " + std::to_string(GetLastError());
    std::string text(size, '?');
    if (size > 0 && call(context, index, text.data(), size - 1, nullptr)) return "wrote into a small buffer";
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    DWORD again = 0;
    if (!call(context, index, text.data(), size, &again)) return "error " + std::to_string(GetLastError());
    EXPECT_EQ(again, size);
    return text;
  }

  static std::string VersionValue(HINF inf, const char *key) {
    DWORD size = 0;
    EXPECT_TRUE(SetupGetInfInformationA(inf, INFINFO_INF_SPEC_IS_HINF, nullptr, 0, &size));
    std::vector<DWORD> record(size / sizeof(DWORD) + 1);
    auto *information = reinterpret_cast<SP_INF_INFORMATION *>(record.data());
    EXPECT_FALSE(SetupGetInfInformationA(inf, INFINFO_INF_SPEC_IS_HINF, information, size - 1, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_TRUE(SetupGetInfInformationA(inf, INFINFO_INF_SPEC_IS_HINF, information, size, nullptr));
    char value[64] = "";
    if (!SetupQueryInfVersionInformationA(information, 0, key, value, sizeof value, nullptr)) {
      return "error " + std::to_string(GetLastError());
    }
    return value;
  }

  static std::vector<std::string> List(const char *directory) {
    DWORD size = 0;
    if (!SetupGetInfFileListA(directory, INF_STYLE_WIN4, nullptr, 0, &size)) {
      return {"error " + std::to_string(GetLastError())};
    }
    std::string list(size, '?');
    EXPECT_TRUE(SetupGetInfFileListA(directory, INF_STYLE_WIN4, list.data(), size, nullptr));
    EXPECT_EQ(list.back(), '\0');
    std::vector<std::string> names;
    for (const char *name = list.c_str(); *name != '\0'; name += names.back().size() + 1) names.emplace_back(name);
    return names;
  }
};

TEST_F(InfCallsTest, OpensModernFilesOnly) {
  WriteFile("ram/drivers/Disk.inf", kDisk);
  WriteFile("ram/Windows/inf/own.inf", kDisk);
  WriteFile("ram/drivers/old.inf", "[Version]\nSignature=$Old$\n");
  WriteFile("ram/drivers/text.inf", "; text\nx=1\n[Version]\nSignature=$Chicago$\n");
  WriteFile("ram/drivers/noise.inf", std::string(5000, '\xEE'));
  std::filesystem::create_directory(Host("ram/drivers/folder.inf"));
  Open();
  const struct {
    const char *path, *infClass;
    DWORD style, error;
    UINT line;
  } cases[] = {
      {"X:\\DRIVERS\\disk.INF", nullptr, INF_STYLE_WIN4, NO_ERROR, 0},
      {"own.inf", nullptr, INF_STYLE_WIN4, NO_ERROR, 0},
      {"own.inf", "scsiadapter", INF_STYLE_WIN4, NO_ERROR, 0},
      {"own.inf", "Net", INF_STYLE_WIN4, ERROR_CLASS_MISMATCH, 0},
      {"own.inf", nullptr, 1, ERROR_INVALID_PARAMETER, 0},
      {nullptr, nullptr, INF_STYLE_WIN4, ERROR_INVALID_PARAMETER, 0},
      {"X:\\drivers\\none.inf", nullptr, INF_STYLE_WIN4, ERROR_FILE_NOT_FOUND, 0},
      {"X:\\drivers\\old.inf", nullptr, INF_STYLE_WIN4, ERROR_WRONG_INF_STYLE, 0},
      {"X:\\drivers\\text.inf", nullptr, INF_STYLE_WIN4, ERROR_EXPECTED_SECTION_NAME, 2},
      {"X:\\drivers\\noise.inf", nullptr, INF_STYLE_WIN4, ERROR_EXPECTED_SECTION_NAME, 1},
      {"X:\\drivers\\folder.inf", nullptr, INF_STYLE_WIN4, ERROR_ACCESS_DENIED, 0},
  };
  for (const auto &one : cases) {
    SCOPED_TRACE(one.path == nullptr ? "null" : one.path);
    UINT line = 99;
    const HINF inf = SetupOpenInfFileA(one.path, one.infClass, one.style, &line);
    EXPECT_EQ(inf != INVALID_HANDLE_VALUE, one.error == NO_ERROR);
    if (one.error != NO_ERROR) {
      EXPECT_EQ(GetLastError(), one.error);
    }
    EXPECT_EQ(line, one.line);
    SetupCloseInfFile(inf);
  }
  EXPECT_EQ(machine::OpenInfHandles(), 0u);
}

TEST_F(InfCallsTest, ReadsFields) {
  WriteFile("ram/Windows/inf/disk.inf", kDisk);
  Open();
  const HINF inf = OpenInf("disk.inf");
  INFCONTEXT context = {};
  ASSERT_TRUE(SetupFindFirstLineA(inf, "FILES", nullptr, &context));
  EXPECT_EQ(SetupGetFieldCount(&context), 2u);
  const struct {
    DWORD index;
    std::string single, list;
  } first[] = {{0, std::string("CopyFiles\0", 10), "error 87"},
               {1, std::string("a.sys\0", 6), std::string("a.sys\0b.sys\0\0", 13)},
               {2, std::string("b.sys\0", 6), std::string("b.sys\0\0", 7)},
               {3, "error 87", "error 87"},
               {0xFFFFFFFF, "error 87", "error 87"}};
  for (const auto &field : first) {
    EXPECT_EQ(Field(SetupGetStringFieldA, &context, field.index), field.single);
    EXPECT_EQ(Field(SetupGetMultiSzFieldA, &context, field.index), field.list);
  }
  ASSERT_TRUE(SetupFindNextLine(&context, &context));
  EXPECT_EQ(Field(SetupGetStringFieldA, &context, 0), "error 87");
  EXPECT_EQ(Field(SetupGetMultiSzFieldA, &context, 1), std::string("c.sys\0\0", 7));
  EXPECT_FALSE(SetupFindNextLine(&context, &context));
  EXPECT_EQ(GetLastError(), ERROR_LINE_NOT_FOUND);

  EXPECT_FALSE(SetupFindFirstLineA(inf, "None", nullptr, &context));
  EXPECT_EQ(GetLastError(), ERROR_LINE_NOT_FOUND);
  EXPECT_FALSE(SetupFindFirstLineA(inf, "Empty", nullptr, &context));
  EXPECT_EQ(GetLastError(), ERROR_LINE_NOT_FOUND);
  EXPECT_FALSE(SetupFindFirstLineA(inf, "Numbers", "none", &context));
  EXPECT_EQ(GetLastError(), ERROR_LINE_NOT_FOUND);

  ASSERT_TRUE(SetupFindFirstLineA(inf, "Numbers", "INT", &context));
  const struct {
    DWORD index;
    int value;
    DWORD error;
  } numbers[] = {{1, 12, 0}, {2, -3, 0}, {3, 31, 0}, {4, -1, 0}, {5, 0, 13},
                 {6, 0, 13}, {7, 0, 13}, {8, 7, 0},  {9, 0, 87}, {0, 0, 13}};
  for (const auto &number : numbers) {
    int value = 0;
    EXPECT_EQ(SetupGetIntField(&context, number.index, &value), number.error == 0) << number.index;
    EXPECT_EQ(value, number.value);
    if (number.error != 0) {
      EXPECT_EQ(GetLastError(), number.error);
    }
  }
  const auto binary = [](INFCONTEXT *at, DWORD index, char *buffer, DWORD size, DWORD *required) {
    return SetupGetBinaryField(at, index, reinterpret_cast<BYTE *>(buffer), size, required);
  };
  ASSERT_TRUE(SetupFindFirstLineA(inf, "Numbers", "bin", &context));
  EXPECT_EQ(Field(binary, &context, 1), "\x01\x02\xFF\x03");
  EXPECT_EQ(Field(binary, &context, 4), "\x03");
  EXPECT_EQ(Field(binary, &context, 5), "error 87");
  ASSERT_TRUE(SetupFindFirstLineA(inf, "Numbers", "bad", &context));
  EXPECT_EQ(Field(binary, &context, 1), "error 13");

  SetupCloseInfFile(inf);
  EXPECT_EQ(Field(SetupGetStringFieldA, &context, 1), "error 6");
  EXPECT_EQ(SetupGetFieldCount(&context), 0u);
  const HINF again = OpenInf("disk.inf");
  for (const INFCONTEXT hostile : {INFCONTEXT{again, again, 99, 0}, INFCONTEXT{again, again, 0, 99}}) {
    INFCONTEXT copy = hostile;
    EXPECT_FALSE(SetupFindNextLine(&copy, &copy));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  }
  SetupCloseInfFile(again);
}

TEST_F(InfCallsTest, ReadsVersionValues) {
  WriteFile("ram/Windows/inf/disk.inf", kDisk);
  Open();
  const HINF inf = OpenInf("disk.inf");
  EXPECT_EQ(VersionValue(inf, "classguid"), "{4D36E97B-E325-11CE-BFC1-08002BE10318}");
  EXPECT_EQ(VersionValue(inf, "Provider"), "Acme, Ltd.");
  EXPECT_EQ(VersionValue(inf, "DriverVer"), "01/02/2015");
  EXPECT_EQ(VersionValue(inf, "CatalogFile"), "error 13");
  EXPECT_FALSE(SetupGetInfInformationA(inf, 2, nullptr, 0, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  SetupCloseInfFile(inf);
  EXPECT_FALSE(SetupGetInfInformationA(inf, INFINFO_INF_SPEC_IS_HINF, nullptr, 0, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_EQ(VXRMachine_InfReads(), 1u);
}

TEST_F(InfCallsTest, ListsModernFilesInNameOrder) {
  for (const char *name : {"b.inf", "A.INF", "c.Inf", "sub/d.inf", "e.txt", "inf", ".inf"}) {
    WriteFile(std::string("ram/drivers/") + name, kDisk);
  }
  WriteFile("ram/drivers/old.inf", "[Version]\n");
  WriteFile("ram/drivers/\xC3\xA4.inf", kDisk);
  WriteFile("ram/drivers/\xE4\xB8\xAD.inf", kDisk);  // not in the code page
  WriteFile("outside.inf", kDisk);
  std::filesystem::create_symlink(Host("outside.inf"), Host("ram/drivers/out.inf"));
  std::filesystem::create_symlink("b.inf", Host("ram/drivers/link.inf"));
  std::filesystem::create_directory(Host("ram/drivers/folder.inf"));
  ASSERT_EQ(mkfifo(Host("ram/drivers/pipe.inf").c_str(), 0600), 0);
  std::filesystem::create_directory(Host("ram/none"));
  WriteFile("ram/Windows/inf/own.inf", kDisk);
  Open();
  EXPECT_THAT(List("X:\\drivers"), ElementsAre("A.INF", "b.inf", "c.Inf", "link.inf", "\xE4.inf"));
  EXPECT_THAT(List("X:\\drivers\\"), ElementsAre("A.INF", "b.inf", "c.Inf", "link.inf", "\xE4.inf"));
  EXPECT_THAT(List(nullptr), ElementsAre("own.inf"));
  EXPECT_THAT(List("X:\\none"), ElementsAre());
  EXPECT_THAT(List("X:\\missing"), ElementsAre("error " + std::to_string(ERROR_PATH_NOT_FOUND)));
}

TEST_F(InfCallsTest, ReadsAFileOnceWhileItDoesNotChange) {
  for (int i = 0; i < 20; ++i) WriteFile("ram/drivers/" + std::to_string(i) + ".inf", kDisk);
  Open();
  for (int round = 0; round < 2; ++round) {
    for (const std::string &name : List("X:\\drivers")) {
      const HINF inf = OpenInf(("x:\\Drivers\\\\" + name).c_str());
      INFCONTEXT context;
      EXPECT_TRUE(SetupFindFirstLineA(inf, "Files", nullptr, &context));
      VersionValue(inf, "Provider");
      SetupCloseInfFile(inf);
    }
  }
  EXPECT_EQ(VXRMachine_InfReads(), 20u);

  // What changes is read again, also between a listing and its next query.
  WriteFile("ram/drivers/3.inf", std::string(kDisk) + "[More]\nx\n");
  const HINF inf = OpenInf("X:\\drivers\\3.inf");
  INFCONTEXT context;
  EXPECT_TRUE(SetupFindFirstLineA(inf, "More", nullptr, &context));
  WriteFile("ram/drivers/4.inf", "[Version]\n");
  std::filesystem::remove(Host("ram/drivers/5.inf"));
  EXPECT_EQ(List("X:\\drivers").size(), 18u);
  EXPECT_EQ(VXRMachine_InfReads(), 22u);
  // A handle goes on with the text that it read.
  WriteFile("ram/drivers/3.inf", "[Version]\n");
  EXPECT_TRUE(SetupFindFirstLineA(inf, "More", nullptr, &context));
  SetupCloseInfFile(inf);
}

// A handle keeps the text that it was opened with, even one that is too large to be kept for later.
TEST_F(InfCallsTest, ReadsALargeFileOnceForItsHandle) {
  WriteFile("ram/drivers/large.inf", kDisk + ("[Pad]\n;" + std::string(5 << 20, 'x')));
  Open();
  const HINF inf = OpenInf("X:\\drivers\\large.inf");
  INFCONTEXT context;
  EXPECT_TRUE(SetupFindFirstLineA(inf, "Files", nullptr, &context));
  EXPECT_TRUE(SetupFindNextLine(&context, &context));
  SetupCloseInfFile(inf);
  EXPECT_EQ(VXRMachine_InfReads(), 1u);
}

// Files that together exceed what is kept: all of them still answer.
TEST_F(InfCallsTest, ReadsAgainWhatDidNotFit) {
  for (int i = 0; i < 10; ++i) {
    WriteFile("ram/drivers/" + std::to_string(i) + ".inf", kDisk + ("[Pad]\n;" + std::string(5 << 20, 'x')));
  }
  Open();
  EXPECT_EQ(List("X:\\drivers").size(), 10u);
  EXPECT_EQ(VXRMachine_InfReads(), 10u);
  std::vector<HINF> handles;
  for (int i = 0; i < 10; ++i) {
    handles.push_back(OpenInf(("X:\\drivers\\" + std::to_string(i) + ".inf").c_str()));
    EXPECT_EQ(VersionValue(handles.back(), "Class"), "SCSIAdapter");
  }
  EXPECT_EQ(VXRMachine_InfReads(), 10u);
  for (const HINF inf : handles) {
    INFCONTEXT context;
    EXPECT_TRUE(SetupFindFirstLineA(inf, "Files", nullptr, &context));
  }
  for (const HINF inf : handles) SetupCloseInfFile(inf);
  EXPECT_GT(VXRMachine_InfReads(), 10u);
}

}  // namespace
