// What a package's plan holds, and that carrying it out makes that and nothing else.
#include "package/plan/plan.h"

#include "package/plan/apply.h"
#include "platform/machine/base/fault.h"
#include "registry/mount/hive.h"
#include "tests/support/fault_loop.h"
#include "tests/support/hive_builder.h"
#include "tests/support/pe_builder.h"
#include "tests/support/test_machine.h"

namespace package {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kSystemDirectory[] = "X:\\Windows\\System32";
constexpr char kHiveFile[] = "restored/Windows/System32/config/SYSTEM";
constexpr char kDiskClass[] = "ControlSet001\\Control\\Class\\{4D36E967-E325-11CE-BFC1-08002BE10318}";

constexpr char kVersion[] = R"([Version]
Signature = "$Windows NT$"
ClassGuid = {4D36E97B-E325-11CE-BFC1-08002BE10318}
CatalogFile = arv.cat
)";
// A package of one driver and nothing more; a test adds to its sections by naming them again.
constexpr char kPackage[] = R"(
[Inst]
CopyFiles = @arv.sys
[Inst.Services]
AddService = arv, 2, Svc
[Svc]
ServiceType = 1
StartType = 0
ErrorControl = 3
ServiceBinary = %12%\arv.sys
LoadOrderGroup = SCSI miniport
AddReg = Reg
[DestinationDirs]
DefaultDestDir = 12
[Strings]
Named = 7
)";

// A driver image of 64 bits for that version of Windows; the version resource says `fileVersion` in its first number.
std::string Image(unsigned subsystem = 6, unsigned fileVersion = 0, bool x86 = false) {
  std::string image =
      BuildImage(VersionTree({}).replace(48, 4, std::string(2, '\0') + std::string(1, char(fileVersion)) + '\0'));
  if (x86) image.replace(70, 2, "\x4C\x01");
  image[90 + 48] = static_cast<char>(subsystem);
  return image;
}

class PlanTest : public MachineTest {
 protected:
  PlanTest() {
    std::filesystem::create_directories(Host("restored/Windows/inf"));
    std::filesystem::create_directories(Host("restored/Windows/System32/drivers"));
    std::filesystem::create_directories(Host("restored/Windows/System32/config"));
    WriteFile("ram/pack/arv.sys", Image());
    WriteFile("ram/pack/arv.cat", "catalogue");
    WriteRestoredHive();
    Open();
    Mount();
  }
  ~PlanTest() override { VXRReg_UnloadHive(kSystemDirectory); }

  void WriteRestoredHive() {
    std::vector<HiveValue> values = SystemHiveValues(1);
    for (const std::string set : {"ControlSet001", "ControlSet002"}) {
      const std::string old = set + "\\Services\\old";
      values.push_back(NumberValue(old, "Type", 1));
      values.push_back(NumberValue(old, "Start", 0));
      values.push_back(NumberValue(old, "Tag", 1));
      values.push_back(NumberValue(old, "ErrorControl", 0));
      values.push_back(TextValue(old, "Group", "SCSI Miniport"));
      values.push_back(TextValue(old, "DisplayName", "Old"));
      values.push_back(NumberValue(old + "\\StartOverride", "0", 3));
      values.push_back({old + "\\Parameters", "Bytes", 3, {0x0F, 0xF0}});
      values.push_back({old + "\\Parameters", "List", 7, {'a', 0, 0, 0, 'B', 0, 0, 0, 0, 0}});
    }
    values.push_back(OnlyKey("DriverDatabase"));
    values.push_back(
        {"ControlSet001\\Control\\GroupOrderList", "SCSI Miniport", 3, {2, 0, 0, 0, 9, 0, 0, 0, 1, 0, 0, 0}});
    values.push_back({kDiskClass, "LowerFilters", 7, {'o', 0, 'l', 0, 'd', 0, 0, 0, 0, 0}});
    WriteHive(Host(kHiveFile), values);
  }
  void Mount() { ASSERT_TRUE(VXRReg_LoadHiveFile(kSystemDirectory, "D:\\Windows\\System32\\config\\SYSTEM")); }

