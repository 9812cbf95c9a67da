// The driver search: which directory, file, id and section comes when, on real files of a described machine.

#include "inf/search/driver_search.h"

#include "device/records.h"
#include "engine/base/status.h"
#include "platform/machine/base/fault.h"
#include "tests/support/driver_job.h"

namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

// Everything that a model line needs to be installed in verification mode.
constexpr char kInstall[] = R"(
[Inst]
CopyFiles = @fast.sys
[Inst.Services]
AddService = fast, 2, Service
)";

class DriverSearch : public DriverJobTest {
 protected:
  DriverSearch() { std::filesystem::remove(folder / "ram/drivers/fast.inf"); }

  BOOL Search(const std::vector<std::string> &directories) {
    std::string list;
    for (const std::string &directory : directories) list += directory + '\0';
    return VXRDev_GetDriverInfDirs(list.c_str(), device);
  }
  BOOL SearchFile(const char *name) {
    return VXRDev_LocateDriverInf(INVALID_HANDLE_VALUE, kDirectory, (std::string(kDirectory) + "\\" + name).c_str(),
                                  kId, driver);
  }
  // An INF file whose one model line has these ids and this install section.
  void WriteModel(const std::string &name, const std::string &ids, const std::string &install = "Inst") {
    WriteInf(name, "[Manufacturer]\nAcme = Models\n[Models]\nFast = " + install + ", " + ids + "\n" + kInstall);
  }
};

struct Decorations {
  const char *name;
  const char *sections;              // of the file, behind its Manufacturer line
  std::vector<std::string> checked;  // section names asked for, in order
  const char *match;                 // null: none
};

class DecorationOrder : public DriverSearch, public testing::WithParamInterface<Decorations> {};

TEST_P(DecorationOrder, IsTheListThenPlain) {
  const Decorations &c = GetParam();
  Begin(false);
  WriteInf("a.inf", std::string("[Manufacturer]\nAcme = Models\n") + c.sections + kInstall);
  ClearLog();
  EXPECT_EQ(SearchFile("a.inf"), c.match != nullptr);
  std::vector<std::string> checked = Lines("FLUSH:VXRDev_FindInfSection:checking ");
  std::erase_if(checked, [](const std::string &line) { return line.find("Models") == std::string::npos; });
  EXPECT_EQ(checked, c.checked);
  if (c.match != nullptr) {
    EXPECT_THAT(Lines("CHECK:VXRDev_LocateDriverInf:found match:"), ElementsAre(c.match));
    EXPECT_STREQ(driver->szMatchedID, kId);
    EXPECT_STREQ(driver->szService, "fast");
  } else {
    EXPECT_THAT(Lines("INFOR:VXRDev_LocateDriverInf:"), ElementsAre("not found match in section Models..."));
    EXPECT_EQ(driver->szMatchedID, nullptr);
  }
}

#define FITS      \
  "Fast = Inst, " \
  "PCI\\VEN_1000&DEV_0030\n"
#define OTHER      \
  "Other = Inst, " \
  "PCI\\VEN_1000&DEV_0031\n"

INSTANTIATE_TEST_SUITE_P(
    Files, DecorationOrder,
    testing::Values(
        Decorations{"Plain", "[Models]\n" FITS, {"0:Models.ntamd64.6.1", "1:Models"}, "sec=Models:arch=ntamd64.6.1..."},
        Decorations{"First", "[Models.NTamd64.6.1]\n" FITS, {"0:Models.ntamd64.6.1"}, "sec=Models:arch=ntamd64.6.1..."},
        Decorations{"SecondAfterPlainMissing",
                    "[Models.NTamd64]\n" FITS,
                    {"0:Models.ntamd64.6.1", "1:Models", "0:Models.ntamd64"},
                    "sec=Models:arch=ntamd64..."},
        Decorations{"SecondAfterPlainInVain",
                    "[Models]\n" OTHER "[Models.NTamd64]\n" FITS,
                    {"0:Models.ntamd64.6.1", "1:Models", "0:Models.ntamd64"},
                    "sec=Models:arch=ntamd64..."},
        Decorations{"PlainAlthoughTheSecondFits",
                    "[Models.NTamd64]\n" FITS "[Models]\n" FITS,
                    {"0:Models.ntamd64.6.1", "1:Models"},
                    "sec=Models:arch=ntamd64.6.1..."},
        Decorations{"NoneFits",
                    "[Models]\n" OTHER,
                    {"0:Models.ntamd64.6.1", "1:Models", "0:Models.ntamd64", "1:Models", "0:Models"},
                    nullptr}),
    [](const auto &test) { return test.param.name; });

