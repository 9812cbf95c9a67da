// What a model line's installation copies and writes, on real files and a mounted hive.

#include "inf/install_section.h"

#include "engine/base/status.h"
#include "tests/support/driver_job.h"
#include "tests/support/own_code_page.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class InstallSection : public DriverJobTest {
 protected:
  // One install section of an INF file with this body.
  BOOL Install(const std::string &lines) {
    const InfFile inf = OpenInf("t.inf", "[Inst]\n" + lines);
    ClearLog();
    return VXRDev_ProcessInstSect(inf.get(), kDirectory, "Inst", nullptr, driver);
  }
  BOOL AddService(const std::string &lines) {
    const InfFile inf = OpenInf("t.inf", "[Inst.Services]\n" + lines);
    ClearLog();
    return VXRDev_ProcessSrvcSect(inf.get(), kDirectory, "Inst", "ntamd64", driver);
  }
  BOOL WriteService(const std::string &lines, const std::string &more = "") {
    const InfFile inf = OpenInf("t.inf", "[Svc]\n" + lines + "\n" + more);
    ClearLog();
    return VXRDev_ProcessSrvcInst(inf.get(), kDirectory, "abc", "Svc");
  }
  BOOL Copy(std::string name, const char *directory = kDirectory) {
    ClearLog();
    statusLines.clear();
    return VXRDev_ProcessCopyFile(INVALID_HANDLE_VALUE, directory, name.data(), driver);
  }
};

// One model line from its id to the values of its service.
TEST_F(InstallSection, InstallsAModelLine) {
  Begin(true);
  WriteFile("ram/drivers/lsi.sys", "lsi");
  const InfFile inf = OpenInf("lsi.inf", R"(
[Models.ntamd64]
Other = None, PCI\VEN_1000&DEV_0031
Desc = Inst, PCI\ven_1000&dev_0030
[Inst]
CopyFiles = @lsi.sys
[Inst.Services]
AddService = lsi, 0x00000002, Svc
[Svc]
DisplayName = %Name%
ServiceType = 1
StartType = 0
ErrorControl = 0x1
ServiceBinary = %12%\lsi.sys
LoadOrderGroup = SCSI miniport
[Strings]
Name = "A display name"
)");
  ClearLog();
  EXPECT_TRUE(VXRDev_ProcessModSect(inf.get(), kDirectory, "Models", "ntamd64", kId, driver));
  EXPECT_EQ(driver->szMatchedID, kId) << "the searched id is borrowed";
  EXPECT_STREQ(driver->szService, "lsi");
  EXPECT_EQ(ReadFile("restored/Windows/system32/drivers/LSI.SYS"), "lsi");
  EXPECT_EQ(HiveText("Services\\lsi", "DisplayName"), "1:15:A display name");
  EXPECT_EQ(HiveText("Services\\lsi", "Type"), "4:4:1");
  EXPECT_EQ(HiveText("Services\\lsi", "Start"), "4:4:0");
  EXPECT_EQ(HiveText("Services\\lsi", "ErrorControl"), "4:4:1");
  EXPECT_EQ(HiveText("Services\\lsi", "ImagePath"), "1:25:system32\\drivers\\lsi.sys");
  EXPECT_EQ(HiveText("Services\\lsi", "Group"), "1:14:SCSI miniport");

  EXPECT_THAT(Lines("FLUSH:VXRDev_FindInfSection:checking "),
              ElementsAre("0:Models.ntamd64", "0:Inst.ntamd64", "1:Inst.ntamd64.6.1", "2:Inst.ntamd64", "3:Inst",
                          "0:Inst.ntamd64.Services", "1:Inst.ntamd64.6.1.Services", "2:Inst.ntamd64.Services",
                          "3:Inst.Services"));
  EXPECT_THAT(Lines("CHECK:VXRDev_ProcessModSect:"), ElementsAre(R"(found matched id = PCI\ven_1000&dev_0030!)",
                                                                 "successfully processed InstSect=Inst:Arch=ntamd64",
                                                                 "successfully processed SrvcSect=Inst:Arch=ntamd64"));
  EXPECT_THAT(Lines("CHECK:VXRDev_ProcessSrvcInst:"),
              ElementsAre("Service=lsi:SrvcInst=Svc", "Key=DisplayName", "DisplayName=A display name:size=15 bytes",
                          "Key=ServiceType", "ServiceType=0x00000001:size=4 bytes", "Key=StartType",
                          "StartType=0x00000000:size=4 bytes", "Key=ErrorControl",
                          "ErrorControl=0x00000001:size=4 bytes", "Key=ServiceBinary", StartsWith("ServiceBinary="),
                          "Fixed Binary=system32\\drivers\\lsi.sys:size=25 bytes", "Key=LoadOrderGroup",
                          "LoadOrderGroup=SCSI miniport:size=14 bytes"));
}

