// The drivers that a restored system has itself, by real hives and by hostile ones.
#include "package/choose/own_drivers.h"

#include <cstdlib>

#include "registry/boot_record.h"
#include "registry/mount/hive.h"
#include "tests/support/hive_builder.h"
#include "tests/support/test_machine.h"

namespace package {
namespace {

constexpr char kSystem[] = "X:\\Windows\\System32";
constexpr char kHive[] = "restored/cfg/system";
constexpr char kSet[] = "ControlSet001";

class OwnDrivers : public MachineTest {
 protected:
  OwnDrivers() { std::filesystem::create_directories(Host("restored/cfg")); }
  ~OwnDrivers() override { VXRReg_UnloadHive(kSystem); }
  void Mount() {
    Open();
    ASSERT_TRUE(VXRReg_LoadHiveFile(kSystem, "D:\\cfg\\system"));
  }
  // False when there is no corpus.
  bool MountReal(const std::string &name) {
    const char *corpus = std::getenv("VXR_CORPUS_DIR");
    if (corpus == nullptr) return false;
    const std::string packed = std::string(corpus) + "/hives/" + name + ".xz";
    EXPECT_EQ(std::system(("xz -dkc '" + packed + "' > '" + Host(kHive).string() + "'").c_str()), 0);
    Mount();
    return true;
  }
  void AddFiles(const std::vector<std::string> &paths) {
    for (const std::string &path : paths) WriteFile("restored/Windows/System32/" + path, "");
  }
  // What is found for a device of that one id: "service rank" and what else there is to say; empty for nothing.
  std::string Find(const std::string &id) {
    const RestoredPlaces places = {"D:", "D:\\Windows", "D:\\Windows\\System32", "D:\\Windows\\inf"};
    OwnDriver driver;
    passedOver.clear();
    if (!FindOwnDriver(edits, kSet, {{"PCI\\ANOTHER", id}, {}}, target, places, &driver, &passedOver)) return "";
    char rank[16];
    std::snprintf(rank, sizeof rank, " %08X", static_cast<unsigned>(driver.rank.value));
    std::string text = driver.service + rank + (driver.rank.date != 0 ? " " + DateText(driver.rank.date) : "") +
                       (driver.heldBack ? " held back" : "");
    for (const OwnService &filter : driver.filters) text += " +" + filter.name;
    const std::size_t store = driver.storedBinary.find("FileRepository\\");
    return store == driver.storedBinary.npos ? text : text + " from " + driver.storedBinary.substr(store + 15);
  }

