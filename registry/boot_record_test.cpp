#include "registry/boot_record.h"

#include "platform/machine/hive/hive.h"
#include "registry/mount/hive.h"
#include "registry/published_name.h"
#include "tests/support/hive_builder.h"
#include "tests/support/test_machine.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kSystem[] = "X:\\Windows\\System32";
constexpr char kRecordInf[] = "D:\\Windows\\inf";
constexpr GUID kScsiClass = {0x4D36E97B, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};

BootRecord KestrelStore() {
  BootRecord record;
  record.service = "kstore";
  record.classGuid = kScsiClass;
  record.ids = {{"PCI\\VEN_1DEA&DEV_0042", 0}, {"PCI\\CC_010400", 3}, {"pci\\ven_1dea&dev_0042", 5}, {"PCI\\\\x", 1}};
  record.upperFilters = {"kfilter"};
  record.architecture = 9;
  record.configScope = true;
  record.infName = "KStore.inf";
  record.infPath = "X:\\drivers";
  record.catalog = "kstore.cat";
  record.section = "Kst\\Inst";
  record.provider = "Kestrel";
  record.description = "A %KST.Disk%";
  record.manufacturer = "%Kst%";
  record.strings = {{"KST.Disk", "Kestrel Store"}, {"Kst", "Kestrel"}};
  record.includes = {"pci.inf"};
  record.featureScore = 0x80;
  record.date = 0x01CE29B4DBDF0000;
  record.version = 0x0001002200030053;
  record.configuration = {{RegistryEdit::Kind::kSetValue, "Services\\kstore\\Parameters", "BusType", NumberData(10)},
                          {RegistryEdit::Kind::kSetValue, "", "Service", TextData("other")}};
  return record;
}

// The changes in lines: the key, what is done with which value, its bytes as text or in hexadecimal.
std::vector<std::string> Changes(const RegistryEdits &edits, const std::string &package = {}) {
  static const char *const kKinds[] = {"create", "set", "delete value", "delete"};
  std::vector<std::string> lines;
  for (const RegistryEdit &edit : edits.list) {
    if (edit.kind == RegistryEdit::Kind::kCreateKey) continue;
    std::string line = edit.key + " " + kKinds[static_cast<int>(edit.kind)] + " " + edit.name;
    if (edit.kind == RegistryEdit::Kind::kSetValue) line += "=" + std::to_string(edit.data.type) + ":";
    const bool text = edit.data.type == REG_SZ || edit.data.type == REG_MULTI_SZ;
    for (const char c : edit.data.bytes) {
      char digits[3];
      std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(c));
      line += !text ? digits : c == '\0' ? "|" : std::string(1, c);
    }
    for (std::size_t at; !package.empty() && (at = line.find(package)) != line.npos;) {
      line.replace(at, package.size(), "PACKAGE");
    }
    lines.push_back(line);
  }
  return lines;
}

class BootRecords : public MachineTest {
 protected:
  BootRecords() {
    std::filesystem::create_directories(Host("restored/cfg"));
    WriteFile("restored/Windows/inf/oem1.inf", "");
  }
  std::string reason;
  ~BootRecords() override { VXRReg_UnloadHive(kSystem); }
  void Mount(const std::vector<HiveValue> &more) {
    std::vector<HiveValue> values = SystemHiveValues(1);
    values.insert(values.end(), more.begin(), more.end());
    VXRReg_UnloadHive(kSystem);
    Close();
    WriteHive(Host("restored/cfg/system"), values);
    Open();
    ASSERT_TRUE(VXRReg_LoadHiveFile(kSystem, "D:\\cfg\\system"));
  }
};