TEST_F(InstallSection, ChangesNothingInVerificationMode) {
  Begin(false);
  const InfFile inf = OpenInf("t.inf", "[Models]\nDesc = Inst, " + std::string(kId) +
                                           "\n[Inst]\nCopyFiles = @fast.sys\nCopyINF = t.inf\n"
                                           "[Inst.Services]\nAddService = lsi, 2, NoSuchSection\n");
  const std::string before = RestoredTree();
  events.clear();
  EXPECT_TRUE(VXRDev_ProcessModSect(inf.get(), kDirectory, "Models", nullptr, kId, driver));
  EXPECT_EQ(RestoredTree(), before);
  EXPECT_THAT(events, ElementsAre(testing::Field(&MachineEvent::kind, VXRMACHINE_DRIVER_TAKEN)));
  EXPECT_THAT(
      statusLines,
      ElementsAre("Check only, bypassed copying X:\\drivers\\FAST.SYS -> D:\\Windows\\system32\\drivers\\FAST.SYS...\n",
                  "Check only, bypassed copying X:\\drivers\\T.INF -> D:\\Windows\\inf\\T.INF...\n"));
  EXPECT_THAT(Lines("CHECK:VXRDev_ProcessSrvcSect:"),
              ElementsAre("SrvcSect=Inst.NULL:inj=FALSE", "Key=AddService", "Service=lsi...",
                          "SrvInst=NoSuchSection:located ok..."));
}

struct Directive {
  const char *name;
  const char *lines;
  BOOL result;
  std::vector<std::string> errors;  // of VXRDev_ProcessInstSect
};

class Directives : public InstallSection, public testing::WithParamInterface<Directive> {};

TEST_P(Directives, DecideTheSection) {
  Begin(false);
  EXPECT_EQ(Install(GetParam().lines), GetParam().result);
  EXPECT_EQ(Lines("ERROR:VXRDev_ProcessInstSect:"), GetParam().errors);
  EXPECT_THAT(
      Lines("CHECK:VXRDev_ProcessInstSect:"),
      ElementsAre(GetParam().result ? "InstSect=Inst.NULL:processed ok!" : "InstSect=Inst.NULL:processing failed!"));
}

INSTANTIATE_TEST_SUITE_P(
    Sections, Directives,
    testing::Values(
        Directive{"PassedOver", "DriverVer = 01/01/2020\nInclude = x.inf\nDELREG = y\nExcludeID = z\n", TRUE, {}},
        Directive{"Unknown",
                  "DriverVer = 1\nFeatureScore = 0xFF\nDriverVer = 1\n",
                  FALSE,
                  {"unknown field=FeatureScore:corrupted inf file!", "failed to process FeatureScore"}},
        Directive{"KeywordBeginsTheKey", "CopyFilesX = @fast.sys\n", TRUE, {}},
        Directive{"KeyBeginsTheKeyword",
                  "Copy = @fast.sys\n",
                  FALSE,
                  {"unknown field=Copy:corrupted inf file!", "failed to process Copy"}},
        Directive{"LastValueDecides", "CopyFiles = @missing.sys, @fast.sys\n", TRUE, {}},
        Directive{"LastValueFails", "CopyFiles = @fast.sys, @missing.sys\n", FALSE, {"failed to process @MISSING.SYS"}},
        Directive{
            "FailureEndsTheWalk", "CopyINF = missing.inf\nUnknown = 1\n", FALSE, {"failed to process MISSING.INF"}},
        Directive{"NoValue", "CopyFiles =\n", FALSE, {"failed to process CopyFiles"}},
        Directive{"NoSuchCopySection", "CopyFiles = Nowhere\n", FALSE, {"failed to process Nowhere"}},
        Directive{"LastLineWithoutKey", "DriverVer = 1\none, two\n", FALSE, {}},
        Directive{"LineWithoutKeyBefore", "one, two\nDriverVer = 1\n", TRUE, {}},
        Directive{"AddReg", "AddReg = Nowhere\n", TRUE, {}}),
    [](const auto &test) { return test.param.name; });

