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
}

// Lines of an install section, or of a service section; the result, the service that a service section names, and the
// errors.
struct Section {
  const char *lines;
  BOOL result;
  const char *service;
  std::vector<std::string> errors;
};

TEST_F(InstallSection, IsDecidedByItsLines) {
  Begin(false);
  const Section sections[] = {
      {"DriverVer = 01/01/2020\nInclude = x.inf\nDELREG = y\nExcludeID = z\n", TRUE, nullptr, {}},
      {"DriverVer = 1\nFeatureScore = 0xFF\nDriverVer = 1\n",
       FALSE,
       nullptr,
       {"unknown field=FeatureScore:corrupted inf file!", "failed to process FeatureScore"}},
      {"CopyFilesX = @fast.sys\n", TRUE, nullptr, {}},
      {"Copy = @fast.sys\n", FALSE, nullptr, {"unknown field=Copy:corrupted inf file!", "failed to process Copy"}},
      {"CopyFiles = @missing.sys,, @fast.sys,\n", TRUE, nullptr, {}},  // the last value decides
      {"CopyFiles = @fast.sys, @missing.sys,\n", FALSE, nullptr, {"failed to process @MISSING.SYS"}},
      {"CopyINF = missing.inf\nUnknown = 1\n", FALSE, nullptr, {"failed to process MISSING.INF"}},
      {"CopyFiles = ,\n", FALSE, nullptr, {"failed to process CopyFiles"}},
      {"CopyFiles = Nowhere\n", FALSE, nullptr, {"failed to process Nowhere"}},
      {"DriverVer = 1\none, two\n", FALSE, nullptr, {}},
      {"one, two\nDriverVer = 1\n", TRUE, nullptr, {}},
      {"AddReg = Nowhere,\n", TRUE, nullptr, {}},
  };
  for (const Section &row : sections) {
    EXPECT_EQ(Install(row.lines), row.result) << row.lines;
    EXPECT_EQ(Lines("ERROR:VXRDev_ProcessInstSect:"), row.errors) << row.lines;
    EXPECT_THAT(Lines("CHECK:VXRDev_ProcessInstSect:"),
                ElementsAre(row.result ? "InstSect=Inst.NULL:processed ok!" : "InstSect=Inst.NULL:processing failed!"));
  }
  const Section services[] = {
      {"Include = a\nAddServiceX = iaStor, 2, Svc, Log\nAddService = b, 2, B\n", TRUE, "iaStor", {}},
      {"AddService = iaStor, 2\n", FALSE, nullptr, {"field=AddService:missing service install section name!!!"}},
      {"AddService = , 2, Svc\nAddService = second, 2, Svc\n",
       TRUE,
       "second",
       {"field=AddService:missing service name!!!"}},
      {"AddService =\n", FALSE, nullptr, {"field=AddService:missing service name!!!"}},
      {"DelService = x\nAddFilter = y\nNeeds = z\n", FALSE, nullptr, {"unknown field=AddFilter:corrupted inf file!"}},
      {"one, two\nAddService = a, 2, Svc\n", FALSE, nullptr, {}},
  };
  for (const Section &row : services) {
    FreeMember(driver->szService);
    EXPECT_EQ(AddService(row.lines), row.result) << row.lines;
    EXPECT_STREQ(driver->szService, row.service) << row.lines;
    EXPECT_EQ(Lines("ERROR:VXRDev_ProcessSrvcSect:"), row.errors) << row.lines;
  }
}

TEST_F(InstallSection, StopsACopySectionAtTheFirstFailure) {
  Begin(true);
  WriteFile("ram/drivers/storport.sys", "port");
  EXPECT_FALSE(Install(
      "CopyFiles = Files\n[Files]\nstorport.sys, stor2.sys,, 0x10\nstorport.sys,,,1\nmissing.sys\nfastui.dll\n"));
  EXPECT_EQ(ReadFile("restored/Windows/system32/drivers/STORPORT.SYS"), "port");
  EXPECT_FALSE(std::filesystem::exists(Host("restored/Windows/system32/FASTUI.DLL")));
  EXPECT_THAT(Lines("FIXME:VXRDev_ProcessCopySect:"), ElementsAre("src=stor2.sys:NOT-Processed!!!"));
  EXPECT_THAT(Lines("ERROR:VXRDev_ProcessCopySect:"), ElementsAre(HasSubstr("msg=MISSING.SYS")));
  EXPECT_THAT(statusLines, Contains("Failed to locate file X:\\drivers\\MISSING.SYS!\n"));
  EXPECT_EQ(dwError, 11u);
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

TEST_F(InstallSection, LetsTheLastServiceLineDecide) {
  Begin(true);
  EXPECT_TRUE(WriteService("StartType =\nDescription = x"));
  EXPECT_THAT(Lines("ERROR:VXRDev_ProcessSrvcInst:"), ElementsAre("unknown field=Description:corrupted inf file!"));
  EXPECT_FALSE(WriteService("StartType = 3\nAddReg = Nowhere"));
  EXPECT_EQ(HiveText("Services\\abc", "Start"), "4:4:3");
  EXPECT_FALSE(WriteService("StartType = 4\none, two"));
  EXPECT_EQ(HiveText("Services\\abc", "Start"), "4:4:4");
  EXPECT_TRUE(WriteService("AddReg = Nowhere,, Values,",
                           "[Values]\nHKR, Parameters, x,, 1\nHKLM,S,x,,1\n, x\nHKCU,S\nhku,S\n"));
  EXPECT_THAT(Lines("CHECK:VXRDev_ProcessSrvcInst:iAdd="), ElementsAre("1:AddReg=Nowhere", "3:AddReg=Values"));
  EXPECT_THAT(Lines("WARNG:VXRDev_ProcessAddReg:"),
              ElementsAre("szRoot=HKCU:bypassed processing...", "szRoot=hku:bypassed processing..."));
  EXPECT_EQ(HiveText("Services\\abc\\Parameters", "x"), "");
  EXPECT_FALSE(VXRDev_ProcessSrvcInst(INVALID_HANDLE_VALUE, kDirectory, "abc", "Svc"));
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