TEST_F(BootRecords, ADatabaseGetsAWholePackageOnce) {
  Mount({OnlyKey("DriverDatabase\\DriverInfFiles\\oem2.inf"), {"DriverDatabase", "OemInfMap", REG_BINARY, {0x80}}});
  RegistryEdits edits;
  std::string name;
  ASSERT_TRUE(PlanBootRecord(KestrelStore(), "ControlSet001", kRecordInf, &edits, &name, &reason)) << reason;
  EXPECT_EQ(name, "oem3.inf");
  std::string package;
  ASSERT_TRUE(ReadText(edits, "DriverDatabase\\DriverInfFiles\\oem3.inf", "Active", &package));
  EXPECT_THAT(package, testing::MatchesRegex("kstore\\.inf_amd64_[0-9a-f]{16}"));
  const std::string root = "DriverDatabase\\", packages = root + "DriverPackages\\PACKAGE",
                    configuration = packages + "\\Configurations\\Kst#Inst",
                    version =
                        "00ff090000000000"
                        "7be9364d25e3ce11bfc108002be10318"
                        "0000dfdbb429ce01"
                        "5300030022000100"
                        "0000000000000000";
  std::vector<std::string> expected = {"DriverDatabase set OemInfMap=3:f0",
                                       root + "DriverInfFiles\\oem3.inf set =7:PACKAGE||",
                                       root + "DriverInfFiles\\oem3.inf set Active=1:PACKAGE|",
                                       root + "DriverInfFiles\\oem3.inf set Configurations=7:Kst#Inst||",
                                       root + "DeviceIds\\PCI\\VEN_1DEA&DEV_0042 set oem3.inf=3:01800000",
                                       root + "DeviceIds\\PCI\\CC_010400 set oem3.inf=3:02800200",
                                       root + "DeviceIds\\{4d36e97b-e325-11ce-bfc1-08002be10318} set oem3.inf=0:",
                                       packages + " set =1:oem3.inf|",
                                       packages + " set Version=3:" + version,
                                       packages + " set Provider=1:Kestrel|",
                                       packages + " set InfName=1:KStore.inf|",
                                       packages + " set OemPath=1:X:\\drivers|",
                                       packages + " set Catalog=1:kstore.cat|",
                                       packages + " set SignerScore=4:0000000f",
                                       packages + "\\Strings set kst.disk=1:Kestrel Store|",
                                       packages + "\\Strings set kst=1:Kestrel|",
                                       configuration + "\\Services\\kstore\\Parameters set BusType=4:0a000000",
                                       configuration + " set Service=1:kstore|",
                                       configuration + " set ConfigFlags=4:00000000",
                                       configuration + " set ConfigScope=4:07000000",
                                       configuration + " set IncludedInfs=7:pci.inf||",
                                       configuration + " set UpperFilters=7:kfilter||"};
  for (const char *id : {"PCI\\VEN_1DEA&DEV_0042", "PCI\\CC_010400"}) {
    const std::string descriptor = packages + "\\Descriptors\\" + id;
    expected.push_back(descriptor + " set Configuration=1:Kst#Inst|");
    expected.push_back(descriptor + " set Description=1:A %kst.disk%|");
    expected.push_back(descriptor + " set Manufacturer=1:%kst%|");
  }
  EXPECT_THAT(Changes(edits, package), testing::ElementsAreArray(expected));

  std::string failed;
  bool restored = false;
  ASSERT_TRUE(ApplyEdits(edits, &failed, &restored)) << failed;
  RegistryEdits again, other;
  BootRecord record = KestrelStore();
  ASSERT_TRUE(PlanBootRecord(record, "ControlSet001", kRecordInf, &again, &name, &reason)) << reason;
  EXPECT_THAT(Changes(again), IsEmpty());
  EXPECT_EQ(name, "oem3.inf");
  ++record.version;
  ASSERT_TRUE(PlanBootRecord(record, "ControlSet001", kRecordInf, &other, &name, &reason)) << reason;
  EXPECT_EQ(name, "oem4.inf") << "another version is another package";

  // What cannot be recorded is not planned in part.
  RegistryEdits full;
  for (int i = 0; i < 10000; ++i) CreateKey(&full, root + "DriverInfFiles\\oem" + std::to_string(i) + ".inf");
  EXPECT_FALSE(PlanBootRecord(record, "ControlSet001", kRecordInf, &full, &name, &reason));
  EXPECT_THAT(reason, testing::HasSubstr("no free name"));
  record.ids = {{"PCI\\\\x", 0}};
  EXPECT_FALSE(PlanBootRecord(record, "ControlSet001", kRecordInf, &full, &name, &reason));
  EXPECT_THAT(Changes(full), IsEmpty());
}