TEST_F(InstallSection, StopsACopySectionAtTheFirstFailure) {
  Begin(true);
  WriteFile("ram/drivers/storport.sys", "port");
  EXPECT_FALSE(Install("CopyFiles = Files\n[Files]\nstorport.sys, stor2.sys,, 0x10\nmissing.sys\nfastui.dll\n"));
  EXPECT_EQ(ReadFile("restored/Windows/system32/drivers/STORPORT.SYS"), "port");
  EXPECT_FALSE(std::filesystem::exists(Host("restored/Windows/system32/FASTUI.DLL")));
  EXPECT_THAT(Lines("FIXME:VXRDev_ProcessCopySect:"), ElementsAre("src=stor2.sys:NOT-Processed!!!"));
  EXPECT_THAT(Lines("ERROR:VXRDev_ProcessCopySect:"), ElementsAre(HasSubstr("msg=MISSING.SYS")));
  EXPECT_THAT(statusLines, Contains("Failed to locate file X:\\drivers\\MISSING.SYS!\n"));
  EXPECT_EQ(dwError, 11u);
}

// Name, INF directory, where the file is taken from, where it goes.
TEST_F(InstallSection, TellsOfFailedCopies) {
  Begin(true);
  WriteFile("ram/drivers/new.sys", "new");
  const auto drivers = Host("restored/Windows/system32/drivers");
  std::filesystem::rename(drivers, Host("restored/away"));
  EXPECT_FALSE(Install("CopyFiles = @new.sys\n"));
  EXPECT_EQ(dwError, 13u);
  EXPECT_THAT(statusLines,
              Contains("Failed to copy X:\\drivers\\NEW.SYS to D:\\Windows\\system32\\drivers\\NEW.SYS\n"));
  std::filesystem::rename(Host("restored/away"), drivers);
  EXPECT_TRUE(Install("CopyFiles = @new.sys\n"));
  EXPECT_EQ(statusLines.back(),
            "Successfully copied X:\\drivers\\NEW.SYS -> D:\\Windows\\system32\\drivers\\NEW.SYS...\n");
}

TEST_F(InstallSection, ChoosesSourceAndTarget) {
  Begin(false);
  for (const char *file : {"Windows/inf/oem0.inf", "Windows/System32/util.dll", "Windows/System32/drivers/iastor.sys",
                           "drivers/oem0.inf", "drivers/util.dll", "drivers/iastor.sys", "drivers/a.sys.dll"}) {
    WriteFile(std::string("ram/") + file, file);
  }
  const struct {
    const char *name, *directory, *source, *target;
  } cases[] = {
      {"iastor.sys", kDirectory, R"(X:\drivers\IASTOR.SYS)", R"(D:\Windows\system32\drivers\IASTOR.SYS)"},
      {"oem0.inf", kDirectory, R"(X:\drivers\OEM0.INF)", R"(D:\Windows\inf\OEM0.INF)"},
      {"util.dll", kDirectory, R"(X:\drivers\UTIL.DLL)", R"(D:\Windows\system32\UTIL.DLL)"},
      {"a.sys.dll", kDirectory, R"(X:\drivers\A.SYS.DLL)", R"(D:\Windows\system32\drivers\A.SYS.DLL)"},
      {"iastor.sys", R"(x:\WINDOWS\INF\DRV)", R"(X:\Windows\System32\drivers\IASTOR.SYS)",
       R"(D:\Windows\system32\drivers\IASTOR.SYS)"},
      {"oem0.inf", R"(X:\Windows\inf)", R"(X:\Windows\inf\OEM0.INF)", R"(D:\Windows\inf\OEM0.INF)"},
      {"util.dll", R"(X:\Windows\inf)", R"(X:\Windows\System32\UTIL.DLL)", R"(D:\Windows\system32\UTIL.DLL)"},
  };
  for (const auto &c : cases) {
    EXPECT_TRUE(Copy(c.name, c.directory)) << c.name;
    EXPECT_THAT(Lines("CHECK:VXRDev_ProcessCopyFile:source is "), ElementsAre(c.source));
    EXPECT_THAT(Lines("CHECK:VXRDev_ProcessCopyFile:target is "), ElementsAre(std::string(c.target) + "...."));
  }
}