  Target target = {.major = 6, .minor = 3, .build = 9600, .architecture = kAmd64};
  RegistryEdits edits;
  std::vector<std::string> passedOver;
};

struct Case {
  const char *id, *found;
};

TEST_F(OwnDrivers, AreThoseOfARealSystemWithADatabase) {
  AddFiles({"drivers/storahci.sys", "drivers/stornvme.sys", "drivers/pci.sys", "drivers/amdsata.sys",
            "drivers/amdxata.sys", "DriverStore/FileRepository/lsi_sas.inf_amd64_bef2937de3107062/lsi_sas.sys",
            "DriverStore/FileRepository/wstorvsc.inf_x86_0123456789abcdef/storvsc.sys"});
  if (!MountReal("SYSTEM-6.3")) GTEST_SKIP() << "VXR_CORPUS_DIR is not set";
  for (const auto &[id, found] :
       {Case{"PCI\\CC_010601", "storahci 00FF0001 2006-06-21"},
        Case{"pci\\cc_010802", "stornvme 00FF0001 2006-06-21 held back"},
        Case{"PCI\\VEN_1000&DEV_0054",
             "LSI_SAS 00FF0001 2013-03-26 held back from lsi_sas.inf_amd64_bef2937de3107062\\lsi_sas.sys"},
        Case{"PCI\\VEN_1022&DEV_7804&CC_0106", "amdsata 00FF0001 2013-03-26 held back +amdxata"},
        Case{"PCI\\CC_0604", "pci 00FF0001 2006-06-21"}, Case{"PCI\\CC_0500", " 00FF0001 2006-06-21"},  // needs none
        Case{"VMBUS\\{ba6163d9-04a1-4d29-b605-72e2ffb1dc7f}",  // the store's file is of another processor
             "its storvsc has no file: D:\\Windows\\System32\\drivers\\storvsc.sys is missing."},
        Case{"PCI\\VEN_8086&DEV_2822&CC_0104",
             "its iaStorAV has no file: D:\\Windows\\System32\\drivers\\iaStorAV.sys is missing."},
        Case{"PCI\\VEN_1DEA&DEV_0042", ""}}) {
    const std::string driver = Find(id);
    EXPECT_EQ(passedOver.empty() ? driver : passedOver[0].substr(passedOver[0].find("its ")), found) << id;
  }
  PlanServiceStart("amdxata", &edits);
  PlanServiceStart("amdsata", &edits);
  EXPECT_EQ(Find("PCI\\VEN_1022&DEV_7804&CC_0106"), "amdsata 00FF0001 2013-03-26 +amdxata");
  EXPECT_EQ(edits.list.size(), 2u * ControlSets(edits).size());

  // A record of our own has what a real neighbour has, in the same types, and is then the system's own driver.
  BootRecord record;
  record.service = "storahci";
  record.classGuid = {0x4D36E97B, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
  record.ids = {{"PCI\\VEN_1DEA&DEV_0042", 0}};
  record.architecture = kAmd64;
  record.infName = "kstore.inf";
  record.section = "LSI_SAS_Inst";
  record.provider = "Kestrel";
  record.description = record.manufacturer = "%devdesc9%";
  record.strings = {{"devdesc9", "Kestrel"}};
  record.includes = {"machine.inf"};
  std::string published, package, reason;
  ASSERT_TRUE(PlanBootRecord(record, kSet, "", &edits, &published, &reason)) << reason;
  EXPECT_EQ(published, "oem3.inf");
  ASSERT_TRUE(ReadText(edits, "DriverDatabase\\DriverInfFiles\\" + published, "Active", &package));
  const std::string root = "DriverDatabase\\DriverPackages\\", real = root + "lsi_sas.inf_amd64_bef2937de3107062";
  for (const auto &[ours, theirs] :
       {std::pair<std::string, std::string>{"DriverDatabase\\DriverInfFiles\\" + published,
                                            "DriverDatabase\\DriverInfFiles\\lsi_sas.inf"},
        {root + package, real},
        {root + package + "\\Configurations\\LSI_SAS_Inst", real + "\\Configurations\\LSI_SAS_Inst"},
        {root + package + "\\Descriptors\\PCI\\VEN_1DEA&DEV_0042", real + "\\Descriptors\\PCI\\VEN_1000&DEV_0054"}}) {
    for (const std::string &name : ValueNames(edits, theirs)) {
      if (name == "SignerScore" || name == "StatusFlags") continue;  // see PlanBootRecord
      RegistryData own, neighbour;
      EXPECT_TRUE(ReadValue(edits, ours, name, &own)) << ours << ": " << name;
      ASSERT_TRUE(ReadValue(edits, theirs, name, &neighbour));
      EXPECT_EQ(own.type, neighbour.type) << ours << ": " << name;
    }
  }
  EXPECT_EQ(Find("PCI\\VEN_1DEA&DEV_0042"), "storahci 00FF0001");
}

TEST_F(OwnDrivers, AreThoseOfARealSystemWithoutADatabase) {
  AddFiles({"drivers/lsi_sas.sys", "drivers/pci.sys",
            "DriverStore/FileRepository/mshdc.inf_x86_neutral_0123456789abcdef/msahci.sys"});
  constexpr char kVersion[] = "[Version]\nSignature = $Chicago$\nDriverVer = ";
  WriteFile("restored/Windows/inf/lsi_sas.inf", kVersion + std::string("5/6/2009,1.28.3.52\n"));
  WriteFile("restored/Windows/System32/DriverStore/FileRepository/mshdc.inf_x86_neutral_fab873f3e8a3315c/mshdc.inf",
            kVersion + std::string("06/21/2006\n"));
  if (!MountReal("SYSTEM-6.1")) GTEST_SKIP() << "VXR_CORPUS_DIR is not set";
  target = {.major = 6, .minor = 1, .build = 7601, .architecture = kX86};
  for (const auto &[id, found] :
       {Case{"PCI\\VEN_1000&DEV_0054", "LSI_SAS 00FF0001 2009-05-06"}, Case{"PCI\\CC_0604", "pci 00FF0001"},
        Case{"PCI\\CC_010601",
             "msahci 00FF0001 2006-06-21 held back from mshdc.inf_x86_neutral_0123456789abcdef\\msahci.sys"},
        Case{"*pnp0000", ""}}) {
    EXPECT_EQ(Find(id), found) << id;
  }
}

TEST(OwnDriversRank, GivesWayToABetterOneAndToALaterOneFromOutside) {
  const struct {
    DWORD value;
    DWORD64 date;
    bool inbox, beats;
  } cases[] = {{0xFE, 1, true, true}, {0xFF, 3, false, true}, {0xFF, 3, true, false}, {0xFF, 2, false, false}};
  OwnDriver own;
  own.rank = {0xFF, 2, 0, {}};
  for (const auto &c : cases) {
    Candidate candidate;
    candidate.rank = {c.value, c.date, 9, {}};
    candidate.inbox = c.inbox;
    EXPECT_EQ(Beats(candidate, own), c.beats) << c.value << ' ' << c.date << ' ' << c.inbox;
  }
}

TEST_F(OwnDrivers, AreNotFoundThroughAHostileHive) {
  const std::string service = std::string(kSet) + "\\Services\\", packages = "DriverDatabase\\DriverPackages\\",
                    text = packages + "p_1\\Descriptors\\ID";
  const struct {
    const char *name;
    std::vector<HiveValue> values;
    const char *found;
  } cases[] = {{"as it should be", {}, "s 00FF0001"},
               {"no file named", {{service + "s", "ImagePath", REG_SZ, {}}}, ""},
               {"upwards", {TextValue(service + "s", "ImagePath", "System32\\..\\System32\\drivers\\s.sys")}, ""},
               {"elsewhere", {TextValue(service + "s", "ImagePath", "\\??\\C:\\s.sys")}, ""},
               {"a number", {NumberValue(service + "s", "ImagePath", 1)}, ""},
               {"without end", {{service + "s", "ImagePath", REG_EXPAND_SZ, {'S', 0}}}, ""},
               {"from the root",
                {TextValue(service + "s", "ImagePath", "\\SystemRoot\\System32\\drivers\\s.sys")},
                "s 00FF0001"},
               {"a program", {NumberValue(service + "s", "Type", 0x10)}, ""},
               {"no start", {TextValue(service + "s", "Start", "0")}, ""},
               {"short", {{"DriverDatabase\\DeviceIds\\ID", "a.inf", REG_BINARY, {1}}}, ""},
               {"compatible", {{"DriverDatabase\\DeviceIds\\ID", "a.inf", REG_BINARY, {2, 0x80, 2, 0}}}, "s 00801001"},
               {"two keys", {TextValue("DriverDatabase\\DriverInfFiles\\a.inf", "Active", "p_1\\Descriptors")}, ""},
               {"staged only", {TextValue(text, "Configuration", "d")}, ""},
               {"no service named", {{packages + "p_1\\Configurations\\c", "Service", REG_SZ, {}}}, " 00FF0001"},
               {"a number for one", {NumberValue(packages + "p_1\\Configurations\\c", "Service", 1)}, ""},
               {"a way out", {TextValue(packages + "p_1\\Configurations\\c", "Service", "s\\s")}, ""},
               {"a filter is missing",
                {{packages + "p_1\\Configurations\\c", "UpperFilters", REG_MULTI_SZ, {'f', 0, 0, 0, 0, 0}}},
                ""},
               {"excluded", {{packages + "p_1\\Configurations\\c", "ExcludeIds", REG_MULTI_SZ, {'i', 0, 'd', 0}}}, ""}};
  AddFiles({"drivers/s.sys", "S", "s.sys"});
  for (const auto &c : cases) {
    std::vector<HiveValue> values = SystemHiveValues(1);
    for (const HiveValue &value :
         {NumberValue(service + "s", "Type", 1), NumberValue(service + "s", "Start", 0),
          HiveValue{"DriverDatabase\\DeviceIds\\ID", "a.inf", REG_BINARY, {1, 0xFF, 0, 0}},
          TextValue("DriverDatabase\\DriverInfFiles\\a.inf", "Active", "p_1"), TextValue(text, "Configuration", "c"),
          TextValue(packages + "p_1\\Configurations\\c", "Service", "s")}) {
      values.push_back(value);
    }
    values.insert(values.end(), c.values.begin(), c.values.end());
    VXRReg_UnloadHive(kSystem);
    Close();
    WriteHive(Host(kHive), values);
    Mount();
    EXPECT_EQ(Find("ID"), c.found) << c.name;
  }
}

}  // namespace
}  // namespace package
