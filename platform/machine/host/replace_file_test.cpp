// New files in the place of old ones: what they take over, and what a failure leaves.
#include "platform/machine/host/replace_file.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include "platform/machine/base/fault.h"
#include "tests/support/test_machine.h"

namespace {

class ReplaceFile : public MachineTest {
 protected:
  ReplaceFile() {
    WriteFile("d/old", "old");
    Reopen();
  }
  ~ReplaceFile() override { machine::SetFaultPlan({}); }

  void Reopen() { directory = machine::Descriptor(::open(Host("d").c_str(), O_PATH | O_DIRECTORY)); }

  // The text in the place of d/`name`, as every user of the calls puts it there; null or what failed.
  const char *Replace(const char *name, const std::string &text) {
    failure = Put(name, text);
    return failure ? nullptr : failure.text.c_str();
  }
  machine::Status Put(const char *name, const std::string &text) {
    struct stat status;
    const bool exists = fstatat(directory.fd, name, &status, AT_SYMLINK_NOFOLLOW) == 0;
    machine::NewFile created(directory.fd, name);
    if (const auto opened = machine::OpenNewFile(&created, exists); !opened) return SaidAs("create", opened);
    const auto written = machine::WriteAll(created.file.fd, text.data(), text.size());
    if (!written) return SaidAs("write", written);
    const auto taken = exists ? machine::TakeOver(created) : machine::Status();
    if (!taken) return SaidAs("take over", taken);
    return machine::PutInPlace(&created, exists);
  }

  std::string Attribute(const char *name) const {
    char value[128] = "";
    const ssize_t size = getxattr(Host("d/old").c_str(), name, value, sizeof value);
    return size < 0 ? "(none)" : std::string(value, static_cast<size_t>(size));
  }

