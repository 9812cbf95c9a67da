// Which host file a Windows path names, and which it must not.
#include "platform/machine/files/paths.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "platform/machine/base/errors.h"
#include "platform/machine/files/path_syntax.h"
#include "platform/machine/host/listing.h"
#include "tests/support/standard_machine.h"
#include "tests/support/test_machine.h"

namespace {

using machine::HostPlace;

constexpr const char *kMore =
    "[[drive]]\nroot = 'R:\\'\ntype = 'cdrom'\npath = 'cd'\n"
    "[[drive]]\nroot = 'N:\\'\ntype = 'no_root'\n";

class PathsTest : public MachineTest {
 protected:
  PathsTest() {
    std::filesystem::create_directories(Host("cd"));
    WriteFile("secret/key.txt", "outside");
    WriteFile("restored/Windows/System32/Drivers/Disk.sys", "disk");
    WriteFile("restored/top.txt", "top");
  }

  void Link(const std::string &target, const std::string &link) { std::filesystem::create_symlink(target, Host(link)); }

  // What a read through the path gives; "error N" when it cannot be opened.
  static std::string Read(const std::string &path) {
    machine::Descriptor file;
    const machine::Status opened = machine::OpenHostFile(path.c_str(), O_RDONLY, &file);
    if (!opened) return "error " + std::to_string(machine::WindowsError(opened));
    char bytes[64];
    const ssize_t count = read(file.fd, bytes, sizeof bytes);
    return count < 0 ? "directory" : std::string(bytes, static_cast<std::size_t>(count));
  }

  std::size_t Refusals() const {
    return static_cast<std::size_t>(std::count_if(
        events.begin(), events.end(), [](const MachineEvent &e) { return e.kind == VXRMACHINE_PATH_REFUSED; }));
  }
};

struct PathCase {
  const char *path, *expected;
};

TEST_F(PathsTest, NamesFilesAsWindowsDoes) {
  Open(kMore);
  const std::string longName = "D:\\" + std::string(300, 'a');
  const std::string longButPrefixed = R"(\\?\D:\)" + std::string(130, '.') + R"(\..\top.txt)";
  const PathCase cases[] = {
      {R"(d:\WINDOWS\system32\DRIVERS\DISK.SYS)", "disk"},
      {R"(D:/Windows\\System32/.\Drivers/disk.sys)", "disk"},
      {R"(D:\Windows\nowhere\..\System32\Drivers\Disk.sys)", "disk"},
      {R"(D:top.txt)", "top"},
      {"D:\\top.txt. .", "top"},
      {R"(D:\Windows. \System32)", "directory"},
      {R"(D:\)", "directory"},
      {R"(N:\top.txt)", "error 3"},
      {R"(R:\top.txt)", "error 2"},
      {R"(\top.txt)", "error 3"},
      {R"(D:\top.txt:stream)", "error 123"},
      {R"(D:\a"b)", "error 123"},
      {R"(D:\a<b>c|d)", "error 123"},
      {"D:\\a\x01"
       "b",
       "error 123"},
      {R"(D:\ . \top.txt)", "error 123"},
      {R"(D:\...\top.txt)", "error 123"},
      {R"(D:\nul)", "error 123"},
      {R"(D:\Windows\COM1.txt)", "error 123"},
      {R"(D:\aux .sys\x)", "error 123"},
      {"D:\\COM\xB2.txt", "error 123"},
      {R"(D:\com10.txt)", "error 2"},
      {R"(D:\console)", "error 2"},
      {longName.c_str(), "error 3"},
      {longButPrefixed.c_str(), "error 123"},
  };
  for (const PathCase &c : cases) EXPECT_EQ(Read(c.path), c.expected) << c.path;
  EXPECT_EQ(Read(Host("secret/key.txt").string()), "outside");
  EXPECT_EQ(Read(Host("secret/absent").string()), "error 2");
  EXPECT_EQ(Refusals(), 0u);
}

TEST_F(PathsTest, NeverLeavesTheDrive) {
  Link("../secret", "restored/out");
  Link(Host("secret").string(), "restored/absolute");
  Link(Host("restored/top.txt").string(), "restored/absolute_inside");
  Link("Windows/../../secret/key.txt", "restored/twisted.txt");
  Link("../secret/new.txt", "restored/dangling.txt");
  Link("circle", "restored/circle");
  Link("out", "restored/indirect");
  Open(kMore);
  const char *const paths[] = {
      R"(D:\..\secret\key.txt)", R"(D:\Windows\..\..\secret\key.txt)",
      R"(D:\out\key.txt)",       R"(D:\OUT\KEY.TXT)",
      R"(D:\absolute\key.txt)",  R"(D:\absolute_inside)",
      R"(D:\twisted.txt)",       R"(D:\TWISTED.TXT)",
      R"(D:\dangling.txt)",      R"(D:\circle)",
      R"(D:\circle\x)",          R"(D:\indirect\key.txt)",
  };
  std::size_t refusals = 0;
  for (const char *path : paths) {
    EXPECT_EQ(Read(path), "error 5") << path;
    EXPECT_EQ(Refusals(), ++refusals) << path;
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.back().subject, path);
    EXPECT_NE(events.back().detail, "") << path;
    machine::Descriptor file;
    EXPECT_FALSE(machine::OpenHostFile(path, O_CREAT | O_WRONLY, &file)) << path;
    ++refusals;
  }
  EXPECT_FALSE(std::filesystem::exists(Host("secret/new.txt")));
}

