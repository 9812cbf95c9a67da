// A restored system by its own files, true and contradicting ones, and what forbids changing it.
#include "rescue/restored_system.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <functional>

#include "platform/machine/base/little_endian.h"
#include "rescue/boot_drivers.h"
#include "rescue/hibernation.h"
#include "rescue/ntfs_volume.h"
#include "rescue/obstacles.h"
#include "tests/support/hive_builder.h"
#include "tests/support/pe_builder.h"

namespace rescue {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr char kVersionKey[] = "Microsoft\\Windows NT\\CurrentVersion", kControl[] = "ControlSet001\\Control";

struct Kernel {
  unsigned major, minor, build, machine;
};

std::string KernelImage(const Kernel &kernel) {
  std::string image = BuildImage(VersionTree({}));
  machine::WriteLe32(&image[image.find("\xBD\x04\xEF\xFE") + 8], kernel.major << 16 | kernel.minor);
  machine::WriteLe32(&image[image.find("\xBD\x04\xEF\xFE") + 12], kernel.build << 16);
  const std::size_t at = image.find(std::string("PE\0\0", 4)) + 4;
  image[at] = static_cast<char>(kernel.machine);
  image[at + 1] = static_cast<char>(kernel.machine >> 8);
  return image;
}

class Restored : public testing::Test {
 protected:
  Restored() {
    std::string name = fs::temp_directory_path() / "vxr-restored-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) ADD_FAILURE() << name;
    base = fs::canonical(name);
  }
  ~Restored() override { fs::remove_all(base); }

  void Write(const fs::path &file, const std::string &bytes) {
    fs::create_directories((base / file).parent_path());
    std::ofstream(base / file, std::ios::binary) << bytes;
  }
  // "v/Windows" with these values beside the usual ones.
  void Restore(std::vector<HiveValue> values, const std::vector<HiveValue> &software, const Kernel &kernel) {
    std::vector<HiveValue> all = SystemHiveValues(1);
    all.push_back(TextValue(std::string(kControl) + "\\ProductOptions", "ProductType", "WinNT"));
    all.push_back(TextValue(std::string(kControl) + "\\Nls\\Language", "Default", "0407"));
    all.push_back(TextValue(std::string(kControl) + "\\Nls\\CodePage", "ACP", "1252"));
    all.insert(all.end(), values.begin(), values.end());
    Write("v/Windows/System32/Config/SYSTEM", "");
    WriteHive(base / "v/Windows/System32/Config/SYSTEM", all);
    if (!software.empty()) WriteHive(base / "v/Windows/System32/Config/software", software);
    if (kernel.major != 0) Write("v/Windows/System32/NTOSKRNL.EXE", KernelImage(kernel));
  }
  RestoredSystem Find() {
    RestoredSystem system;
    const machine::Status found = FindWindows(base / "v", &system);
    EXPECT_TRUE(found) << Words(found);
    return system;
  }
  // The facts in one line and the doubts below, or the failure.
  std::string Read() {
    RestoredSystem s = Find();
    if (const machine::Status read = ReadRestoredSystem(&s); !read) return Words(read);
    char text[300];
    std::snprintf(text, sizeof text,
                  "%u.%u.%u.%u arch %u product %u suite 0x%X lang %04X page %u set %u db %d %c %s %s", s.major, s.minor,
                  s.build, s.revision.value_or(0), s.architecture, s.product, s.suite, s.language, s.codePage,
                  s.controlSet, s.driverDatabase, s.drive, s.productName.c_str(), s.release.c_str());
    std::string all = text;
    for (const std::string &doubt : s.doubts) all += "\n" + doubt;
    return all;
  }