  // Plans the package with that text behind its own.
  bool MakePlan(const std::string &more, const std::string &package = kPackage) {
    WriteFile("ram/pack/arv.inf", kVersion + package + more);
    InfSource inf;
    Installation installation;
    plan = {};
    plan.edits = pending;
    reason.clear();
    if (!ReadInfSource("X:\\pack\\arv.inf", SettingsFor(context.target), &inf, &reason)) return false;
    if (!ReadInstallation(inf, "Inst", context.target, {}, &installation, &reason)) return false;
    Candidate candidate;
    candidate.rank.path = inf.path;
    candidate.section = candidate.writtenSection = "Inst";
    candidate.id = context.device.hardware.front();
    candidate.lineIds = {candidate.id};
    candidate.service = "arv";
    candidate.classGuid = "{4D36E97B-E325-11CE-BFC1-08002BE10318}";
    PlanRefusal refusal;
    if (PlanPackage(candidate, installation, context, &plan, &refusal)) return true;
    const char *word = RefusalWord(refusal.kind);
    reason = (word != nullptr ? std::string(word) + ": " : "") + refusal.text;
    return false;
  }

  // What a kind of events says, the mount point left out: "KEY NAME=DATA" and the type of a value.
  std::vector<std::string> Told(std::initializer_list<uint32_t> kinds) const {
    std::vector<std::string> told;
    for (const MachineEvent &event : events) {
      if (std::find(kinds.begin(), kinds.end(), event.kind) == kinds.end()) continue;
      const std::string subject = event.subject.starts_with("SYSTEM_ORG\\") ? event.subject.substr(11) : event.subject;
      told.push_back(subject + ' ' + event.detail + '=' + event.text + ' ' + std::to_string(event.type) + ' ' +
                     std::to_string(event.size));
    }
    return told;
  }
  // The registry changes of a plan.
  std::vector<std::string> Edits() {
    events.clear();
    ReportPlan(plan);
    return Told({VXRMACHINE_PLAN_VALUE, VXRMACHINE_PLAN_KEY, VXRMACHINE_PLAN_DELETE});
  }
  std::vector<std::string> Files() const {
    std::vector<std::string> files;
    for (const PlannedFile &file : plan.files) files.push_back(file.source + ' ' + file.target);
    return files;
  }

  PlanContext context = {.target = {6, 1, 7601, kAmd64},
                         .places = {"D:", "D:\\Windows", "D:\\Windows\\System32", "D:\\Windows\\inf"},
                         .systemDrive = "E:",
                         .controlSet = "ControlSet001",
                         .automaticRecord = false,
                         .classGuid = {},
                         .device = {{"PCI\\VEN_1DEA&DEV_0042"}, {}},
                         .earlierFiles = {},
                         .earlierDirectories = {}};
  RegistryEdits pending;  // of earlier plans
  Plan plan;
  std::string reason;
};

// The lines of a service's section and of what hangs on it, and what each adds to the plan of the driver alone.
struct LineRow {
  const char *lines;
  std::vector<std::string> edits;
  const char *warning;  // part of the one warning; null: none
};