TEST_F(DriverSearch, TriesManufacturersInTurnAndOnlyIdsFromFieldTwoOn) {
  Begin(false);
  WriteInf("a.inf", std::string("[Manufacturer]\n, NoKey\nEmpty\nFirst = A\nSecond = B, NTx86\n"
                                "[A]\nNot = PCI\\VEN_1000&DEV_0030, PCI\\OTHER\n"
                                "[B]\nFast = Broken, PCI\\OTHER, PCI\\ven_1000&dev_0030\nFast = Inst, " +
                                std::string(kId) + "\n[Broken]\nUnknown = 1\n" + kInstall));
  EXPECT_TRUE(SearchFile("a.inf"));
  EXPECT_THAT(Lines("INFOR:VXRDev_LocateDriverInf:"), Contains("not found match in section A..."));
  EXPECT_THAT(Lines("ERROR:VXRDev_ProcessModSect:"),
              ElementsAre("VXRDev_ProcessInstSect() failed for InstSect=Broken"));
  EXPECT_THAT(Lines("CHECK:VXRDev_LocateDriverInf:"), ElementsAre("found match:sec=B:arch=ntamd64.6.1..."));
}

// The ids in the order that they are tried in, and the files of each: the current one, then the rest of the list.
TEST_F(DriverSearch, TriesCandidatesFromTheCurrentFileOn) {
  Begin(false);
  WriteModel("a.inf", R"(PCI\OTHER)");
  WriteModel("b.inf", R"(PCI\VEN_1000&DEV_0030, PCI\CC_0100)", "Broken");
  WriteModel("c.inf", R"(PCI\VEN_1000&CC_0100)", "Broken");
  EXPECT_FALSE(Search({kDirectory}));

  const std::string c = "X:\\drivers\\c.inf", b = "X:\\drivers\\b.inf";
  const std::vector<std::string> opened = Lines("FLUSH:VXRDev_LocateDriverInf:InfFile=");
  // b.inf: 2 ids of its line, 1 compatible once more, 2 + 2 of the device, each over b.inf and c.inf. c.inf: 1 + 2 + 2.
  ASSERT_EQ(opened.size(), 7u * 2 + 5);
  for (unsigned i = 0; i < 14; ++i) EXPECT_EQ(opened[i], i % 2 == 0 ? b : c) << i;
  for (unsigned i = 14; i < 19; ++i) EXPECT_EQ(opened[i], c) << i;

  EXPECT_THAT(
      Lines("CHECK:VXRDev_LocateDriverInfs:check "),
      ElementsAre(R"(drvinfo hardware id=01:PCI\VEN_1000&DEV_0030)", R"(drvinfo hardware id=02:PCI\CC_0100)",
                  R"(drvinfo compatible id=01:PCI\CC_0100)",
                  R"(devinfo hardware id=01:PCI\VEN_1000&DEV_0030&SUBSYS_00000000&REV_01)",
                  R"(devinfo hardware id=02:PCI\VEN_1000&DEV_0030)", R"(devinfo compatible id=01:PCI\VEN_1000&CC_0100)",
                  R"(devinfo compatible id=02:PCI\CC_0100)", R"(drvinfo hardware id=01:PCI\VEN_1000&CC_0100)",
                  R"(devinfo hardware id=01:PCI\VEN_1000&DEV_0030&SUBSYS_00000000&REV_01)",
                  R"(devinfo hardware id=02:PCI\VEN_1000&DEV_0030)", R"(devinfo compatible id=01:PCI\VEN_1000&CC_0100)",
                  R"(devinfo compatible id=02:PCI\CC_0100)"));
  EXPECT_THAT(Lines("ERROR:VXRDev_GetDriverInfDir:"),
              ElementsAre("VXRDev_InitDriverInf():failed for [01]:X:\\drivers\\a.inf!",
                          "VXRDev_LocateDriverInfs():failed for [02]:X:\\drivers\\b.inf!",
                          "VXRDev_LocateDriverInfs():failed for [03]:X:\\drivers\\c.inf!"));
  EXPECT_THAT(log, HasSubstr("CHECK:VXRDev_GetDriverInfDir:Total 3 inf files searched in X:\\drivers...\n"));
  EXPECT_THAT(log, HasSubstr("CHECK:VXRDev_GetDriverInfDirs:FALSE\n"));
  const VXR_DRIVER &left = *device->pVXRDriver;
  EXPECT_EQ(left.pDrvInfoData, nullptr);
  EXPECT_EQ(left.pDrvInfoDetailData, nullptr);
  EXPECT_EQ(left.pVXRDevice, nullptr);
  EXPECT_EQ(left.szMatchedID, nullptr) << "it may have lain in the detail record";
}