  fs::path base;
};

HiveValue Version(const char *name, const std::string &text) { return TextValue(kVersionKey, name, text); }
HiveValue VersionNumber(const char *name, unsigned number) { return NumberValue(kVersionKey, name, number); }

TEST_F(Restored, FactsOfEveryFileAndTheirContradictions) {
  const HiveValue database = OnlyKey("DriverDatabase");
  const std::vector<HiveValue> ten = {Version("CurrentVersion", "6.3"),
                                      VersionNumber("CurrentMajorVersionNumber", 10),
                                      VersionNumber("CurrentMinorVersionNumber", 0),
                                      Version("CurrentBuildNumber", "19045"),
                                      VersionNumber("UBR", 3636),
                                      Version("ProductName", "Windows 10 Pro"),
                                      Version("DisplayVersion", "22H2"),
                                      Version("ReleaseId", "2009"),
                                      Version("SystemRoot", "D:\\WINDOWS"),
                                      Version("InstallationType", "Client")};
  const auto with = [](std::vector<HiveValue> values, const HiveValue &more) {
    values.push_back(more);
    return values;
  };
  const std::vector<HiveValue> old = {Version("CurrentVersion", "5.2"), Version("CurrentBuildNumber", "3790")};
  const HiveValue server = TextValue(std::string(kControl) + "\\ProductOptions", "ProductType", "ServerNT");
  HiveValue suites = TextValue(std::string(kControl) + "\\ProductOptions", "ProductSuite", "Enterprise");
  const HiveValue second = TextValue("", "", "terminal server");
  suites.type = 7;
  suites.data.insert(suites.data.end(), second.data.begin(), second.data.end());
  suites.data.insert(suites.data.end(), 2, 0);
  const HiveValue manyUsers = NumberValue(std::string(kControl) + "\\Terminal Server", "TSAppCompat", 1);
  const HiveValue processor =
      TextValue(std::string(kControl) + "\\Session Manager\\Environment", "PROCESSOR_ARCHITECTURE", "ARM64");
  const std::string good =
      "10.0.19045.3636 arch 9 product 1 suite 0x100 lang 0407 page 1252 set 1 db 1 D Windows 10 Pro 22H2";
  constexpr Kernel kTen = {10, 0, 19041, 0x8664}, kOld = {5, 2, 3790, 0x14C}, kNone = {0, 0, 0, 0};
  const struct {
    std::vector<HiveValue> system, software;
    Kernel kernel;
    std::string expected;  // as a whole, or a part that begins with "..."
  } kCases[] = {
      {{database}, ten, kTen, good},
      {{database},
       with(ten, Version("CurrentBuildNumber", "22631")),
       {10, 0, 22621, 0xAA64},
       "...22631.3636 arch 12 product 1 suite 0x100 lang 0407 page 1252 set 1 db 1 D Windows 11 Pro 22H2"},
      {{server, suites}, old, kOld, "5.2.3790.0 arch 0 product 3 suite 0x112 lang 0407 page 1252 set 1 db 0 C  "},
      {{server, suites, manyUsers}, old, kOld, "...suite 0x12 "},
      {{suites}, old, {5, 0, 2195, 0x14C}, "...suite 0x12 "},
      {{database}, ten, kNone, "...\nits ntoskrnl.exe is missing: the version is the SOFTWARE hive's"},
      {{database, processor}, ten, kNone, "...3636 arch 12 "},
      {{database, processor}, ten, kTen, "...3636 arch 9 "},
      {{database, processor}, ten, kTen, "...says ARM64: ntoskrnl.exe is believed"},
      {{database},
       {},
       kTen,
       "10.0.19041.0 arch 9 product 1 suite 0x100 lang 0407 page 1252 set 1 db 1 C  \n"
       "its SOFTWARE hive is missing: the version is ntoskrnl.exe's"},
      {{database}, ten, {6, 3, 9600, 0x8664}, "...is 6.3, its SOFTWARE hive says 10.0: ntoskrnl.exe is believed"},
      {{database}, ten, {10, 0, 14393, 0x8664}, "...is of build 14393, its SOFTWARE hive says 19045"},
      {{}, ten, kTen, "...that of 6.1 or earlier (it has no DriverDatabase)"},
      {{database, server}, ten, kTen, "...that of a server, its SOFTWARE hive says Client"},
      {{database}, with(ten, Version("SystemRoot", "E:\\WINNT")), kTen, "...in E:\\WINNT, it is in Windows"},
      {{TextValue(std::string(kControl) + "\\Nls\\CodePage", "ACP", "65001")}, ten, kTen, "...page is 65001"},
      {{TextValue(std::string(kControl) + "\\Nls\\Language", "Default", "x")}, ten, kTen, "...tell its language"},
      {{}, {Version("CurrentVersion", "4.0")}, kNone, "...is 4.0; drivers can be chosen for 5.0"},
      {{},
       with(ten, VersionNumber("CurrentMajorVersionNumber", 70000)),
       kNone,
       "...cannot be told: ntoskrnl.exe is miss"},
      {{}, {Version("CurrentVersion", "six")}, kNone, "...the SOFTWARE hive does not tell its version; restore both"},
      {{database, NumberValue("Select", "Default", 2)},
       ten,
       kTen,
       "...ControlSet002 next, and used ControlSet001 last"},
      {{NumberValue("Select", "Current", 7)}, ten, kTen, "...Select names ControlSet007, which it has not"},
  };
  for (const auto &each : kCases) {
    fs::remove_all(base / "v");
    Restore(each.system, each.software, each.kernel);
    const bool part = each.expected.starts_with("...");
    EXPECT_THAT(Read(), part ? testing::Matcher<std::string>(HasSubstr(each.expected.substr(3))) : each.expected);
  }
}

TEST_F(Restored, RealHives) {
  const char *corpus = std::getenv("VXR_CORPUS_DIR");
  if (corpus == nullptr) GTEST_SKIP() << "no corpus";
  const struct {
    const char *file;
    Kernel kernel;
    const char *expected;
  } kCases[] = {{"SYSTEM-6.1",
                 {6, 1, 7601, 0x8664},
                 "6.1.7601.0 arch 9 product 1 suite 0x100 lang 0409 page 1252 set 1 db 0 C  \n"},
                {"SYSTEM-6.3",
                 {6, 3, 9600, 0x8664},
                 "6.3.9600.0 arch 9 product 1 suite 0x100 lang 0409 page 1252 set 1 db 1 C  \n"}};
  for (const auto &each : kCases) {
    Restore({}, {}, each.kernel);
    ASSERT_EQ(std::system(("xz -dkc '" + std::string(corpus) + "/hives/" + each.file + ".xz' > '" +
                           (base / "v/Windows/System32/Config/SYSTEM").string() + "'")
                              .c_str()),
              0);
    EXPECT_THAT(Read(), testing::StartsWith(each.expected));
  }
}

TEST_F(Restored, WindowsIsFoundOrWhatToNameInstead) {
  const std::string hive = "/SYSTEM32/config/System";
  const struct {
    std::vector<std::string> files;
    std::string root, expected;  // the Windows directory below the volume and the number of doubts, or part of a line
  } kCases[] = {
      {{"v/WINNT" + hive, "v/Users/x"}, "v", "v WINNT 0"},
      {{"v/WINNT" + hive}, "v/WINNT", "v WINNT 0"},
      {{"v/Windows" + hive, "v/Windows.old/WINDOWS" + hive}, "v", "v Windows 1"},
      {{"v/Windows" + hive, "v/windows.OLD.000/WINDOWS" + hive},
       "v/windows.OLD.000/WINDOWS",
       "v windows.OLD.000/WINDOWS 1"},
      {{"v/Windows.old/WINDOWS" + hive}, "v/Windows.old", "v Windows.old/WINDOWS 1"},
      {{"v/Windows.old/WINDOWS" + hive}, "v", "name it: " + (base / "v/Windows.old/WINDOWS").string()},
      {{"v/Windows" + hive, "v/WIN2" + hive}, "v", "more than one Windows (WIN2, Windows)"},
      {{"v/Windows" + hive}, "v/Windows/SYSTEM32", "inside a Windows directory: name " + (base / "v/Windows").string()},
      {{"v/Windows/system32/ntdll.dll"}, "v", "Windows has a system32 directory but no config/SYSTEM"},
      {{"v/lost+found/x"}, "v", "It is empty"},
      {{"v/etc/passwd", "v/usr/x"}, "v", "Linux"},
      {{"v/EFI/Boot/bootx64.efi"}, "v", "EFI system partition"},
      {{"v/Recovery/WindowsRE/Winre.wim"}, "v", "recovery partition"},
      {{"v/photos/1.jpg"}, "v", "no directory in it has system32/config/SYSTEM; name the directory"},
      {{"v/x"}, "w", "does not exist; correct the path"},
      {{"v/x"}, "v/x", "v/x is a file; name the directory"},
  };
  for (const auto &each : kCases) {
    fs::remove_all(base / "v");
    for (const std::string &file : each.files) Write(file, "x");
    RestoredSystem system;
    const machine::Status found = FindWindows(base / each.root, &system);
    std::string answer = Words(found);
    if (found) {
      answer = system.volume.lexically_relative(base).string() + " " +
               system.windows.lexically_relative(system.volume).string() + " " + std::to_string(system.doubts.size());
    }
    EXPECT_THAT(answer, HasSubstr(each.expected)) << each.root;
  }
  // A link leads to another system's files, or in a circle.
  Write("other/Windows" + hive, "x");
  fs::create_directory_symlink(base / "other/Windows", base / "v/Windows");
  fs::create_directory_symlink(".", base / "v/system32");
  RestoredSystem system;
  EXPECT_THAT(Words(FindWindows(base / "v", &system)), HasSubstr("Windows is a link, which is not followed"));
}

TEST_F(Restored, ObstaclesAreFound) {
  const auto hibernate = [&](const char *signature) {
    return [this, signature] { Write("v/HIBERFIL.sys", signature + std::string(9000, 'm')); };
  };
  Mount mount = {"none", "ntfs3", base / "v", false, 0, 0};
  const auto mounted = [&mount](const char *type, bool readOnly) {
    return [&mount, type, readOnly] { mount.type = type, mount.readOnly = readOnly; };
  };
  const auto mapped = [&] {
    mount.major = 253;
    Write("sys/dev/block/253:0/slaves/dm-1/dm/uuid", "CRYPT-BITLK-1");
  };
  const auto image = [&](const std::string &bytes) {
    return [&, bytes] { Write("image", bytes), mount.source = base / "image"; };
  };
  const struct {
    std::function<void()> change;
    std::string expected;  // words
  } kCases[] = {
      {[] {}, ""},
      {hibernate("hibr"), "hibernated!"},
      {hibernate("HIBR"), "hibernated!"},
      {hibernate("RSTR"), "hibernated!"},
      {hibernate("wake"), ""},
      {[&] { Write("v/hiberfil.sys", "h"); }, ""},
      {mounted("ntfs3", true), "read-only"},
      {mounted("vfat", false), "not-ntfs"},
      {mapped, "encrypted"},
      {image("\xEB\x52\x90-FVE-FS-" + std::string(600, 'x')), "encrypted"},
      {image("\xEB\x52\x90NTFS    " + std::string(600, 'x')), ""},
      {[&] { Write("v/WINDOWS/x", ""); }, "double-name"},
      {[&] { Write("v/Windows/system32/x", ""), Write("v/Windows/System32/Drivers/x", ""); }, "double-name"},
      {[&] { Write("v/Windows/System32/Config/SYSTEM.log1", ""), Write("v/Windows/System32/Config/SYSTEM.LOG1", ""); },
       "double-name unusable-hive"},
      {[&] {
         std::vector<uint8_t> hive = BuildHive(SystemHiveValues(1));
         hive[4] = 9;
         SetHiveChecksum(&hive);
         Write("v/Windows/System32/Config/SYSTEM", std::string(hive.begin(), hive.end()));
       },
       "dirty-hive"},
      {[&] { Write("v/Windows/System32/Config/SYSTEM", "no hive"); }, "unusable-hive"},
  };
  for (const auto &each : kCases) {
    fs::remove_all(base / "v");
    Restore({}, {}, {10, 0, 19041, 0x8664});
    RestoredSystem system = Find();
    system.major = 10;
    mount = {"none", "ntfs3", base / "v", false, 0, 0};
    each.change();
    std::string words;
    for (const Obstacle &obstacle : FindObstacles(system, &mount, base / "sys")) {
      words += (words.empty() ? "" : " ") + obstacle.word + (obstacle.forcible ? "!" : "");
      EXPECT_EQ(obstacle.text.find('\n'), std::string::npos);
    }
    EXPECT_EQ(words, each.expected);
    EXPECT_TRUE(ForgetHibernation(system));
    bool kept = true;
    EXPECT_TRUE(FindHibernation(system, &kept) && !kept);
  }
  Write("v/hiberfil.sys", "hibr" + std::string(9000, 'm'));
  const RestoredSystem system = Find();
  ASSERT_TRUE(ForgetHibernation(system));
  std::ifstream file(base / "v/hiberfil.sys", std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  EXPECT_TRUE(bytes == std::string(4096, '\0') + std::string(9004 - 4096, 'm'));
}

// Made, marked dirty and cleared by other programs; then with every byte that counts wrong.
TEST_F(Restored, NtfsVolumes) {
  const std::string image = (base / "ntfs").string();
  Write("ntfs", "");
  fs::resize_file(image, 4 << 20);
  if (std::system(("mkntfs -F -q -s 512 -p 0 -H 16 -S 63 '" + image + "' >/dev/null 2>&1").c_str()) != 0) {
    GTEST_SKIP() << "no mkntfs";
  }
  VolumeHead head;
  EXPECT_TRUE(ReadVolumeHead(image, &head) && head.kind == VolumeKind::kNtfs && !head.dirty);
  ASSERT_EQ(std::system(("ntfsfix '" + image + "' >/dev/null").c_str()), 0);
  EXPECT_TRUE(ReadVolumeHead(image, &head) && head.dirty);
  Restore({}, {}, {10, 0, 19041, 0x8664});
  const Mount mount = {image, "fuse", base / "v", true, 0, 0};
  EXPECT_EQ(FindObstacles(Find(), &mount).front().word, "dirty-volume");
  ASSERT_EQ(std::system(("ntfsfix -d '" + image + "' >/dev/null").c_str()), 0);
  EXPECT_TRUE(ReadVolumeHead(image, &head) && !head.dirty);

  std::fstream file(image, std::ios::in | std::ios::out | std::ios::binary);
  std::string boot(512, '\0');
  file.read(boot.data(), 512);
  const std::size_t cluster = static_cast<unsigned char>(boot[13]) * machine::ReadLe16(&boot[11]);
  const std::size_t record = machine::ReadLe32(&boot[48]) * cluster + 3 * 1024;
  unsigned refused = 0;
  for (const auto &[from, size] : {std::pair<std::size_t, std::size_t>{11, 60}, {record, 512}}) {
    for (std::size_t at = from; at < from + size; ++at) {
      file.seekg(static_cast<std::streamoff>(at));
      const int old = file.get();
      for (const int wrong : {0, 0x7F, 0x80, 0xFF}) {
        file.seekp(static_cast<std::streamoff>(at)).put(static_cast<char>(wrong)).flush();
        refused += ReadVolumeHead(image, &head) ? 0 : 1;
      }
      file.seekp(static_cast<std::streamoff>(at)).put(static_cast<char>(old)).flush();
    }
  }
  EXPECT_GT(refused, 100U);
  EXPECT_TRUE(ReadVolumeHead(image, &head));
}

// Where each way of naming an image leads, and what is told of a driver that the system would load or hold back.
TEST_F(Restored, BootDriversAndTheDevicesThatNameThem) {
  std::vector<HiveValue> values;
  const auto add = [&](const char *name, const char *image, unsigned type = 1, unsigned start = 0) {
    const std::string key = std::string("ControlSet001\\Services\\") + name;
    values.push_back(NumberValue(key, "Type", type));
    values.push_back(NumberValue(key, "Start", start));
    if (image != nullptr) values.push_back(TextValue(key, "ImagePath", image));
  };
  add("bare", nullptr);
  add("relative", "system32\\DRIVERS\\Bare.sys");
  add("root", "\\SystemRoot\\System32\\drivers\\bare.sys");
  add("drive", "\\??\\C:\\Windows\\System32\\drivers\\bare.sys");
  add("outside", "\\SystemRoot\\..\\..\\..\\base");
  add("elsewhere", "\\??\\E:\\bare.sys");
  add("text", "system32\\drivers\\text.sys", 2);
  add("later", nullptr, 1, 1);
  add("program", nullptr, 0x10);
  values.push_back(NumberValue("ControlSet001\\Services\\root\\StartOverride", "0", 3));
  values.push_back(TextValue(std::string(kControl) + "\\CriticalDeviceDatabase\\pci#cc_0106", "Service", "bare"));
  Restore(values, {}, {6, 1, 7601, 0x8664});
  Write("v/Windows/System32/Drivers/BARE.SYS", KernelImage({6, 1, 7601, 0x8664}));
  Write("v/Windows/System32/Drivers/text.sys", "no image");
  RestoredSystem system = Find();
  ASSERT_TRUE(ReadRestoredSystem(&system));
  BootState state;
  ASSERT_TRUE(ReadBootState(system, {"PCI\\CC_0106", "PCI\\CC_0104"}, &state));
  std::vector<std::string> told;
  for (const BootDriver &driver : state.drivers) {
    told.push_back(driver.service + " " + driver.file.filename().string() + " " + driver.version +
                   (driver.architecture ? "" : " none") + (driver.startOverride ? " held" : ""));
  }
  for (const BootDevice &device : state.asked) told.push_back(device.id + " " + device.service);
  EXPECT_THAT(told, testing::ElementsAre("atapi   none", "bare BARE.SYS 6.1.7601.0", "disk   none",
                                         "drive BARE.SYS 6.1.7601.0", "elsewhere   none", "outside   none",
                                         "relative BARE.SYS 6.1.7601.0", "root BARE.SYS 6.1.7601.0 held",
                                         "text text.sys  none", "PCI\\CC_0106 bare", "PCI\\CC_0104 "));
}

}  // namespace
}  // namespace rescue