TEST_F(PlanTest, RegistryLines) {
  ASSERT_TRUE(MakePlan("")) << reason;
  const std::vector<std::string> base = Edits();
  EXPECT_THAT(plan.warnings, ElementsAre(HasSubstr("arv.sys holds no signature"), HasSubstr("BootRecord to auto")));
  const std::size_t usual = plan.warnings.size();
  EXPECT_THAT(base, Contains("ControlSet001\\Services\\arv ImagePath=System32\\drivers\\arv.sys 2 50"));
  EXPECT_THAT(base, Contains("ControlSet001\\Services\\arv Tag=0x00000002 (2) 4 4")) << "1 is old's";
  const std::string arv = "ControlSet001\\Services\\arv", old = "ControlSet001\\Services\\old";
  const std::vector<LineRow> rows = {
      {"HKR,Parameters\\PnpInterface,\"5\",0x00010001,1",
       {arv + "\\Parameters\\PnpInterface 5=0x00000001 (1) 4 4"},
       nullptr},
      {"HKR,,Text,,\"%%a%%, %11%\"", {arv + " Text=%a%, E:\\Windows\\System32 1 50"}, nullptr},
      {"HKR,P,N,0x10001,1\n[Svc]\nDelReg = Reg", {arv + "\\P N=0x00000001 (1) 4 4"}, nullptr},
      {"HKR,P,N,0x10001,-1", {arv + "\\P N=0xFFFFFFFF (4294967295) 4 4"}, nullptr},
      {"HKR,P,N,0x10001,1,02,0x3,0", {arv + "\\P N=0x00030201 (197121) 4 4"}, nullptr},
      {"HKR,P,N,%REG_DWORD%,1", {}, "not defined"},
      {"HKR,P,N,0x10001,4294967296", {}, "no number"},
      {"HKR,P,B,1,00,ff,0x0a", {arv + "\\P B=00 FF 0A 3 3"}, nullptr},
      {"HKR,P,B,1,100", {}, "no list of bytes"},
      {"HKR,P,Q,0x000B0001,1,2,3,4,5,6,7,8", {arv + "\\P Q=01 02 03 04 05 06 07 08 11 8"}, nullptr},
      {"HKR,P,L,0x00060001,1", {}, "not given as bytes"},
      {"HKR,P,E,REG_SZ,x", {arv + "\\P E=x 1 4"}, "count as 0"},
      {"HKR,P,L,0x10000,a,,b", {arv + "\\P L=a, b 7 10"}, nullptr},
      {"HKR,P,,0x10", {arv + "\\P = 0 0"}, nullptr},
      {"HKLM,SYSTEM\\CurrentControlSet\\Services\\old,Start,0x10003,2", {}, nullptr},  // no clobber
      {"HKLM,System\\ControlSet001\\Services\\old,New,0x10021,2", {}, nullptr},        // overwrite only
      {"HKLM,SYSTEM\\CurrentControlSet\\Services\\old\\Parameters,List,0x10008,A,c",
       {old + "\\Parameters List=a, B, c 7 14"},
       nullptr},
      {"HKLM,SYSTEM\\CurrentControlSet\\Services\\old,Start,4", {old + " Start= 0 0"}, nullptr},
      {"HKLM,SYSTEM\\Setup,Kind,,x", {"Setup Kind=x 1 4"}, nullptr},
      {"HKLM,SOFTWARE\\x,y,,z\nHKCR,x,y,,z", {}, nullptr},
      {"HRK,x,y,,z", {}, "no root"},
      {"HKLM,SYSTEM,y,,z", {}, "the root of the hive"},
      {"HKR,..\\..\\x,y,,z", {}, "cannot be named"},
      {"HKR,\\\\P\\\\,y,,z", {arv + "\\P y=z 1 4"}, nullptr},
      {"HKLM,SYSTEM\\CurrentControlSet\\Services,,4", {}, "not deleted"},
      {"HKLM,SYSTEM\\CurrentControlSet\\Control\\Class,,4", {}, "not deleted"},
      {"HKR,,Start,0x10001,3", {}, nullptr},  // the device's own driver starts with the system all the same
      {"HKLM,SYSTEM\\CurrentControlSet\\Control\\Class\\{4D36E967-E325-11CE-BFC1-08002BE10318},LowerFilters,0x10008,"
       "arv,gone",
       {std::string(kDiskClass) + " LowerFilters=old, arv 7 18"},
       "The filter gone has no service"},
      {"HKLM,SYSTEM\\CurrentControlSet\\Control\\Class\\{4D36E967-E325-11CE-BFC1-08002BE10318},LowerFilters,0x10000,"
       "arv",
       {std::string(kDiskClass) + " LowerFilters=arv 7 10"},
       "are replaced"},
      {"HKR,P,N,0x10001,%Named%\n[Svc]\nDelReg = "
       "Del\n[Del]\nHKR,P\nHKR,,\nHKLM,SYSTEM\\CurrentControlSet\\Services\\old\\"
       "Parameters,List,0x18002,b",
       {arv + "\\P N=0x00000007 (7) 4 4", old + "\\Parameters List=a 7 6"},
       "not deleted"},
      {"[Svc]\nBitReg = Bits\n[Bits]\nHKLM,SYSTEM\\CurrentControlSet\\Services\\old\\Parameters,Bytes,1,0xF0,0\n"
       "HKLM,SYSTEM\\CurrentControlSet\\Services\\old\\Parameters,Bytes,0,80,1",
       {old + "\\Parameters Bytes=FF 70 3 2"},
       nullptr},
  };
  for (const LineRow &row : rows) {
    ASSERT_TRUE(MakePlan(std::string("[Reg]\n") + row.lines)) << row.lines << reason;
    std::vector<std::string> added;
    for (const std::string &edit : Edits()) {
      if (std::find(base.begin(), base.end(), edit) == base.end()) added.push_back(edit);
    }
    EXPECT_THAT(added, testing::UnorderedElementsAreArray(row.edits)) << row.lines;
    EXPECT_EQ(plan.warnings.size(), row.warning != nullptr ? usual + 1 : usual)
        << row.lines << testing::PrintToString(plan.warnings);
    if (row.warning != nullptr) {
      EXPECT_THAT(plan.warnings, Contains(HasSubstr(row.warning))) << row.lines;
    }
  }
}