TEST_F(DriverSearch, FindsAnIdInALaterFileThanTheCurrentOne) {
  Begin(false);
  WriteModel("a.inf", kId, "Broken");
  WriteModel("b.inf", kId);
  EXPECT_TRUE(Search({kDirectory}));
  EXPECT_THAT(statusLines,
              ElementsAre("Looking for driver information in X:\\drivers...\n",
                          HasSubstr("Check only, bypassed copying X:\\drivers\\FAST.SYS -> D:\\Windows\\"),
                          StartsWith("Successfully processed X:\\drivers\\a.inf for PCI\\VEN_1000&DEV_0030"),
                          StartsWith("Successful in driver files verification for PCI\\VEN_1000")));
  EXPECT_THAT(log, HasSubstr("CHECK:VXRDev_GetDriverInfDir:Total 0 inf files searched in X:\\drivers...\n"));
  EXPECT_THAT(log, HasSubstr("CHECK:VXRDev_GetDriverInfDirs:TRUE\n"));
  EXPECT_STREQ(device->pVXRDriver->szService, "fast");
  EXPECT_EQ(device->pVXRDriver->pVXRDevice, device);
  EXPECT_STREQ(device->pVXRDriver->pDrvInfoDetailData->HardwareID, kId);
}

// Without a hardware id the list's first text is empty, and the compatible ids are tried all the same.
TEST_F(DriverSearch, TriesCompatibleIdsOfALineWithoutHardwareId) {
  Begin(false);
  WriteModel("a.inf", R"(, PCI\CC_0100)");
  EXPECT_TRUE(Search({kDirectory}));
  EXPECT_THAT(Lines("CHECK:VXRDev_LocateDriverInfs:check "), ElementsAre(R"(drvinfo compatible id=01:PCI\CC_0100)"));
  EXPECT_STREQ(device->pVXRDriver->szMatchedID, R"(PCI\CC_0100)");
}

TEST_F(DriverSearch, GoesOnWithTheNextDirectoryWhenRegistrationFails) {
  Begin(true);
  const std::string service = "[Service]\nStartType = 0\n";
  WriteModel("a.inf", kId);
  WriteFile("ram/drivers/a.inf", ReadFile("ram/drivers/a.inf") + service);
  WriteFile("ram/more/a.inf", ReadFile("ram/drivers/a.inf"));
  WriteFile("ram/more/fast.sys", "another driver");
  // The first value written is the service's, the second the entry's ClassGUID.
  machine::SetFaultPlan({"RegSetValueExA", 2, false, ERROR_DISK_FULL});
  EXPECT_TRUE(Search({kDirectory, "X:\\more"}));
  EXPECT_EQ(machine::FaultsMet(), 1u);
  machine::SetFaultPlan({});
  EXPECT_THAT(Lines("ERROR:VXRDev_GetDriverInfDirs:VXRDev_PostGetDriver():failed!"),
              ElementsAre(HasSubstr("msg=X:\\drivers")));
  EXPECT_THAT(statusLines, Contains("Looking for driver information in X:\\more...\n"));
  EXPECT_EQ(ReadFile("restored/Windows/system32/drivers/FAST.SYS"), "another driver");
  EXPECT_EQ(HiveText(R"(Control\CriticalDeviceDatabase\PCI#VEN_1000&DEV_0030)", "Service"), "1:5:fast");
}

// Every platform call of an injection made to fail in turn: no crash and no leak, which the sanitizers would tell, no
// half-built driver, and the INF files closed.
TEST_F(DriverSearch, SurvivesEveryFailedCall) {
  Begin(true);
  WriteModel("a.inf", R"(PCI\VEN_1000&DEV_0030, PCI\CC_0100)", "Broken");
  WriteModel("b.inf", R"(PCI\VEN_1000&DEV_0030, PCI\CC_0100)");
  WriteFile("ram/drivers/b.inf", ReadFile("ram/drivers/b.inf") + "[Service]\nServiceBinary = %12%\\fast.sys\n");
  unsigned met = 1;
  for (unsigned n = 1; met != 0 && !HasFailure(); ++n) {
    SCOPED_TRACE(testing::Message() << "fault at platform call " << n);
    ClearLog();
    machine::SetFaultPlan({"*", n, false, 0});
    const BOOL found = Search({kDirectory});
    met = machine::FaultsMet();
    machine::SetFaultPlan({});
    if (met == 0) {
      EXPECT_TRUE(found);
    }
    if (device->pVXRDriver == nullptr) continue;
    const VXR_DRIVER &now = *device->pVXRDriver;
    EXPECT_EQ(now.pDrvInfoData == nullptr, now.pDrvInfoDetailData == nullptr);
    if (found) {
      EXPECT_EQ(now.pVXRDevice, device);
    }
  }
}

