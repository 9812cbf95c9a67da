#include "platform/machine/description/description.h"

#include <regex>

#include "platform/machine/description/records.h"
#include "tests/support/standard_machine.h"
#include "tests/support/test_machine.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

// Reads machine files of the test's folder without opening the machine.
struct DescriptionTest : MachineTest {
  bool Read(const std::string &toml) {
    WriteFile("m.toml", toml);
    return ReadFile(Host("m.toml"));
  }
  bool ReadFile(const std::filesystem::path &file) {
    const machine::Status read = machine::ReadDescription(file, &description);
    error = Words(read);
    return static_cast<bool>(read);
  }
  machine::Description description;
  std::string error;
};

// What other tests' machines leave as it is by itself, or spell as it is kept.
TEST_F(DescriptionTest, ReadsRareKeysAndSpellings) {
  ASSERT_TRUE(Read(R"([system]
system_directory = 'X:\Windows\System32'
windows_directory = 'x:\Windows\'
os = { major = 6, minor = 1, sp_minor = 3 }
page_size = 8192
code_page = 932
language = 0x0411
[[drive]]
root = 'x:'
type = 'fixed'
path = 'ram'
label = '日本'
unique_id = '01 02 aB'
[[device]]
instance = 'PCI\VEN_1000\3'
class = 'scsiadapter'
[[device]]
instance = 'ACPI\PNP0A03\2'
class = '{12345678-abcd-1234-1234-123456789abc}'
[registry.'SOFTWARE\Maker']
text = 'ä'
)")) << error;
  const machine::System &system = description.system;
  EXPECT_EQ(system.windowsDirectory, "x:\\Windows");
  EXPECT_THAT((std::vector<DWORD>{system.servicePackMinor, system.pageSize, system.codePage, system.language}),
              ElementsAre(3, 8192, 932, 0x0411));
  const machine::Drive &drive = description.drives.at(0);
  EXPECT_EQ(drive.root, "X:\\");
  EXPECT_EQ(drive.label, "\x93\xFA\x96\x7B");
  EXPECT_THAT(drive.uniqueId, ElementsAre(1, 2, 0xAB));
  const machine::Device &known = description.devices.at(0), &other = description.devices.at(1);
  EXPECT_EQ(known.className + known.classGuid, "SCSIAdapter{4D36E97B-E325-11CE-BFC1-08002BE10318}");
  EXPECT_EQ(other.className + other.classGuid, "{12345678-ABCD-1234-1234-123456789ABC}");
  EXPECT_EQ(std::get<std::string>(description.registry.at(0).data), "\u00E4") << "it is kept in UTF-8";
}

TEST_F(DescriptionTest, FillsInDefaults) {
  ASSERT_TRUE(Read(std::string(kLeastMachine) +
                   "[names]\ncomputer = 'BOX'\ndns_domain = 'lan'\n[[drive]]\nroot = 'E:\\'\n"
                   "type = 'cdrom'\n"))
      << error;
  const machine::System &system = description.system;
  EXPECT_THAT((std::vector<DWORD>{system.osBuild, system.osPlatform, system.product, system.processorCount,
                                  system.processorArchitecture, system.processorType, system.pageSize}),
              ElementsAre(0, 2, 1, 1, 9, 8664, 4096));
  EXPECT_EQ(system.memory, 1u << 30);
  EXPECT_EQ(system.codePage, 1252u);
  EXPECT_EQ(system.language, 0x0409u);
  EXPECT_FALSE(system.clock || system.program);
  const machine::Names &names = description.names;
  EXPECT_EQ(names.netbios, "BOX");
  EXPECT_EQ(names.physicalNetbios, "BOX");
  EXPECT_EQ(names.dnsHostname, "BOX");
  EXPECT_EQ(names.physicalDnsFullyQualified, "BOX.lan");
  EXPECT_TRUE(description.drives.at(1).path.empty());
  EXPECT_THAT(description.devices, IsEmpty());
}

TEST_F(DescriptionTest, RefusesWithOneLine) {
  WriteFile("hive", "x");
  // What follows the eight lines of the base, and what the message says behind the file's name.
  struct {
    const char *rest, *message;
  } cases[] = {
      {"x = = 1", "9: not TOML: "},
      {"root = 'Y:\\'", "9: not TOML: "},  // a key twice in one table
      {"color = 1", "9: drive.color: unknown key; remove it, or use one of: root, type, "},
      {"lable = 'x'", "9: drive.lable: unknown key; did you mean label?"},
      {"[[device]]\nclas = 'Net'\ninstance = 'a\\b\\c'", "10: device.clas: unknown key; did you mean class?"},
      {"[drives]", "9: drives: unknown key; did you mean drive?"},
      {"[disk]\nnumber = 0", "9: disk: must be an array of tables; write [[disk]]"},
      {"disk = 3", "9: drive.disk: unknown key"},
      {"label = 3", "9: drive.label: must be a text in quotes"},
      {"label = \"a\\u0000b\"", "9: drive.label: holds a NUL character"},
      {"label = '日本'", "9: drive.label: holds a character that code page 1252 lacks"},
      {"serial = 'A'", "9: drive.serial: must be a whole number"},
      {"serial = 4294967296", "9: drive.serial: is 4294967296; it must be from 0 to 4294967295"},
      {"serial = -1", "9: drive.serial: is -1; it must be from 0 to"},
      {"unique_id = '01 2'", "9: drive.unique_id: must be pairs of hexadecimal digits"},
      {"unique_id = '0x01'", "9: drive.unique_id: must be pairs of hexadecimal digits"},
      {"extents = [ 1 ]", "9: drive.extents: must be a table"},
      {"extents = [ { disk = 0, start = 0 } ]", "9: drive.extents.length: is missing; add it"},
      {"[[drive]]\nroot = 'x:'\ntype = 'cdrom'", "10: drive.root: drive X:\\ is described twice"},
      {"[[drive]]\nroot = 'XY:'\ntype = 'cdrom'", "10: drive.root: must be a drive's root"},
      {"[[drive]]\nroot = 'Y:'\ntype = 'floppy'", "11: drive.type: \"floppy\" is no type of drive; use fixed, "},
      {"[[drive]]\nroot = 'Y:'", "9: drive.type: is missing; add it"},
      {"[[drive]]\nroot = 'Y:'\ntype = 'fixed'", "9: drive.path: is missing"},
      {"[[drive]]\nroot = 'Y:'\ntype = 'fixed'\npath = 'none'", "12: drive.path: there is no \""},
      {"[[drive]]\nroot = 'Y:'\ntype = 'fixed'\npath = 'hive'", "12: drive.path: \""},
      {"[[disk]]\nnumber = 1\n[[disk]]\nnumber = 1", "12: disk.number: disk 1 is described twice"},
      {"[[disk]]\nnumber = 1\ninterface = 'a#b'\n[[disk]]\nnumber = 2\ninterface = 'A#B'",
       "14: disk.interface: is that of disk 1 too"},
      {"[[disk]]\nnumber = 1\nimage = 'none.img'", "11: disk.image: there is no \""},
      {"[[disk]]\nnumber = 1\nimage = 'ram'", "11: disk.image: \""},
      {"[[disk]]\nnumber = 1\ngeometry = { heads = 1 }", "11: disk.geometry.cylinders: is missing"},
      {"[[disk]]\nnumber = 1\ngeometry = { cylinders = 1, heads = 0, sectors = 1 }",
       "11: disk.geometry.heads: is 0; it must be from 1 to"},
      {"[[device]]\ninstance = 'a\\b'", "10: device.instance: must be three parts"},
      {"[[device]]\ninstance = 'a\\b\\c\\d'", "10: device.instance: must be three parts"},
      {"[[device]]\ninstance = 'a\\b\\c'\n[[device]]\ninstance = 'A\\B\\C'", "12: device.instance: device A\\B\\C is"},
      {"[[device]]\ninstance = 'a\\b\\c'\nclass = 'Nett'", "11: device.class: \"Nett\" is no known class; use a name"},
      {"[[device]]\ninstance = 'a\\b\\c'\nclass = '{4D36E97B}'", "11: device.class: \"{4D36E97B}\" is no known"},
      {"[[device]]\ninstance = 'a\\b\\c'\nparent = 'no\\such\\one'", "11: device.parent: there is no device no\\such"},
      {"[[device]]\ninstance = 'a\\b\\c'\nparent = 'a\\b\\c'", "11: device.parent: the device is its own ancestor"},
      {"[[device]]\ninstance = 'a\\b\\1'\nparent = 'a\\b\\2'\n[[device]]\ninstance = 'a\\b\\2'\nparent = 'a\\b\\1'",
       "11: device.parent: the device is its own ancestor"},
      {"[[device]]\ninstance = 'a\\b\\c'\nhardware_ids = 'x'", "11: device.hardware_ids: must be an array of texts"},
      {"[[device]]\ninstance = 'a\\b\\c'\nhardware_ids = ['x', '']", "11: device.hardware_ids: holds an empty text"},
      {"[[hive]]\nkey = 'SOFTWARE'\nfile = 'none'", "11: hive.file: there is no \""},
      {"[[hive]]\nkey = 'S\\'\nfile = 'hive'", "10: hive.key: must be a key below"},
      {"[[hive]]\nkey = 'S'\nfile = 'hive'\n[[hive]]\nkey = 's'\nfile = 'hive'", "13: hive.key: key s has two hives"},
      {"[registry.'\\A']\na = 1", "9: registry.'\\A': must be a key below"},
      {"[registry.'A']", "9: registry.A: has no values"},
      {"[registry.'A']\nb = 1.5", "10: registry.A.b: must be a text, a whole number, an array"},
      {"[registry.'A']\nb = -1", "10: registry.A.b: is -1; it must be"},
      {"[registry.'A']\nb = ['x', 1]", "10: registry.A.b: must be a text in quotes"},
      {"[registry.'A']\nb = { type = 3 }", "10: registry.A.b.hex: is missing"},
      {"[registry.A.B]\nb = 1", "9: registry.A.B: is a table without type and hex; quote a key as a whole"},
      {"[prompts]\ncancel_search = ['maybe']", "10: prompts.cancel_search: \"maybe\" is no answer; use yes or no"},
  };
  for (const auto &c : cases) {
    EXPECT_FALSE(Read(std::string(kLeastMachine) + c.rest + "\n")) << c.rest;
    EXPECT_THAT(error, StartsWith(Host("m.toml").string() + ":" + c.message)) << c.rest;
    EXPECT_THAT(error, testing::Not(HasSubstr("\n")));
  }
}

TEST_F(DescriptionTest, RefusesABadSystem) {
  // A replacement in the base, and the message.
  struct {
    const char *from, *to, *message;
  } cases[] = {
      {"\\[system\\]", "[sytem]", "1: sytem: unknown key; did you mean system?"},
      {"system_directory[^\n]*", "", "1: system.system_directory: is missing; add it"},
      {"X:.Windows.System32", "Y:\\Windows\\System32", "2: system.system_directory: drive Y:\\ has no [[drive]]"},
      {"X:.Windows.System32", "Windows", "2: system.system_directory: must be a directory on a drive"},
      {"X:.Windows.System32", "X:\\", "2: system.system_directory: must be a directory on a drive"},
      {"X:.Windows'", "Y:\\Windows'", "3: system.windows_directory: drive Y:\\ has no"},
      {"os = [^\n]*", "", "1: system.os: is missing; add it"},
      {", minor = 1", "", "4: system.os.minor: is missing; add it"},
      {", minor = 1", ", minor = 1, suite = 65536", "4: system.os.suite: is 65536; it must be"},
      {"os = ", "code_page = 65001\nos = ", "4: system.code_page: 65001 is not a known ANSI code page"},
      {"os = ", "code_page = 'x'\nos = ", "4: system.code_page: must be a whole number"},
      {"os = ", "memory = 0\nos = ", "4: system.memory: is 0; it must be"},
      {"os = ", "processor = { count = 65 }\nos = ", "4: system.processor.count: is 65; it must be from 1 to 64"},
      {"os = ", "clock = 2026-11-19T12:00:00\nos = ", "4: system.clock: must be a date and time with its offset"},
      {"os = ", "clock = 'now'\nos = ", "4: system.clock: must be a date and time with its offset"},
  };
  for (const auto &c : cases) {
    const std::string toml = std::regex_replace(std::string(kLeastMachine), std::regex(c.from), c.to,
                                                std::regex_constants::format_first_only);
    EXPECT_FALSE(Read(toml)) << toml;
    EXPECT_THAT(error, StartsWith(Host("m.toml").string() + ":" + c.message)) << toml;
  }
  EXPECT_FALSE(Read(""));
  EXPECT_THAT(error, HasSubstr("system: is missing; add it"));
}

TEST_F(DescriptionTest, RefusesAMissingFile) {
  EXPECT_FALSE(ReadFile(Host("none.toml")));
  EXPECT_EQ(error, Host("none.toml").string() + ": there is no such file; give the path of a machine's TOML file");
  EXPECT_FALSE(ReadFile(folder));
  EXPECT_THAT(error, HasSubstr("is a directory"));
}

}  // namespace