TEST_F(PlanTest, FilesAndWarnings) {
  WriteFile("ram/pack/new.sys", Image(10));
  WriteFile("ram/pack/x86.sys", Image(6, 0, true));
  WriteFile("ram/pack/packed.sy_", "");
  WriteFile("ram/pack/tool.exe", "tool");
  WriteFile("ram/pack/version.dll", Image(6, 2));
  WriteFile("restored/Windows/System32/version.dll", Image(6, 3));
  WriteFile("restored/Windows/System32/kept.dll", "old");
  WriteFile("ram/pack/kept.dll", "new");
  std::filesystem::create_directories(Host("restored/Windows/System32/dir.dll"));
  const std::string sys = "X:\\pack\\arv.sys D:\\Windows\\System32\\drivers\\arv.sys";
  const struct {
    const char *lines;
    std::vector<std::string> files;  // null reason
    const char *said;                // part of a warning, of a note, or of the reason when the plan fails
  } rows[] = {
      {"[Inst]\nCopyFiles = L\n[L]\ntool2.exe,tool.exe\n[DestinationDirs]\nL = 11,arv\\sub",
       {sys, "X:\\pack\\tool.exe D:\\Windows\\System32\\arv\\sub\\tool2.exe"},
       ""},
      {"[Inst]\nCopyFiles = L\n[L]\nversion.dll,,,0x20\n[DestinationDirs]\nL = 11", {sys}, "stays as it is"},
      {"[Inst]\nCopyFiles = L\n[L]\nkept.dll,,,0x10\n[DestinationDirs]\nL = 11", {sys}, "stays as it is"},
      {"[Inst]\nCopyFiles = L\n[L]\nkept.dll\n[DestinationDirs]\nL = 11",
       {sys, "X:\\pack\\kept.dll D:\\Windows\\System32\\kept.dll"},
       ""},
      {"[Inst]\nCopyFiles = L\n[L]\ntool.exe,,,0x400\n[DestinationDirs]\nL = 11", {sys}, "stays as it is"},
      {"[Inst]\nCopyFiles = L\n[L]\ngone.dll\n..\\..\\evil.dll\nC:\\evil.dll,tool.exe\n", {sys}, "gone.dll is missing"},
      {"[Inst]\nCopyFiles = L\n[L]\ntool.exe\n[DestinationDirs]\nL = 11,..\\..\\..", {sys}, "is not copied"},
      {"[Inst]\nCopyFiles = L\n[L]\ntool.exe\n[DestinationDirs]\nL = 13",
       {sys, "X:\\pack\\tool.exe D:\\Windows\\System32\\drivers\\tool.exe"},
       "driver store"},
      {"[Inst.Services]\nAddService = flt,,F\n[F]\nServiceType=1\nStartType=0\nServiceBinary=%12%\\new.sys",
       {sys, "X:\\pack\\new.sys D:\\Windows\\System32\\drivers\\new.sys"},
       "made for Windows 10.0"},
      {"[Inst.Services]\nAddService = flt,,F\n[F]\nServiceType=1\nStartType=0\nServiceBinary=%12%\\x86.sys",
       {},
       "architecture: The file X:\\pack\\x86.sys of the service flt is for another processor"},
      {"[Inst.Services]\nAddService = flt,,F\n[F]\nServiceType=1\nStartType=0\nServiceBinary=%12%\\none.sys",
       {},
       "file-missing: The file X:\\pack\\none.sys"},
      {"[Inst.Services]\nAddService = flt,,F\n[F]\nServiceType=1\nStartType=0\nServiceBinary=%12%\\packed.sys",
       {},
       "compressed: "},
      {"[Inst.Services]\nAddService = a\\b,,F\n[F]\nServiceType=1\nStartType=0\nServiceBinary=%12%\\arv.sys",
       {},
       "no-binary: The package names a service"},
      {"[Inst]\nCopyFiles = L\n[L]\nb.sys,new.sys\n[DestinationDirs]\nL = 11\n[Inst.Services]\nAddService = flt,,F\n"
       "[F]\nServiceType=1\nStartType=0\nServiceBinary=%11%\\b.sys",
       {sys, "X:\\pack\\new.sys D:\\Windows\\System32\\b.sys",
        "X:\\pack\\new.sys D:\\Windows\\System32\\drivers\\b.sys"},
       ""},
      {"[Inst.Services]\nAddService = flt,,F\n[F]\nServiceType=1\nStartType=3\nServiceBinary=%12%\\new.sys\n"
       "[Inst.HW]\nAddReg = H\n[H]\nHKR,,LowerFilters,0x10000,flt",
       {sys, "X:\\pack\\new.sys D:\\Windows\\System32\\drivers\\new.sys"},
       "does not start with the system"},
      {"[Inst.Services]\nAddService = app,,F\n[F]\nServiceType=0x10\nStartType=2\nServiceBinary=%11%\\app.exe",
       {sys},
       "no driver that starts"},
  };
  for (const auto &row : rows) {
    const bool planned = MakePlan(row.lines);
    EXPECT_EQ(planned, !row.files.empty()) << row.lines << reason;
    if (planned) {
      EXPECT_THAT(Files(), testing::UnorderedElementsAreArray(row.files)) << row.lines;
    }
    std::vector<std::string> said = plan.warnings;
    said.insert(said.end(), plan.notes.begin(), plan.notes.end());
    said.push_back(reason);
    EXPECT_THAT(said, Contains(HasSubstr(row.said))) << row.lines;
  }
}