// An INF file may come from anywhere; what it names must not lead out of the directory that we choose.
TEST_F(InstallSection, RefusesNamesOfOtherPlaces) {
  Begin(true);
  WriteFile("ram/evil.sys", "evil");
  WriteFile("ram/drivers/sub/evil.sys", "evil");
  const std::string before = RestoredTree();
  for (const char *name : {"..\\evil.sys",
                           "sub\\evil.sys",
                           "sub/evil.sys",
                           "X:\\evil.sys",
                           "X:evil.sys",
                           "fast.sys:stream",
                           "..",
                           ".",
                           ". .",
                           "",
                           " ",
                           "*.sys",
                           "fas?.sys",
                           "<.sys",
                           "\"fast.sys",
                           "NUL",
                           "nul.sys",
                           "con .sys",
                           "com1.sys",
                           "LPT9",
                           "CONIN$",
                           "a\tb.sys",
                           "COM\xB2.sys"}) {
    dwError = 0;
    EXPECT_FALSE(Copy(name)) << name;
    EXPECT_EQ(dwError, 11u) << name;
    EXPECT_THAT(statusLines, ElementsAre(StartsWith("Failed to locate file "))) << name;
  }
  EXPECT_EQ(RestoredTree(), before);
  EXPECT_FALSE(Copy("missing.sys"));
  for (const char *name : {"null.sys", "com10.sys", "con1.sys", "a..sys"}) {
    WriteFile(std::string("ram/drivers/") + name, name);
    EXPECT_TRUE(Copy(name)) << name;
  }
  UseCodePage(932);  // where the byte of a superscript digit is a letter
  WriteFile("ram/drivers/COM\uFF72.sys", "plain");
  EXPECT_TRUE(Copy("COM\xB2.sys"));
}

struct ServiceSection {
  const char *name;
  const char *lines;
  BOOL result;
  const char *service;  // of the driver; null: none
  std::vector<std::string> errors;
};

class ServiceSections : public InstallSection, public testing::WithParamInterface<ServiceSection> {};

TEST_P(ServiceSections, NeedACompleteAddServiceLine) {
  Begin(false);
  EXPECT_EQ(AddService(GetParam().lines), GetParam().result);
  EXPECT_STREQ(driver->szService, GetParam().service);
  EXPECT_EQ(Lines("ERROR:VXRDev_ProcessSrvcSect:"), GetParam().errors);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, ServiceSections,
    testing::Values(
        ServiceSection{
            "Complete", "Include = a\nAddServiceX = iaStor, 2, Svc, Log\nAddService = b, 2, B\n", TRUE, "iaStor", {}},
        ServiceSection{"NoSection",
                       "AddService = iaStor, 0x00000002\n",
                       FALSE,
                       nullptr,
                       {"field=AddService:missing service install section name!!!"}},
        ServiceSection{"NoName",
                       "AddService = , 0x00000002, Svc\nAddService = second, 2, Svc\n",
                       TRUE,
                       "second",
                       {"field=AddService:missing service name!!!"}},
        ServiceSection{"NoValue", "AddService =\n", FALSE, nullptr, {"field=AddService:missing service name!!!"}},
        ServiceSection{"Unknown",
                       "DelService = x\nAddFilter = y\nNeeds = z\n",
                       FALSE,
                       nullptr,
                       {"unknown field=AddFilter:corrupted inf file!"}},
        ServiceSection{"NoKey", "one, two\nAddService = a, 2, Svc\n", FALSE, nullptr, {}}),
    [](const auto &test) { return test.param.name; });

