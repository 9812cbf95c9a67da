// Copies: what they carry over, what they refuse, and that an old target survives every failure.
#include "platform/machine/files/copy.h"

#include <sys/stat.h>

#include "platform/machine/base/fault.h"
#include "platform/machine/base/handles.h"
#include "tests/support/test_machine.h"

namespace {

using namespace platform;

class CopyTest : public MachineTest {
 protected:
  CopyTest() { WriteFile("ram/drivers/new.sys", "new contents"); }

  // NO_ERROR or why not.
  static DWORD Copy(const char *source, const char *target, BOOL failIfExists = FALSE) {
    return CopyFileA(source, target, failIfExists) ? NO_ERROR : GetLastError();
  }

  std::vector<MachineEvent> CopyEvents() const {
    std::vector<MachineEvent> copies;
    for (const MachineEvent &event : events) {
      if (event.kind == VXRMACHINE_FILE_COPIED || event.kind == VXRMACHINE_FILE_NOT_COPIED) copies.push_back(event);
    }
    return copies;
  }
};

constexpr const char *kSource = R"(X:\drivers\new.sys)";

TEST_F(CopyTest, CarriesContentsTimeAndAttributes) {
  std::filesystem::create_directories(Host("restored/drv"));
  const std::string large(3000000, 'x');
  WriteFile("ram/drivers/large.sys", large);
  const timespec times[2] = {{1000, 0}, {1234567890, 500}};
  utimensat(-1, Host("ram/drivers/new.sys").c_str(), times, 0);
  Open();
  constexpr DWORD kHidden = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN;
  ASSERT_TRUE(SetFileAttributesA(kSource, kHidden));
  ASSERT_EQ(Copy(kSource, R"(D:\drv\A.SYS)"), NO_ERROR);
  ASSERT_EQ(Copy(R"(X:\drivers\large.sys)", R"(D:\drv\large.sys)"), NO_ERROR);

  EXPECT_EQ(ReadFile("restored/drv/A.SYS"), "new contents");
  EXPECT_EQ(ReadFile("restored/drv/large.sys"), large);
  EXPECT_EQ(GetFileAttributesA(R"(D:\drv\a.sys)"), kHidden | FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_EQ(GetFileAttributesA(R"(D:\drv\large.sys)"), FILE_ATTRIBUTE_ARCHIVE);
  struct stat status = {};
  ASSERT_EQ(stat(Host("restored/drv/A.SYS").c_str(), &status), 0);
  EXPECT_EQ(status.st_mtim.tv_sec, 1234567890);
  EXPECT_EQ(status.st_mtim.tv_nsec, 500);
  EXPECT_THAT(Names("restored/drv"), testing::UnorderedElementsAre("A.SYS", "large.sys"));
  ASSERT_EQ(CopyEvents().size(), 2u);
  EXPECT_EQ(CopyEvents()[0].kind, static_cast<uint32_t>(VXRMACHINE_FILE_COPIED));
  EXPECT_EQ(CopyEvents()[0].subject, R"(D:\drv\A.SYS)");
  EXPECT_EQ(CopyEvents()[0].detail, kSource);
  EXPECT_EQ(CopyEvents()[0].size, 12u);
}

TEST_F(CopyTest, RefusalsLeaveAllAsItWas) {
  WriteFile("restored/drv/readonly.sys", "old");
  WriteFile("restored/drv/hidden.sys", "old");
  WriteFile("restored/drv/system.sys", "old");
  WriteFile("restored/drv/plain.sys", "old");
  WriteFile("secret/file.sys", "old");
  std::filesystem::create_symlink("../../secret/file.sys", Host("restored/drv/out.sys"));
  std::filesystem::create_symlink("../../secret", Host("restored/drv/away"));
  std::filesystem::create_symlink("plain.sys", Host("restored/drv/in.sys"));
  std::filesystem::create_directories(Host("restored/drv/dir.sys"));
  std::filesystem::create_hard_link(Host("restored/drv/plain.sys"), Host("restored/drv/same.sys"));
  Open();
  SetFileAttributesA(R"(D:\drv\readonly.sys)", FILE_ATTRIBUTE_READONLY);
  SetFileAttributesA(R"(D:\drv\hidden.sys)", FILE_ATTRIBUTE_HIDDEN);
  SetFileAttributesA(R"(D:\drv\system.sys)", FILE_ATTRIBUTE_SYSTEM);
  const auto namesBefore = Names("restored/drv");
  const struct {
    const char *source, *target;
    BOOL failIfExists;
    DWORD expected;
    uint64_t kept;
  } cases[] = {
      {kSource, R"(D:\drv\readonly.sys)", FALSE, ERROR_ACCESS_DENIED, 1},
      {kSource, R"(D:\drv\hidden.sys)", FALSE, ERROR_ACCESS_DENIED, 1},
      {kSource, R"(D:\drv\system.sys)", FALSE, ERROR_ACCESS_DENIED, 1},
      {kSource, R"(D:\drv\in.sys)", FALSE, ERROR_ACCESS_DENIED, 1},
      {kSource, R"(D:\drv\out.sys)", FALSE, ERROR_ACCESS_DENIED, 0},
      {kSource, R"(D:\drv\away\file.sys)", FALSE, ERROR_ACCESS_DENIED, 0},
      {kSource, R"(D:\..\secret\file.sys)", FALSE, ERROR_ACCESS_DENIED, 0},
      {kSource, R"(D:\drv\con.sys)", FALSE, ERROR_INVALID_NAME, 0},
      {R"(D:\drv\same.sys)", R"(D:\drv\plain.sys)", FALSE, ERROR_SHARING_VIOLATION, 1},
      {R"(X:\drivers\none.sys)", R"(D:\drv\new.sys)", FALSE, ERROR_FILE_NOT_FOUND, 0},
  };
  for (const auto &c : cases) {
    ASSERT_TRUE(VXRMachine_Rehearse(1));
    EXPECT_EQ(Copy(c.source, c.target, c.failIfExists), c.expected) << "rehearsed: " << c.source << " -> " << c.target;
    ASSERT_TRUE(VXRMachine_Rehearse(0));
    const std::size_t told = CopyEvents().size();
    EXPECT_EQ(Copy(c.source, c.target, c.failIfExists), c.expected) << c.source << " -> " << c.target;
    ASSERT_EQ(CopyEvents().size(), told + 1) << c.target;
    const MachineEvent event = CopyEvents().back();
    EXPECT_EQ(event.kind, static_cast<uint32_t>(VXRMACHINE_FILE_NOT_COPIED));
    EXPECT_EQ(event.subject, c.target);
    EXPECT_NE(event.detail, "");
    EXPECT_EQ(event.size, c.kept) << c.target << ": " << event.detail;
  }
  EXPECT_THAT(Names("restored/drv"), testing::UnorderedElementsAreArray(namesBefore));
  for (const char *name : {"restored/drv/readonly.sys", "restored/drv/hidden.sys", "restored/drv/system.sys",
                           "restored/drv/plain.sys", "secret/file.sys"}) {
    EXPECT_EQ(ReadFile(name), "old") << name;
  }
  EXPECT_EQ(Copy(nullptr, R"(D:\drv\new.sys)"), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(Copy(kSource, nullptr), ERROR_INVALID_PARAMETER);
}

TEST_F(CopyTest, ARehearsalKnowsWhoAsks) {
  constexpr uid_t kNobody = 65534;
  if (geteuid() != 0) GTEST_SKIP() << "only the superuser can become another";
  for (const auto &[directory, mode] :
       {std::pair("own", 0777), std::pair("sticky", 01777), std::pair("closed", 0755)}) {
    const std::string file = std::string("restored/") + directory + "/a.sys";
    WriteFile(file, "old");
    chmod(Host(file).parent_path().c_str(), static_cast<mode_t>(mode));
  }
  ASSERT_EQ(chown(Host("restored/own/a.sys").c_str(), kNobody, getegid()), 0);
  chmod(folder.c_str(), 0755);
  Open();
  ASSERT_EQ(seteuid(kNobody), 0);
  for (const auto &[target, expected] :
       {std::pair(R"(D:\own\a.sys)", NO_ERROR), std::pair(R"(D:\own\b.sys)", NO_ERROR),
        std::pair(R"(D:\sticky\a.sys)", ERROR_ACCESS_DENIED), std::pair(R"(D:\closed\a.sys)", ERROR_ACCESS_DENIED)}) {
    VXRMachine_Rehearse(1);
    EXPECT_EQ(Copy(kSource, target), expected) << target;
    VXRMachine_Rehearse(0);
    EXPECT_EQ(Copy(kSource, target), expected) << target;
  }
  ASSERT_EQ(seteuid(0), 0);
}

TEST_F(CopyTest, ARehearsalShowsWhatItMade) {
  WriteFile("restored/a.sys", "old");
  WriteFile("ram/drivers/large", std::string(1 << 20, 'x'));
  Open();
  ULARGE_INTEGER before = {}, after = {};
  ASSERT_TRUE(VXRMachine_Rehearse(1));
  EXPECT_EQ(Copy(kSource, R"(D:\new\sub\a.sys)"), ERROR_PATH_NOT_FOUND);
  EXPECT_TRUE(platform::CreateDirectoryA(R"(D:\new)", nullptr) && platform::CreateDirectoryA(R"(D:\NEW\sub)", nullptr));
  EXPECT_FALSE(platform::CreateDirectoryA(R"(D:\New)", nullptr));
  EXPECT_EQ(platform::GetFileAttributesA(R"(D:\new\sub)"), DWORD{FILE_ATTRIBUTE_DIRECTORY});
  EXPECT_TRUE(platform::GetDiskFreeSpaceExA(R"(D:\new\sub\)", &before, nullptr, nullptr));
  EXPECT_EQ(Copy(R"(X:\drivers\large)", R"(D:\new\SUB\a.sys)"), NO_ERROR);
  EXPECT_TRUE(platform::GetDiskFreeSpaceExA(R"(D:\)", &after, nullptr, nullptr));
  EXPECT_LE(after.QuadPart + (1 << 19), before.QuadPart) << "others use the disk too";
  EXPECT_EQ(Copy(R"(X:\drivers\large)", R"(D:\a.sys)"), NO_ERROR);
  for (const char *target : {R"(D:\new\sub\A.SYS)", R"(D:\A.SYS)"}) {
    WIN32_FIND_DATAA data = {};
    EXPECT_TRUE(platform::FindClose(platform::FindFirstFileA(target, &data)));
    EXPECT_EQ(data.nFileSizeLow, 1u << 20) << target;
  }
  ASSERT_TRUE(VXRMachine_Rehearse(0));
  EXPECT_THAT(Names("restored"), testing::ElementsAre("a.sys"));
  EXPECT_EQ(Copy(kSource, R"(D:\new\a.sys)"), ERROR_PATH_NOT_FOUND);
}

TEST_F(CopyTest, TheCommandTellsOnlyWhatIsNew) {
  WriteFile("restored/a.sys", "old");
  Open();
  SetFileAttributesA(R"(D:\a.sys)", FILE_ATTRIBUTE_READONLY);
  const auto command = [] {
    return machine::CopyWindowsFile(kSource, R"(D:\a.sys)", false, machine::CopyCaller::kCommand);
  };
  EXPECT_FALSE(CopyFileA(kSource, R"(D:\a.sys)", FALSE));
  EXPECT_FALSE(command());
  EXPECT_EQ(CopyEvents().size(), 1u) << "the same failure again";
  EXPECT_FALSE(command());
  EXPECT_EQ(CopyEvents().size(), 2u) << "no call before it";
  EXPECT_FALSE(CopyFileA(kSource, R"(D:\a.sys)", FALSE));
  SetFileAttributesA(R"(D:\a.sys)", FILE_ATTRIBUTE_NORMAL);
  EXPECT_TRUE(command());
  ASSERT_EQ(CopyEvents().size(), 4u);
  EXPECT_EQ(CopyEvents().back().kind, static_cast<uint32_t>(VXRMACHINE_FILE_COPIED));
}

// A copy is written beside the target, which is the old file or the whole new one whatever fails.
TEST_F(CopyTest, AFaultKeepsTheOldTarget) {
  WriteFile("restored/drv/a.sys", "old");
  Open();
  for (const char *step : {"CopyFileA", "file create", "file take over", "file flush", "file rename"}) {
    machine::SetFaultPlan({step, 1, false, ERROR_NOT_ENOUGH_MEMORY});
    EXPECT_NE(Copy(kSource, R"(D:\drv\a.sys)"), NO_ERROR) << step;
    EXPECT_EQ(machine::FaultsMet(), 1u);
    machine::SetFaultPlan({});
    EXPECT_EQ(ReadFile("restored/drv/a.sys"), "old") << step;
    EXPECT_THAT(Names("restored/drv"), testing::ElementsAre("a.sys")) << step;
  }
  EXPECT_EQ(Copy(kSource, R"(D:\drv\a.sys)"), NO_ERROR);
}

}  // namespace