// An existing service that is held back, a filter, and what is written of both.
constexpr char kWhole[] = R"(
[Inst]
CopyFiles = Ui
[Ui]
tool.exe
[DestinationDirs]
Ui = 11,arv
[Inst.Services]
AddService = old, 0x29, Old
[Old]
ServiceType = 1
StartType = 0
ErrorControl = 1
DisplayName = New
ServiceBinary = %12%\new.sys
LoadOrderGroup = SCSI miniport
Dependencies = disk, +SCSI Class
[Inst.HW]
AddReg = Hw
[Hw]
HKR,,UpperFilters,0x10000,old,gone
HKR,"Interrupt Management\MessageSignaledInterruptProperties",MSISupported,0x10001,1
[Reg]
HKR,P,N,0x10001,1
HKR,P,N,0x10001,2
[Svc]
DelReg = Del
[Del]
HKR,P
)";

TEST_F(PlanTest, IsWhatIsWrittenAndASecondOneIsEmpty) {
  WriteFile("ram/pack/new.sys", Image());
  WriteFile("ram/pack/tool.exe", "tool");
  ASSERT_TRUE(MakePlan(kWhole)) << reason;
  EXPECT_THAT(plan.directories, ElementsAre("D:\\Windows\\System32\\arv"));
  const std::vector<std::string> edits = Edits();
  const std::string old = "\\Services\\old";
  for (const std::string &edit : std::vector<std::string>{
           "ControlSet001" + old + " DependOnService=disk 7 12",
           "ControlSet001" + old + " ImagePath=System32\\drivers\\new.sys 2 50",
           "ControlSet001\\Control\\GroupOrderList SCSI miniport=02 00 00 00 01 00 00 00 09 00 00 00 3 12",
           "ControlSet001" + old + "\\StartOverride = 0 0", "ControlSet002" + old + "\\StartOverride = 0 0"}) {
    EXPECT_THAT(edits, Contains(edit));
  }
  EXPECT_THAT(edits, testing::Not(Contains(HasSubstr("DisplayName")))) << "kept by 0x8";
  EXPECT_THAT(edits, testing::Not(Contains(HasSubstr("ErrorControl=0x00000001")))) << "kept by 0x20";
  EXPECT_THAT(edits, Contains(HasSubstr("UpperFilters=old 7")));
  const std::vector<std::string> values = Told({VXRMACHINE_PLAN_VALUE}), files = Told({VXRMACHINE_PLAN_FILE});
  const std::vector<std::string> deleted = Told({VXRMACHINE_PLAN_DELETE});
  // A second device adds nothing to a plan that is not carried out, as it adds nothing once it is.
  const Plan first = plan;
  pending = plan.edits;
  context.earlierFiles = plan.files;
  context.earlierDirectories = plan.directories;
  ASSERT_TRUE(MakePlan(kWhole)) << reason;
  EXPECT_EQ(plan.edits.list.size(), pending.list.size());
  EXPECT_THAT(Files(), IsEmpty());
  EXPECT_THAT(plan.directories, IsEmpty());
  pending = {};
  context.earlierFiles.clear();
  context.earlierDirectories.clear();

  plan = first;
  events.clear();
  std::string failed;
  ASSERT_EQ(ApplyPlan(plan, &failed), ApplyResult::kDone) << failed;
  EXPECT_EQ(Told({VXRMACHINE_VALUE_WRITTEN}), values);
  EXPECT_EQ(Told({VXRMACHINE_FILE_COPIED}), files);
  EXPECT_EQ(Told({VXRMACHINE_VALUE_DELETED}), deleted);
  EXPECT_EQ(ReadFile("restored/Windows/System32/arv/tool.exe"), "tool");
  ASSERT_TRUE(MakePlan(kWhole));
  EXPECT_THAT(Edits(), IsEmpty());
  EXPECT_THAT(Files(), IsEmpty());

  // The newer record, after which the package's driver is one that the system has itself.
  context.automaticRecord = true;
  ASSERT_TRUE(MakePlan(kWhole));
  EXPECT_EQ(plan.publishedName, "oem0.inf");
  EXPECT_THAT(Edits(), Contains("ControlSet001\\Services\\arv Owners=oem0.inf 7 20"));
  EXPECT_THAT(Edits(), Contains(HasSubstr("\\Configurations\\Inst\\Services\\arv\\P N=0x00000002 (2) 4 4")));
  EXPECT_THAT(Edits(), Contains(HasSubstr("MessageSignaledInterruptProperties MSISupported=0x00000001 (1) 4 4")));
  ASSERT_EQ(ApplyPlan(plan, &failed), ApplyResult::kDone) << failed;
  ASSERT_TRUE(MakePlan(kWhole));
  EXPECT_THAT(Edits(), IsEmpty());
  SetValue(&plan.edits, "ControlSet001\\Services\\arv", "Start", NumberData(3));
  PlanDevicesAbove({{{"PCI\\OTHER"}, {}}, context.device}, context, &plan);
  EXPECT_THAT(Edits(), ElementsAre(HasSubstr("Start=0x00000003"), HasSubstr("Start=0x00000000")));
}