  machine::Descriptor directory;
  machine::Status failure;
};

TEST_F(ReplaceFile, TakesOverAllBesidesTheContents) {
  const std::string old = Host("d/old").string();
  const std::string large(1000, 'v');
  const bool attributes = setxattr(old.c_str(), "user.note", "kept", 4, 0) == 0;
  setxattr(old.c_str(), "user.empty", "", 0, 0);
  setxattr(old.c_str(), "trusted.large", large.data(), large.size(), 0);
  const bool settable = getxattr(old.c_str(), "trusted.large", nullptr, 0) == 1000;
  const timespec times[2] = {{1000, 7}, {2000, 0}};
  ASSERT_EQ(utimensat(-1, old.c_str(), times, 0), 0);
  if (geteuid() == 0) {
    ASSERT_EQ(chown(old.c_str(), 1234, 5678), 0);
  }
  ASSERT_EQ(chmod(old.c_str(), 04440), 0);
  // Every new file in the directory is to be read by one more user, by its default access list.
  const unsigned char list[] = {
      2, 0, 0, 0, 1,   0,   6,   0,   255, 255, 255, 255, 2,   0,   4,   0,   42, 0, 0, 0,  //
      4, 0, 0, 0, 255, 255, 255, 255, 16,  0,   4,   0,   255, 255, 255, 255, 32, 0, 0, 0, 255, 255, 255, 255};
  setxattr(Host("d").c_str(), "system.posix_acl_default", list, sizeof list, 0);
  struct stat before, after;
  ASSERT_EQ(stat(old.c_str(), &before), 0);
  ASSERT_EQ(Replace("old", "new"), nullptr);
  ASSERT_EQ(stat(old.c_str(), &after), 0);

  EXPECT_EQ(ReadFile("d/old"), "new");
  EXPECT_NE(after.st_ino, before.st_ino) << "the old file itself was written";
  EXPECT_EQ(after.st_uid, before.st_uid);
  EXPECT_EQ(after.st_gid, before.st_gid);
  EXPECT_EQ(after.st_mode, before.st_mode);
  EXPECT_EQ(after.st_atim.tv_sec, 1000);
  EXPECT_NE(after.st_mtim.tv_sec, 2000);
  EXPECT_EQ(Attribute("system.posix_acl_access"), "(none)") << "the directory's list let others in";
  if (!attributes) GTEST_SKIP() << "this file system has no extended attributes";
  EXPECT_EQ(Attribute("user.note"), "kept");
  EXPECT_EQ(Attribute("user.empty"), "");
  EXPECT_EQ(getxattr(old.c_str(), "trusted.large", nullptr, 0), settable ? 1000 : -1);
}

TEST_F(ReplaceFile, AFileOfAnotherStaysTheirs) {
  if (geteuid() != 0) GTEST_SKIP() << "only an administrator can become somebody else";
  ASSERT_EQ(chmod(Host("d").c_str(), 0777), 0);
  ASSERT_EQ(seteuid(65534), 0);
  const char *failed = Replace("old", "new");
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_STREQ(failed, "take over");
  EXPECT_EQ(ReadFile("d/old"), "old");
  EXPECT_THAT(Names("d"), testing::ElementsAre("old"));
}

TEST_F(ReplaceFile, AFailingStepLeavesTheOldFile) {
  const struct {
    const char *step, *failed;
    bool inPlace;
  } cases[] = {{"file without name", nullptr, true},  // no failure: it has a name from the beginning
               {"file create", "create", false},
               {"file take over", "take over", false},
               {"file flush", "the new file cannot be flushed to disk", false},
               {"file rename", "the new file cannot take its place", false},
               {"directory flush", "the new file is in place but its directory cannot be flushed to disk", true}};
  for (const auto &c : cases) {
    for (const bool leftOver : {false, true}) {
      SCOPED_TRACE(std::string(c.step) + (leftOver ? " after a stopped run" : ""));
      WriteFile("d/old", "old");
      if (leftOver) WriteFile("d/.old.vxr-tmp", "of a run that was stopped");
      machine::SetFaultPlan({c.step, 1, false, 0});
      EXPECT_STREQ(Replace("old", "new"), c.failed);
      EXPECT_EQ(machine::FaultsMet(), 1u);
      machine::SetFaultPlan({});
      EXPECT_EQ(ReadFile("d/old"), c.inPlace ? "new" : "old");
      std::filesystem::remove(Host("d/.old.vxr-tmp"));  // a file that could not be made clears nothing
      EXPECT_THAT(Names("d"), testing::ElementsAre("old"));
    }
  }
  EXPECT_EQ(Replace("fresh", "new"), nullptr);
  const std::string longest = "\u00e4" + std::string(253, 'n');
  EXPECT_EQ(Replace(longest.c_str(), "new"), nullptr);
  EXPECT_EQ(Replace(longest.c_str(), "newer"), nullptr);
  EXPECT_THAT(Names("d"), testing::UnorderedElementsAre("old", "fresh", longest));
}

// Of two runs at once on one file, with names from the beginning or not, one fails, and the other's file is whole.
TEST_F(ReplaceFile, TwoAtOnceDoNotMix) {
  for (const bool named : {false, true}) {
    machine::SetFaultPlan({named ? "file without name" : nullptr, 1, true, 0});
    WriteFile("d/old", "old");
    {
      machine::NewFile first(directory.fd, "old");
      ASSERT_TRUE(machine::OpenNewFile(&first, true));
      const char *failed = Replace("old", "of the second");
      EXPECT_STREQ(failed, named ? "create" : nullptr);
      ASSERT_TRUE(machine::WriteAll(first.file.fd, "of the first", 12));
      EXPECT_TRUE(machine::PutInPlace(&first, true));
    }
    EXPECT_EQ(ReadFile("d/old"), "of the first");
    EXPECT_THAT(Names("d"), testing::ElementsAre("old"));
  }
}

TEST_F(ReplaceFile, AFullDiskKeepsTheOldFile) {
  if (mount("tmpfs", Host("d").c_str(), "tmpfs", 0, "size=64k") != 0) GTEST_SKIP() << "nothing may be mounted here";
  Reopen();
  WriteFile("d/old", "old");
  for (const bool named : {false, true}) {
    machine::SetFaultPlan({named ? "file without name" : nullptr, 1, false, 0});
    EXPECT_STREQ(Replace("old", std::string(1 << 20, 'x')), "write");
    EXPECT_EQ(failure.error, ENOSPC);
    EXPECT_EQ(ReadFile("d/old"), "old");
    EXPECT_THAT(Names("d"), testing::ElementsAre("old"));
  }
  EXPECT_EQ(Replace("old", "new"), nullptr) << "the space is free again";
  directory = {};
  EXPECT_EQ(umount(Host("d").c_str()), 0);
}

// A restored system is on such a file system, which makes no files without a name either.
TEST_F(ReplaceFile, NtfsKeepsWhatWindowsKnowsOfAFile) {
  const std::string image = Host("image"), mounted = Host("d");
  WriteFile("image", "");
  std::filesystem::resize_file(image, 4 << 20);
  const std::string make = "mkntfs -qFs 512 " + image + " && ntfs-3g " + image + " " + mounted;
  if (std::system(("{ " + make + "; } >/dev/null 2>&1").c_str()) != 0) GTEST_SKIP() << "no NTFS can be mounted here";
  Reopen();
  WriteFile("d/old", "old");
  // The local system's own file: it is owner and group, and alone may do anything with it.
  const std::string system("\1\1\0\0\0\0\0\5\x12\0\0\0", 12);
  const std::string rights("\2\0\x1c\0\1\0\0\0\0\0\x14\0\xff\1\x1f\0", 16);
  const std::string head("\1\0\4\x80\x14\0\0\0\x20\0\0\0\0\0\0\0\x2c\0\0\0", 20);
  const std::pair<const char *, std::string> attributes[] = {
      {"system.ntfs_acl", head + system + system + rights + system},
      {"system.ntfs_crtime_be", std::string("\1\xca\x43\x67\0\0\0\0", 8)},
      {"system.ntfs_attrib_be", std::string("\0\0\0\x26", 4)}};  // hidden, system, archive
  for (const auto &[name, value] : attributes) {
    EXPECT_EQ(setxattr(Host("d/old").c_str(), name, value.data(), value.size(), 0), 0) << name << strerror(errno);
  }
  EXPECT_EQ(Replace("old", "new"), nullptr) << strerror(errno);
  EXPECT_EQ(ReadFile("d/old"), "new");
  for (const auto &[name, value] : attributes) {
    const std::string kept = Attribute(name);
    EXPECT_TRUE(kept == value) << name << " is another";
  }
  EXPECT_THAT(Names("d"), testing::ElementsAre("old"));
  directory = {};
  EXPECT_EQ(umount(mounted.c_str()), 0);
}

}  // namespace
