// The INF calls on a described machine.
#include <sys/stat.h>

#include "platform/machine/setup/inf_handles.h"
#include "tests/support/test_machine.h"

namespace {

using namespace platform;
using testing::ElementsAre;

constexpr char kDiskInf[] =
    "[Version]\r\nSignature = \"$Windows NT$\"\r\nClassGUID = {4D36E97B-E325-11CE-BFC1-08002BE10318}\r\n"
    "Class = SCSIAdapter\r\nProvider = %Maker%\r\nDriverVer = 01/02/2015, 1.2.3.4\r\n"
    "[Files]\r\nCopyFiles = a.sys, b.sys\r\nc.sys,,2\r\n[Strings]\r\nMaker = \"Acme, Ltd.\"\r\n";

class InfCallsTest : public MachineTest {
 protected:
  HINF OpenInf(const char *path) { return SetupOpenInfFileA(path, nullptr, INF_STYLE_WIN4, nullptr); }

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

TEST_F(InfCallsTest, RefusesWhatIsNoLine) {
  WriteFile("ram/Windows/inf/disk.inf", kDiskInf);
  Open();
  const HINF closed = OpenInf("disk.inf");
  INFCONTEXT context = {};
  ASSERT_TRUE(SetupFindFirstLineA(closed, "FILES", nullptr, &context));
  SetupCloseInfFile(closed);
  EXPECT_EQ(SetupGetFieldCount(&context), 0u);
  const HINF inf = OpenInf("disk.inf");
  for (INFCONTEXT hostile : {INFCONTEXT{inf, inf, 99, 0}, INFCONTEXT{inf, inf, 0, 99}}) {
    EXPECT_FALSE(SetupFindNextLine(&hostile, &hostile));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  }
  SetupCloseInfFile(inf);
  EXPECT_EQ(machine::OpenInfHandles(), 0u);
}

TEST_F(InfCallsTest, ReadsVersionValues) {
  WriteFile("ram/Windows/inf/disk.inf", kDiskInf);
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
    WriteFile(std::string("ram/drivers/") + name, kDiskInf);
  }
  WriteFile("ram/drivers/old.inf", "[Version]\n");
  WriteFile("ram/drivers/\xC3\xA4.inf", kDiskInf);
  WriteFile("ram/drivers/\xE4\xB8\xAD.inf", kDiskInf);  // not in the code page
  WriteFile("outside.inf", kDiskInf);
  std::filesystem::create_symlink(Host("outside.inf"), Host("ram/drivers/out.inf"));
  std::filesystem::create_symlink("b.inf", Host("ram/drivers/link.inf"));
  std::filesystem::create_directory(Host("ram/drivers/folder.inf"));
  ASSERT_EQ(mkfifo(Host("ram/drivers/pipe.inf").c_str(), 0600), 0);
  std::filesystem::create_directory(Host("ram/none"));
  WriteFile("ram/Windows/inf/own.inf", kDiskInf);
  Open();
  EXPECT_THAT(List("X:\\drivers"), ElementsAre("A.INF", "b.inf", "c.Inf", "link.inf", "\xE4.inf"));
  EXPECT_THAT(List("X:\\drivers\\"), ElementsAre("A.INF", "b.inf", "c.Inf", "link.inf", "\xE4.inf"));
  EXPECT_THAT(List(nullptr), ElementsAre("own.inf"));
  EXPECT_THAT(List("X:\\none"), ElementsAre());
  EXPECT_THAT(List("X:\\missing"), ElementsAre("error " + std::to_string(ERROR_PATH_NOT_FOUND)));
}

TEST_F(InfCallsTest, ReadsAFileOnceWhileItDoesNotChange) {
  for (int i = 0; i < 20; ++i) WriteFile("ram/drivers/" + std::to_string(i) + ".inf", kDiskInf);
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
  WriteFile("ram/drivers/3.inf", std::string(kDiskInf) + "[More]\nx\n");
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

}  // namespace