// A list of class filters that cannot be read must not be planned anew: the disks' filters would be gone.
TEST_F(PlanTest, AFailedReadIsAReason) {
  const std::string append = std::string("[Reg]\nHKLM,SYSTEM\\") + kDiskClass + ",LowerFilters,0x10008,arv";
  ASSERT_TRUE(MakePlan(append)) << reason;
  for (const char *call : {"RegOpenKeyA", "RegQueryValueExA", "RegEnumKeyExA"}) {
    bool planned = false, met = true;
    for (unsigned nth = 1; met; ++nth) {
      machine::SetFaultPlan({call, nth, false, ERROR_ACCESS_DENIED});
      planned = MakePlan(append);
      met = machine::FaultsMet() != 0;
      machine::SetFaultPlan({});
      if (!planned) {
        std::string failed;
        EXPECT_THAT(reason, HasSubstr("could not be read"));
        EXPECT_EQ(ApplyPlan(plan, &failed), ApplyResult::kNotReady) << call << nth;
      } else if (met) {
        EXPECT_THAT(Edits(), Contains(HasSubstr("LowerFilters=old, arv 7"))) << "only a tag was not read";
      }
    }
    EXPECT_TRUE(planned) << call;
  }
}

class ApplyFaultLoop : public PlanTest, public testing::WithParamInterface<FaultLoop> {};