TEST_F(InstallSection, LetsTheLastServiceLineDecide) {
  Begin(true);
  EXPECT_TRUE(WriteService("StartType =\nDescription = x"));
  EXPECT_THAT(Lines("ERROR:VXRDev_ProcessSrvcInst:"), ElementsAre("unknown field=Description:corrupted inf file!"));
  EXPECT_FALSE(WriteService("StartType = 3\nAddReg = Nowhere"));
  EXPECT_EQ(HiveText("Services\\abc", "Start"), "4:4:3");
  EXPECT_FALSE(WriteService("StartType = 4\none, two"));
  EXPECT_EQ(HiveText("Services\\abc", "Start"), "4:4:4");
  EXPECT_TRUE(
      WriteService("AddReg = Nowhere, Values", "[Values]\nHKR, Parameters, x,, 1\nHKLM,S,x,,1\n, x\nHKCU,S\nhku,S\n"));
  EXPECT_THAT(Lines("CHECK:VXRDev_ProcessSrvcInst:iAdd="), ElementsAre("1:AddReg=Nowhere", "2:AddReg=Values"));
  EXPECT_THAT(Lines("WARNG:VXRDev_ProcessAddReg:"),
              ElementsAre("szRoot=HKCU:bypassed processing...", "szRoot=hku:bypassed processing..."));
  EXPECT_EQ(HiveText("Services\\abc\\Parameters", "x"), "");
  EXPECT_FALSE(VXRDev_ProcessSrvcInst(INVALID_HANDLE_VALUE, kDirectory, "abc", "Svc"));
}

TEST_F(InstallSection, WalksAddRegSectionsOfServicesOnly) {
  Begin(false);
  const InfFile inf = OpenInf("t.inf", "[Values]\n=x\n");
  ClearLog();
  EXPECT_TRUE(VXRDev_ProcessAddReg(inf.get(), kDirectory, "Nowhere", kInstallRoot));
  EXPECT_FALSE(VXRDev_ProcessAddReg(inf.get(), kDirectory, "Nowhere", kServiceRoot));
  EXPECT_FALSE(VXRDev_ProcessAddReg(INVALID_HANDLE_VALUE, kDirectory, "Values", kServiceRoot));
  EXPECT_FALSE(VXRDev_ProcessAddReg(inf.get(), kDirectory, nullptr, kServiceRoot));
  EXPECT_THAT(Lines("WARNG:VXRDev_ProcessAddReg:"), ElementsAre("uiHKRType=0:bypass processing"));
  EXPECT_THAT(Lines("CHECK:VXRDev_ProcessAddReg:section "),
              ElementsAre("Nowhere:done.", "Nowhere:done.", "Values:done.", "(null):done."));
}

TEST_F(InstallSection, ReplacesTheDirectoryOfAnImagePath) {
  Begin(false);
  const std::pair<const char *, const char *> cases[] = {
      {R"(X:\Windows\System32\drivers\iastor.sys)", R"(system32\drivers\iastor.sys)"},
      {R"(\SystemRoot\a.sys)", R"(system32\drivers\a.sys)"},
      {"a.sys", "a.sys"},
      {"", ""},
      {"directory\\", "system32\\drivers\\"},
  };
  for (const auto &[path, fixed] : cases) {
    EXPECT_STREQ(VXRDev_FixSystemPath(HeapText(HeapTexts({path}))).get(), fixed);
  }
  EXPECT_EQ(VXRDev_FixSystemPath(nullptr), nullptr);
  EXPECT_THAT(Lines("ERROR:VXRDev_FixSystemPath:"), ElementsAre("szImage is NULL"));
}

}  // namespace
