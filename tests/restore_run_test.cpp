// The whole restore run, on the described machine: every result code, both modes, and what each leaves behind.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <regex>

#include "platform/machine/base/fault.h"
#include "tests/support/restore_job.h"
#include "tools/vxr/base/choice_lines.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::StartsWith;

std::string Replaced(std::string text, const std::string &from, const std::string &to) {
  const std::size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

struct Bend {
  const char *name;
  uint32_t injected, verified;  // result codes of the two modes
  const char *statusLine;       // a line that must have been shown in injection mode
  // Changes the job before it is opened: the machine file's text and the folder.
  void (*bend)(std::string *toml, const std::filesystem::path &folder);
};

void WriteBytes(const std::filesystem::path &file, const std::string &bytes) {
  std::ofstream(file, std::ios::binary) << bytes;
}

std::string ReadBytes(const std::filesystem::path &file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

void EditInf(const std::filesystem::path &folder, const std::string &from, const std::string &to) {
  const auto file = folder / "ram/drivers/fast.inf";
  WriteBytes(file, Replaced(ReadBytes(file), from, to));
}

void EditHive(const std::filesystem::path &folder, void (*edit)(std::string *bytes)) {
  const auto file = folder / "restored/Windows/system32/config/SYSTEM";
  std::string bytes = ReadBytes(file);
  edit(&bytes);
  WriteBytes(file, bytes);
}

void NameExtension(std::string *toml, const std::filesystem::path &folder, const std::string &bytes) {
  WriteBytes(folder / "ram/machine.bme", bytes);
  *toml += "BMEFile = 'X:\\machine.bme'\n";
}

const Bend kBends[] = {
    {"AllFits", 0, 0, "Successfully finished Vexmorph for driver files injection!\n", [](std::string *, auto &) {}},
    {"NoFileListsTheController", 3, 3, "Failed to locate driver files for device PCI\\VEN_1000&DEV_0030",
     [](std::string *, auto &folder) { EditInf(folder, "DEV_0030", "DEV_9999"); }},
    {"HiveMissing", 4, 0, "Failed to load the original registry hive file failed!\n",
     [](std::string *, auto &folder) { std::filesystem::remove(folder / "restored/Windows/system32/config/SYSTEM"); }},
    {"HiveTruncated", 4, 0, "Failed to load the original registry hive file failed!\n",
     [](std::string *, auto &folder) { EditHive(folder, [](std::string *bytes) { bytes->resize(5000); }); }},
    {"HiveIsNoise", 4, 0, "Failed to load the original registry hive file failed!\n",
     [](std::string *, auto &folder) { EditHive(folder, [](std::string *bytes) { bytes->assign(9000, 'n'); }); }},
    {"HiveDirty", 4, 0, "Failed to load the original registry hive file failed!\n",
     [](std::string *, auto &folder) {
       EditHive(folder, [](std::string *bytes) {  // another primary sequence number, with the checksum to match
         (*bytes)[4] ^= 1;
         (*bytes)[508] ^= 1;
       });
     }},
    {"NoComputerDevice", 7, 7, "Failed to initialize Vexmorph engine!",
     [](std::string *toml, auto &) { *toml = Replaced(*toml, "class = 'Computer'", "class = 'Net'"); }},
    {"RootPathMissing", 8, 8, "Failed to initialize the Bare Metal restore information!",
     [](std::string *toml, auto &) { *toml = Replaced(*toml, "RootPath", "RootPathX"); }},
    {"ExtensionMissing", 9, 9, "Failed to initialize the Bare Metal extension information!",
     [](std::string *toml, auto &) { *toml += "BMEFile = 'X:\\none.bme'\n"; }},
    {"ExtensionShort", 9, 9, "Failed to initialize the Bare Metal extension information!",
     [](std::string *toml, auto &folder) { NameExtension(toml, folder, "HbMe" + std::string(80327, '\0')); }},
    {"ExtensionWrongMagic", 9, 9, "Failed to initialize the Bare Metal extension information!",
     [](std::string *toml, auto &folder) { NameExtension(toml, folder, "WbMe" + std::string(80328, '\0')); }},
    {"UnsupportedSystem", 3, 3, "Failed to locate driver files for device scsi\\disk",
     [](std::string *toml, auto &) { *toml = Replaced(*toml, "OSVerMaj = 6", "OSVerMaj = 4"); }},
    // A missing file that is not the line's last: its code stays, since nothing fails after it.
    {"FileMissing", 11, 11, "Failed to locate file X:\\drivers\\FAST.SYS!\n",
     [](std::string *, auto &folder) { std::filesystem::remove(folder / "ram/drivers/fast.sys"); }},
    {"LastFileMissing", 3, 3, "Failed to locate file X:\\drivers\\FASTUI.DLL!\n",
     [](std::string *, auto &folder) { std::filesystem::remove(folder / "ram/drivers/fastui.dll"); }},
    {"FileNotCopyable", 13, 0, "Failed to copy X:\\drivers\\FAST.SYS to D:\\Windows\\system32\\drivers\\FAST.SYS\n",
     [](std::string *, auto &folder) { std::filesystem::remove_all(folder / "restored/Windows/system32/drivers"); }},
    {"CancelledAtEmptyDirectory", 3, 3, "User cancelled searching for driver files.",
     [](std::string *, auto &folder) { std::filesystem::remove(folder / "ram/drivers/fast.inf"); }},
    {"NamedIdFound", 0, 0, "Successfully finished Vexmorph for driver files injection!\n",
     [](std::string *toml, auto &) {
       *toml = Replaced(*toml, "InfDir = 'X:\\drivers'",
                        "InfDir = 'X:\\drivers\\fast.inf'\nHardwareID = 'pci\\ven_1000&dev_0030'");
     }},
    {"NamedIdNotFound", 58, 58, "Failed to perform Vexmorph for driver files injection!\n",
     [](std::string *toml, auto &) {
       *toml = Replaced(*toml, "InfDir = 'X:\\drivers'",
                        "InfDir = 'X:\\drivers\\fast.inf'\nHardwareID = 'PCI\\VEN_1000&DEV_0031'");
     }},
};

class ResultCode : public RestoreJobTest, public testing::WithParamInterface<Bend> {};

TEST_P(ResultCode, IsThatOfTheLastFailure) {
  const Bend &bend = GetParam();
  OpenJob([&](std::string *toml) { bend.bend(toml, folder); });
  const std::string before = RestoredTree();

  EXPECT_EQ(Run(false), bend.verified);
  EXPECT_EQ(RestoredTree(), before) << "a verification changed the restored system";

  statusLines.clear();
  EXPECT_EQ(Run(true), bend.injected);
  EXPECT_THAT(statusLines, Contains(StartsWith(bend.statusLine)));
  if (bend.injected == 4) {
    EXPECT_EQ(RestoredTree(), before) << "a refused hive was changed";
  }
}

INSTANTIATE_TEST_SUITE_P(RestoreRun, ResultCode, testing::ValuesIn(kBends),
                         [](const auto &test) { return std::string(test.param.name); });

TEST_F(RestoreJobTest, InjectionLeavesFilesServiceAndCriticalDevice) {
  OpenJob();
  ASSERT_EQ(Run(true), 0u);
  EXPECT_EQ(ReadFile("restored/Windows/system32/drivers/FAST.SYS"), "the new driver, longer than the old one");
  EXPECT_EQ(ReadFile("restored/Windows/system32/FASTUI.DLL"), "a library");
  ExpectHiveWhole();

  std::vector<std::string> written;
  for (const MachineEvent &event : events)
    if (event.kind == VXRMACHINE_VALUE_WRITTEN) written.push_back(event.subject + ": " + event.detail);
  const std::string service = "SYSTEM_ORG\\ControlSet001\\Services\\fast: ";
  const std::string critical = "SYSTEM_ORG\\ControlSet001\\Control\\CriticalDeviceDatabase\\PCI#VEN_1000&DEV_0030: ";
  EXPECT_THAT(written, testing::ElementsAre(service + "DisplayName", service + "Type", service + "Start",
                                            service + "ErrorControl", service + "ImagePath", service + "Group",
                                            critical + "ClassGUID", critical + "Service"));
}

// Every file of the machine with its mode, its times and its bytes.
std::string WholeMachine(const std::filesystem::path &folder) {
  std::vector<std::string> files;
  for (const auto &entry : std::filesystem::recursive_directory_iterator(folder)) {
    struct stat status = {};
    stat(entry.path().c_str(), &status);
    std::string file = entry.path().string();
    for (const long number : {long{status.st_mode}, status.st_mtim.tv_sec, status.st_mtim.tv_nsec,
                              status.st_ctim.tv_sec, status.st_ctim.tv_nsec}) {
      file += ' ' + std::to_string(number);
    }
    files.push_back(file + (entry.is_regular_file() ? '\n' + ReadBytes(entry.path()) : ""));
  }
  std::sort(files.begin(), files.end());
  return testing::PrintToString(files);
}

// The extension file of this job is written to through its mapping; an old driver is read-only; neither changes.
TEST_F(RestoreJobTest, ARehearsalTellsWhatTheInjectionThenDoesAndChangesNothing) {
  OpenJob([this](std::string *toml) {
    NameExtension(toml, folder, "HbMe" + std::string(80328, '\0'));
    std::filesystem::permissions(folder / "restored/Windows/system32/drivers/FAST.SYS", std::filesystem::perms(0444));
  });
  const auto told = [this](bool inject) {
    std::vector<std::string> all;
    events.clear();
    statusLines.clear();
    EXPECT_EQ(Run(inject), 0u);
    for (const MachineEvent &event : events) {
      const bool digest = event.kind == VXRMACHINE_HIVE_SAVED;  // which only a rehearsal tells
      all.push_back(std::to_string(event.kind) + event.subject + event.detail + (digest ? "" : event.text) +
                    std::to_string(event.size));
    }
    all.insert(all.end(), statusLines.begin(), statusLines.end());
    VXRDbg_Cleanup();
    return all;
  };
  const std::string before = WholeMachine(folder);
  ASSERT_TRUE(VXRMachine_Rehearse(1));
  const auto rehearsed = told(true);
  EXPECT_EQ(told(true), rehearsed) << "within one rehearsal";
  EXPECT_EQ(VXREng_CreateBMExtFile("X:\\new.bme", nullptr, nullptr), 9u);
  ASSERT_TRUE(VXRMachine_Rehearse(0));
  EXPECT_TRUE(WholeMachine(folder) == before) << "a rehearsal changed a file";
  EXPECT_EQ(told(true), rehearsed);
  EXPECT_EQ(ReadFile("restored/Windows/system32/drivers/FAST.SYS"), "the new driver, longer than the old one");
}

TEST_F(RestoreJobTest, SecondRunFindsWhatTheFirstLeft) {
  OpenJob();
  ASSERT_EQ(Run(true), 0u);
  ASSERT_EQ(Run(true), 0u);
  ExpectHiveWhole();
}

// The log's stages in the order of the run, each once, at a level that tells the story.
TEST_F(RestoreJobTest, LogTellsTheRunInOrder) {
  OpenJob();
  ASSERT_EQ(Run(true), 0u);
  std::size_t at = 0;
  for (const char *stage :
       {"CHECK:VXREng_RunVXR:job=1:driver files injection:_START_", "gpVXRParaBlock initailzed ok",
        "initialized ok:ExtHead=", "gpVXRBMRestore initailzed ok", "szRootPath=D:\\Windows:chRootDrive=D",
        "Control Set Index = 1", "building vxr devices...", "found match:sec=Models:arch=ntamd64",
        "total 1 vxr disks found", "unloaded original hive", "CHECK:VXR [driver files injection]:error= 0.",
        "freeing gpVXRBMRestore", "freeing gpVXRParaBlock", "driver files injection:_FINISH_"}) {
    const std::size_t found = log.find(stage, at);
    ASSERT_NE(found, std::string::npos) << stage << " is missing or out of order";
    at = found;
  }
}

// Nothing tells that a job could have chosen another way, but that the values of its key are looked through, once.
TEST_F(RestoreJobTest, AJobThatChoosesNothingIsLoggedAsItAlwaysWas) {
  constexpr char kWarning[] =
      "WARNG:VXRRlm_Initialize:DriverRules=nonsense is none of exact and windows, exact is used\n";
  std::string usual;
  for (const char *choice :
       {"(the first injection)", "", "BootRecord = 'EXACT'\nDriverRules = 'exact'\n", "DriverRules = 'nonsense'\n"}) {
    SCOPED_TRACE(choice);
    OpenJob([&](std::string *toml) { *toml += *choice == '(' ? "" : choice; });
    machine::SetFaultPlan({"RegEnumValueA", 1000, false, 0});
    ClearLog();
    EXPECT_EQ(Run(true), 0u);
    const auto values = 7 + static_cast<unsigned>(std::count(choice, choice + std::strlen(choice), '\n'));
    EXPECT_EQ(machine::FaultCalls(), values + 1);
    machine::SetFaultPlan({});
    Close();
    std::string now = std::regex_replace(log, std::regex("[0-9A-F]{8,16}|[0-9]+:[0-9]+:[0-9]+"), "#");
    if (*choice == '\0') usual = now;
    if (choice[0] == 'D') now = Replaced(now, kWarning, "");
    if (*choice != '(') {
      EXPECT_EQ(now, usual);
    }
  }
}

TEST_F(RestoreJobTest, NamedIdCheckChangesNothingInInjectionMode) {
  OpenJob([](std::string *toml) {
    *toml = Replaced(*toml, "InfDir = 'X:\\drivers'",
                     "InfDir = 'X:\\drivers\\fast.inf'\nHardwareID = 'PCI\\VEN_1000&DEV_0030'");
  });
  const std::string before = RestoredTree();
  EXPECT_EQ(Run(true), 0u);
  EXPECT_EQ(RestoredTree(), before);
}

TEST_F(RestoreJobTest, NamedIdOfAnUnsupportedSystemFailsWithoutALineOfTheRun) {
  OpenJob([](std::string *toml) {
    *toml = Replaced(Replaced(*toml, "HAL = 9", "HAL = 5"), "InfDir = 'X:\\drivers'",
                     "InfDir = 'X:\\drivers\\fast.inf'\nHardwareID = 'x'");
  });
  EXPECT_EQ(Run(true), 58u);
  EXPECT_THAT(Lines("ERROR:VXRExt_GetTargetOS:"), testing::SizeIs(1));
  EXPECT_THAT(Lines("ERROR:VXREng_RunVXR:"), testing::IsEmpty());
}

TEST_F(RestoreJobTest, NamedIdThatCannotBeReadIsNotTakenForNone) {
  int unread = 0;
  const std::string before = RestoredTree();
  for (unsigned call = 1, faults = 1; faults != 0; ++call) {
    OpenJob([](std::string *toml) {
      *toml = Replaced(*toml, "InfDir = 'X:\\drivers'",
                       "InfDir = 'X:\\drivers\\fast.inf'\nHardwareID = 'PCI\\VEN_1000&DEV_0030'");
    });
    machine::SetFaultPlan({"RegQueryValueExA", call, false, ERROR_ACCESS_DENIED});
    const uint32_t result = Run(true);
    faults = machine::FaultsMet();
    machine::SetFaultPlan({});
    EXPECT_EQ(RestoredTree(), before) << "read " << call;
    if (log.find("Relmar\\1\\HardwareID) failed") != std::string::npos) {
      ++unread;
      EXPECT_EQ(result, 58u) << "read " << call;
      EXPECT_THAT(log, HasSubstr("unloaded original hive")) << "read " << call;
    }
    Close();
    ClearLog();
  }
  EXPECT_EQ(unread, 2) << "its size and its data";
}

// The name of a key beside the new service's cannot be read: whether the service is there cannot be known.
TEST_F(RestoreJobTest, DamagedHiveIsNotSavedAndEachLostKeyIsTold) {
  EditHive(folder, [](std::string *bytes) {
    const std::size_t at = bytes->find("disk", bytes->find("Services"));
    ASSERT_NE(at, std::string::npos);
    (*bytes)[at - 4] = (*bytes)[at - 3] = '\xFF';  // its name's length
  });
  const std::string hive = ReadFile(kHivePath);
  OpenJob();
  Run(true);
  EXPECT_EQ(ReadFile(kHivePath), hive);
  const auto hasKind = [&](uint32_t kind, const char *detail, const char *text) {
    return std::any_of(events.begin(), events.end(), [&](const MachineEvent &event) {
      return event.kind == kind && event.detail.find(detail) != std::string::npos &&
             event.text.find(text) != std::string::npos;
    });
  };
  EXPECT_TRUE(hasKind(VXRMACHINE_VALUE_NOT_WRITTEN, "", "the hive is damaged"));
  EXPECT_TRUE(hasKind(VXRMACHINE_HIVE_NOT_SAVED, "restore the hive file again", ""));
  EXPECT_FALSE(hasKind(VXRMACHINE_HIVE_SAVED, "", ""));
}

TEST_F(RestoreJobTest, RunWithoutWindowGivesTheSameCode) {
  OpenJob([this](std::string *) { EditInf(folder, "DEV_0030", "DEV_9999"); });
  EXPECT_EQ(VXREng_RunVXR(1, 1, nullptr, nullptr), 3u);
  EXPECT_THAT(log, testing::Not(HasSubstr("STMSG:")));
}

// The command line on Windows hears of a choice by Windows' rules from the log alone.
std::vector<std::string> heard;
void Hear(const VXRMachine_Event &event) {
  const bool described = event.kind == VXRMACHINE_CANDIDATE;  // which the log does not say
  heard.push_back(std::to_string(event.kind) + ' ' + std::to_string(event.type) + ' ' + std::to_string(event.size));
  for (const char *text : {event.subject, event.detail, described ? nullptr : event.text}) {
    heard.back() += std::string(" |") + (text == nullptr ? "" : text);
  }
}

TEST_F(RestoreJobTest, LogSaysOfAChoiceWhatItsEventsSay) {
  CopyExample("raid-10.0-x64", "raid", "ram");
  OpenFile("raid/machine.toml");
  constexpr char kJob[] = "SOFTWARE\\Varnelt\\Relmar\\10";
  ASSERT_TRUE(VXRMachine_SetValue(kJob, "DriverRules", "windows") && VXRMachine_SetValue(kJob, "BootRecord", "auto"));
  ASSERT_EQ(VXREng_RunVXR(10, 0, nullptr, nullptr), 0u);
  heard.clear();
  for (const std::string &line : Lines("")) TellChoiceLine(line, Hear);
  const std::vector<std::string> fromLog = std::move(heard);
  heard.clear();
  constexpr uint32_t kKinds[] = {VXRMACHINE_CANDIDATE,  VXRMACHINE_CANDIDATE_DRIVER, VXRMACHINE_CANDIDATE_REFUSED,
                                 VXRMACHINE_OWN_DRIVER, VXRMACHINE_CANDIDATE_CHOSEN, VXRMACHINE_PLAN_WARNING,
                                 VXRMACHINE_INF_UNREAD, VXRMACHINE_INF_INDEXED};
  for (const MachineEvent &event : events) {
    if (std::find(std::begin(kKinds), std::end(kKinds), event.kind) == std::end(kKinds)) continue;
    // Events count on from directory to directory, the log says the sum.
    if (event.kind == VXRMACHINE_INF_INDEXED) {
      std::erase_if(heard, [](const std::string &earlier) {
        return earlier.starts_with(std::to_string(VXRMACHINE_INF_INDEXED) + ' ');
      });
    }
    Hear({event.kind, event.type, event.size, event.subject.c_str(), event.detail.c_str(), event.text.c_str()});
  }
  EXPECT_GE(heard.size(), 10u);
  EXPECT_EQ(fromLog, heard);
}

}  // namespace