TEST_P(ApplyFaultLoop, MakesAllOrLeavesTheHive) {
  WriteFile("ram/pack/new.sys", Image());
  WriteFile("ram/pack/tool.exe", "tool");
  ApplyResult result = ApplyResult::kDone;
  std::vector<std::string> edits;
  std::string hive;
  const auto prepare = [&] {
    VXRReg_UnloadHive(kSystemDirectory);
    Close();
    std::filesystem::remove_all(Host("restored/Windows/System32/arv"));
    std::filesystem::remove_all(Host("restored/Windows/System32/drivers"));
    std::filesystem::create_directories(Host("restored/Windows/System32/drivers"));
    WriteRestoredHive();
    hive = ReadFile(kHiveFile);
    Open();
    Mount();
    ASSERT_TRUE(MakePlan(kWhole)) << reason;
    edits = Edits();
    events.clear();
  };
  const auto attempt = [&] {
    std::string failed;
    result = ApplyPlan(plan, &failed);
    EXPECT_EQ(failed.empty(), result == ApplyResult::kDone);
  };
  const auto check = [&](bool faulted) {
    EXPECT_TRUE(faulted || result == ApplyResult::kDone);
    const bool hiveLost = !Told({VXRMACHINE_HIVE_NOT_RESTORED}).empty();
    for (const std::string &file : Told({VXRMACHINE_FILE_LEFT})) {
      const std::string path = file.substr(0, file.find(' '));
      EXPECT_THAT(Told({VXRMACHINE_FILE_COPIED}), Contains(StartsWith(path)));
    }
    ASSERT_TRUE(MakePlan(kWhole)) << reason;
    if (result == ApplyResult::kDone) {
      EXPECT_THAT(Edits(), IsEmpty());
    } else if (!hiveLost) {
      EXPECT_EQ(Edits(), edits) << "the hive is not as it was";
    }
    EXPECT_EQ(VXRReg_UnloadHive(kSystemDirectory), !hiveLost);
    EXPECT_EQ(ReadFile(kHiveFile) == hive, result != ApplyResult::kDone) << "what was taken back is not saved";
  };
  RunFaultLoop(GetParam(), &log, {prepare, attempt, check});
}
INSTANTIATE_TEST_SUITE_P(Shares, ApplyFaultLoop, testing::ValuesIn(AllFaultLoops()));

}  // namespace
}  // namespace package