TEST_F(BootRecords, AFreeNameIsFoundWhateverTheMapIs) {
  const struct {
    uint32_t type;
    std::vector<uint8_t> map;
    const char *name, *newMap;
  } cases[] = {{REG_BINARY, {0xFF, 0xF0}, "oem12.inf", "fff8"},
               {REG_BINARY, {0xFF}, "oem8.inf", "ff80"},
               {REG_BINARY, {}, "oem0.inf", "80"},
               {REG_BINARY, {0x80}, "oem2.inf", "e0"},
               {REG_DWORD, {0xFF, 0xFF, 0xFF, 0xFF}, "oem0.inf", "80"},
               {REG_BINARY, std::vector<uint8_t>(1250, 0xFF), "oem0.inf", "80"}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.newMap);
    Mount({{"DriverDatabase", "OemInfMap", c.type, c.map}});
    RegistryEdits edits;
    std::string name;
    EXPECT_TRUE(TakePublishedName(kRecordInf, &edits, &name));
    EXPECT_EQ(name, c.name);
    EXPECT_THAT(Changes(edits), ElementsAre(std::string("DriverDatabase set OemInfMap=3:") + c.newMap));
  }
}

TEST_F(BootRecords, AnOlderSystemGetsCriticalDeviceEntries) {
  const std::string entry = "ControlSet001\\Control\\CriticalDeviceDatabase\\PCI#CC_010400";
  Mount({TextValue(entry, "Service", "old"), TextValue(entry, "LowerFilters", "gone"),
         TextValue(entry, "DriverPackageId", "old.inf_amd64_neutral_0123456789abcdef")});
  RegistryEdits edits;
  std::string name;
  BootRecord record = KestrelStore();
  record.ids.resize(2);
  ASSERT_TRUE(PlanBootRecord(record, "ControlSet001", kRecordInf, &edits, &name, &reason)) << reason;
  const std::string other = "ControlSet001\\Control\\CriticalDeviceDatabase\\PCI#VEN_1DEA&DEV_0042",
                    guid = " set ClassGUID=1:{4D36E97B-E325-11CE-BFC1-08002BE10318}|";
  EXPECT_THAT(Changes(edits),
              ElementsAre(other + guid, other + " set Service=1:kstore|", other + " set UpperFilters=7:kfilter||",
                          entry + guid, entry + " set Service=1:kstore|", entry + " set UpperFilters=7:kfilter||",
                          entry + " delete value LowerFilters", entry + " delete value DriverPackageId"));
  EXPECT_EQ(name, "");
}

TEST_F(BootRecords, AHeldBackServiceIsLetStartInEveryControlSet) {
  const auto key = [](int set, const char *name) {
    return "ControlSet00" + std::to_string(set) + "\\Services\\" + name;
  };
  Mount({NumberValue(key(1, "a"), "Start", 0), NumberValue(key(1, "a") + "\\StartOverride", "0", 3),
         NumberValue(key(2, "a"), "Start", 3), NumberValue(key(1, "b"), "Start", 3),
         NumberValue(key(1, "c"), "Start", 0), NumberValue(key(1, "c") + "\\StartOverride", "0", 0),
         NumberValue(key(1, "foreign"), "Own", 7)});
  RegistryEdits edits;
  for (const auto &[name, held] : {std::pair{"a", true}, {"b", true}, {"c", false}, {"foreign", false}, {"", false}}) {
    EXPECT_EQ(HeldBack(edits, "ControlSet001", name), held) << name;
  }
  for (const char *name : {"A", "foreign", "missing", "", "a\\StartOverride"}) PlanServiceStart(name, &edits);
  EXPECT_THAT(Changes(edits),
              ElementsAre(key(1, "A") + "\\StartOverride delete ", key(2, "A") + " set Start=4:00000000"));
  EXPECT_FALSE(HeldBack(edits, "ControlSet001", "a"));
}

}  // namespace