// A question that cannot be shown is no "No": the prompt would come back without end.
TEST_F(DriverSearch, StopsWhenTheUserCannotBeAsked) {
  WriteFile("ram/empty/readme.txt", "no driver here");
  Begin(false, [](std::string *toml) { *toml += "[prompts]\ndriver_directory = ['cancel', 'X:\\drivers']\n"; });
  WriteModel("a.inf", kId);
  dwError = 0;
  machine::SetFaultPlan({"MessageBoxA", 1, false, 0});
  EXPECT_FALSE(Search({"X:\\empty"}));
  machine::SetFaultPlan({});
  EXPECT_EQ(dwError, 0u);
  EXPECT_THAT(Lines("ERROR:VXRDev_ValidateDir:"), ElementsAre(StartsWith("MessageBox():failed!")));
}

struct Answers {
  const char *name;
  const char *directory, *cancel;  // scripted answers, as TOML arrays
  bool found;
  DWORD code;
  const char *logged;
};

class Prompt : public DriverSearch, public testing::WithParamInterface<Answers> {};

TEST_P(Prompt, DecidesForADirectoryWithoutInfFiles) {
  const Answers &c = GetParam();
  WriteFile("ram/empty/readme.txt", "no driver here");
  Begin(false, [&](std::string *toml) {
    *toml += std::string("[prompts]\ndriver_directory = ") + c.directory + "\ncancel_search = " + c.cancel + "\n";
  });
  WriteModel("a.inf", kId);
  dwError = 0;
  EXPECT_EQ(Search({"X:\\empty"}), c.found);
  EXPECT_EQ(dwError, c.code);
  EXPECT_THAT(log, HasSubstr(c.logged));
  EXPECT_THAT(log, HasSubstr("CHECK:VXRDev_ValidateDir:validating:X:\\empty for *.inf file...\n"));
  if (!c.found) {
    EXPECT_THAT(log, HasSubstr("ERROR:VXRDev_GetDriverInfDirs:VXRDev_ValidateDir():failed!"));
    EXPECT_THAT(statusLines, Each(Not(StartsWith("Looking for"))));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Users, Prompt,
    testing::Values(
        Answers{"Cancels", "['cancel']", "['yes']", false, 15,
                "WARNG:VXRDev_ValidateDir:user cancelled on providing a valid inf dir!\n"},
        Answers{"CancelsAndThinksBetterOfIt", "['cancel', 'X:\\drivers']", "['no']", true, 0,
                "CHECK:VXRDev_ValidateDir:dir=:X:\\drivers contains *.inf ...\n"},
        Answers{"NamesAnother", "['X:\\drivers']", "[]", true, 0, "Looking for driver information in X:\\drivers...\n"},
        Answers{"Skips", "['skip']", "[]", false, 0, "ERROR:VXRDev_ValidateDir:SetupPromptForDisk():failed!"}),
    [](const auto &test) { return test.param.name; });

TEST_F(DriverSearch, SkipsFilesOfAnotherClass) {
  Begin(false);
  WriteModel("b.inf", kId);
  std::string other = ReadFile("ram/drivers/b.inf");
  other.replace(other.find("4D36E97B"), 8, "4D36E96A");
  WriteFile("ram/drivers/a.inf", other);
  WriteFile("ram/drivers/c.inf", other);
  EXPECT_TRUE(Search({kDirectory}));
  EXPECT_THAT(Lines("FLUSH:VXRDev_GetDriverInfDir:VXRDev_ValidateInfFile():failed for "),
              ElementsAre("[01]:X:\\drivers\\a.inf!"));
  EXPECT_THAT(Lines("FLUSH:VXRDev_LocateDriverInf:InfFile="), ElementsAre("X:\\drivers\\b.inf"));
}

// A path beyond the buffer of the walk is refused by one line, and the next file is tried.
TEST_F(DriverSearch, PassesOverPathsThatDoNotFit) {
  Begin(false);
  const std::string longName = std::string(246, 'a') + ".inf";
  WriteModel(longName, kId);
  WriteModel("b.inf", kId);
  EXPECT_TRUE(Search({kDirectory}));
  EXPECT_THAT(Lines("ERROR:VXRDev_GetDriverInfDir:"),
              ElementsAre(HasSubstr("VXRDev_InitDriverInf():failed for [01]:")));
  const std::string files = longName + '\0' + "b.inf" + '\0';
  EXPECT_TRUE(VXRDev_LocateDriverByID(kId, kDirectory, files.c_str(), device->pVXRDriver, device));
  EXPECT_THAT(Lines("ERROR:VXRDev_LocateDriverByID:"), ElementsAre(StartsWith("szInfFile does not fit its 260 bytes")));
}

}  // namespace