TEST_F(PathsTest, FollowsLinksInsideTheDrive) {
  Link("Windows/System32", "restored/sys");
  Link("../../top.txt", "restored/Windows/System32/up.txt");
  Link("System32/../../later.txt", "restored/Windows/later.txt");
  Open(kMore);
  EXPECT_EQ(Read(R"(D:\sys\drivers\disk.sys)"), "disk");
  EXPECT_EQ(Read(R"(D:\SYS\UP.TXT)"), "top");
  EXPECT_EQ(Read(R"(D:\sys\up.txt)"), "top");

  HostPlace place;
  ASSERT_TRUE(machine::LocatePlace(R"(D:\windows\LATER.txt)", &place));
  EXPECT_FALSE(place.exists);
  EXPECT_TRUE(place.throughLink);
  EXPECT_EQ(place.name, "later.txt");
  machine::Descriptor file;
  ASSERT_TRUE(machine::OpenHostFile(R"(D:\windows\LATER.txt)", O_CREAT | O_WRONLY, &file));
  EXPECT_TRUE(std::filesystem::is_regular_file(Host("restored/later.txt")));
}

TEST_F(PathsTest, FindsTheSpellingOnDisk) {
  WriteFile("restored/both.txt", "lower");
  WriteFile("restored/BOTH.txt", "upper");
  WriteFile("restored/\xC3\x84rger.txt", "umlaut");
  Open(kMore);
  EXPECT_EQ(Read(R"(D:\both.txt)"), "lower");
  EXPECT_EQ(Read(R"(D:\BOTH.txt)"), "upper");
  EXPECT_EQ(Read(R"(D:\Both.TXT)"), "upper");  // the first in byte order
  EXPECT_EQ(Read("D:\\\xE4RGER.TXT"), "umlaut");

  machine::Descriptor file;
  ASSERT_TRUE(machine::OpenHostFile(R"(D:\TOP.TXT)", O_CREAT | O_WRONLY, &file));
  EXPECT_FALSE(std::filesystem::exists(Host("restored/TOP.TXT"))) << "a second file that differs in case alone";
}

TEST_F(PathsTest, TwoByteCharactersMayEndInABackslashByte) {
  WriteFile("restored/\xE8\xA1\xA8/a.txt", "table");  // U+8868 is 95 5C in code page 932
  Open(kMore, std::string(kStandardSystem) + "code_page = 932\n");
  EXPECT_EQ(Read("D:\\\x95\x5C\\A.txt"), "table");
}

TEST_F(PathsTest, ReadsALargeDirectoryRarely) {
  std::filesystem::create_directories(Host("restored/pack"));
  for (int i = 0; i < 2000; ++i) WriteFile("restored/pack/Oem" + std::to_string(i) + ".inf", "");
  Open(kMore);
  unsigned before = machine::ListingsRead();
  for (int i = 0; i < 2000; ++i) {
    ASSERT_EQ(Read(R"(D:\pack\Oem)" + std::to_string(i) + ".inf"), "");
  }
  EXPECT_EQ(machine::ListingsRead(), before) << "exact names need no listing";

  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // past the clock tick of the last change
  before = machine::ListingsRead();
  for (int i = 0; i < 2000; ++i) {
    ASSERT_EQ(Read(R"(D:\pack\missing)" + std::to_string(i) + ".inf"), "error 2");
  }
  EXPECT_LE(machine::ListingsRead() - before, 2u);
}

TEST_F(PathsTest, SeesChangesAtOnce) {
  Open(kMore);
  for (int i = 0; i < 200; ++i) {
    const std::string name = "File" + std::to_string(i) + ".txt";
    const std::string asked = R"(D:\Windows\FILE)" + std::to_string(i) + ".TXT";
    ASSERT_EQ(Read(asked), "error 2");
    WriteFile("restored/Windows/" + name, "new");
    ASSERT_EQ(Read(asked), "new");
    std::filesystem::remove(Host("restored/Windows/" + name));
    ASSERT_EQ(Read(asked), "error 2");
  }
}

TEST_F(PathsTest, NeedsAMachine) {
  EXPECT_EQ(Read(R"(D:\top.txt)"), "error 21");
  EXPECT_EQ(Read(Host("secret/key.txt").string()), "error 21");
}

}  // namespace
