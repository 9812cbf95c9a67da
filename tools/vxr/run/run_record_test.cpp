// What vxr makes of a run's status lines and of the machine's events.
#include "tools/vxr/run/run_record.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

void Event(RunRecord *record, uint32_t kind, const char *subject, const char *detail = nullptr,
           const char *text = nullptr, uint64_t size = 0) {
  AddEvent(record, {kind, 1, size, subject, detail, text});
}

void Debug(RunRecord *record, const char *text) { Event(record, VXRMACHINE_DEBUG_TEXT, nullptr, nullptr, text); }

constexpr const char *kKey = "SYSTEM_ORG\\ControlSet001\\Services\\x";
constexpr const char *kHive = "D:\\Windows\\system32\\config\\system";
constexpr const char *kUnloadFailed = "ERROR:VXREng_RunVXR:VXRReg_UnloadHive():failed!ec=5:0x00000005:msg=X:\\W\n";

TEST(StatusLines, CodesAreRecognised) {
  const struct {
    const char *line;
    uint32_t code;
  } cases[] = {
      {"Failed to locate driver files for device PCI\\X", 3},
      {"Failed to load the original registry hive file failed!\n", 4},
      {"Failed to initialize Vexmorph engine!", 7},
      {"Failed to initialize the Bare Metal restore information!", 8},
      {"Failed to initialize the Bare Metal extension information!", 9},
      {"Failed to locate file X:\\a.sys!\n", 11},
      {"Failed to copy X:\\a.sys to D:\\a.sys\n", 13},
      {"Failed to locate the restored system volume!\n", 14},
      {"User cancelled searching for driver files.", 15},
      {"Failed to perform Vexmorph for driver files injection!\n", VXR_STATUS_PROGRESS},
      {"Looking for the restored system volume...\n", VXR_STATUS_PROGRESS},
      {"", VXR_STATUS_PROGRESS},
  };
  for (const auto &c : cases) {
    RunRecord record;
    const StatusLine &line = AddStatusLine(&record, c.line);
    EXPECT_EQ(line.code, c.code) << c.line;
    EXPECT_EQ(line.text.find('\n'), std::string::npos);
    EXPECT_EQ(HasProblems(record), c.code != VXR_STATUS_PROGRESS);
  }
}

TEST(StatusLines, CauseIsTheFirstErrorSinceTheLineBefore) {
  RunRecord record;
  Debug(&record, "ERROR:Old:of the line before\n");
  AddStatusLine(&record, "Initializing...\n");
  Debug(&record, "ERROR:VXRReg_GetRegistryValue:RegQueryValueEx(K\\HardwareID) failed for size !rc=2 ec=2\n");
  Debug(&record, "ERROR:Inner:the cause\n");
  Debug(&record, "ERROR:Outer:passed on\n");
  EXPECT_EQ(AddStatusLine(&record, "Failed to initialize Vexmorph engine!").cause, "ERROR:Inner:the cause");
  EXPECT_EQ(AddStatusLine(&record, "Failed to locate the restored system volume!\n").cause, "");
}

// Its name may be empty: a job can name an id so. One that is not known at all is something else.
TEST(Devices, KeepWhyADriverThatWasTakenCameToNothing) {
  RunRecord record;
  Event(&record, VXRMACHINE_DEVICE_CHECKED, "");
  Event(&record, VXRMACHINE_INF_TRIED, "X:\\a.inf");
  Event(&record, VXRMACHINE_DRIVER_TAKEN, "A", "PCI\\A");
  AddEvent(&record, {VXRMACHINE_INF_REFUSED, VXRMACHINE_REFUSED_NOT_REGISTERED, 0, nullptr, "X:\\", nullptr});
  Event(&record, VXRMACHINE_DEVICE_FAILED, "");
  ASSERT_TRUE(record.devices.at(0).failed);
  EXPECT_EQ(record.devices[0].refusals.at("X:\\a.inf").reason, VXRMACHINE_REFUSED_NOT_REGISTERED);
}

// The file of an INF file that was refused stays behind, unless a device has, or later gets, its driver from it.
TEST(Copies, OfARefusedInfFileAreLeftOver) {
  RunRecord record;
  const auto copy = [&](const char *target) { Event(&record, VXRMACHINE_FILE_COPIED, target, "X:\\F", nullptr, 7); };
  const auto refuse = [&] { Debug(&record, "ERROR:VXRDev_ProcessModSect:VXRDev_ProcessInstSect() failed for ...\n"); };
  AddStatusLine(&record, "Checking device with id PCI\\A...\n");
  for (const char *target : {"D:\\BAD.SYS", "D:\\BOTH.SYS"}) copy(target);
  refuse();
  for (const char *target : {"D:\\both.sys", "D:\\GOOD.SYS"}) copy(target);
  AddStatusLine(&record, "Successful in driver files injection for PCI\\A...\n");
  AddStatusLine(&record, "Checking device with id PCI\\B...\n");
  copy("D:\\GOOD.SYS");
  refuse();
  copy("D:\\LATE.SYS");
  AddStatusLine(&record, "Failed to locate driver files for device PCI\\B");
  std::vector<std::string> left;
  for (const CopyRecord &each : record.copies) {
    if (each.use == CopyUse::kLeftOver) left.push_back(each.target);
  }
  EXPECT_THAT(left, testing::ElementsAre("D:\\BAD.SYS", "D:\\LATE.SYS"));
}

TEST(Values, ThatWereNotWrittenAreProblemsOnce) {
  RunRecord record;
  for (const char *name : {"Start", "Start", "Type"}) {
    Event(&record, VXRMACHINE_VALUE_NOT_WRITTEN, kKey, name, "access is denied", 5);
  }
  Event(&record, VXRMACHINE_VALUE_NOT_WRITTEN, "SYSTEM\\Live", nullptr, "access is denied", 5);
  EXPECT_EQ(record.failedValues.size(), 3u);
  EXPECT_EQ(LostRestoredValues(record), 2u);
  Event(&record, VXRMACHINE_VALUE_WRITTEN, kKey, "start", "0");
  EXPECT_EQ(LostRestoredValues(record), 1u) << "a later attempt succeeded";
  EXPECT_TRUE(HasProblems(record));
}

TEST(Hives, UnsavedOnlyWhenChangesOfTheRestoredSystemAreLost) {
  const auto mounted = [](bool written) {
    RunRecord record;
    Event(&record, VXRMACHINE_HIVE_LOADED, kHive, "SYSTEM_ORG");
    if (written) Event(&record, VXRMACHINE_VALUE_WRITTEN, kKey, "Start", "0");
    return record;
  };
  RunRecord saved = mounted(true);
  Event(&saved, VXRMACHINE_HIVE_SAVED, kHive, nullptr, nullptr, 4096);
  EXPECT_EQ(UnsavedRestoredHive(saved), nullptr);

  RunRecord notSaved = mounted(true);
  Event(&notSaved, VXRMACHINE_HIVE_NOT_SAVED, kHive, "disk full");
  ASSERT_NE(UnsavedRestoredHive(notSaved), nullptr);
  EXPECT_EQ(UnsavedRestoredHive(notSaved)->reason, "disk full");

  RunRecord unflushed = mounted(true);
  Event(&unflushed, VXRMACHINE_HIVE_NOT_SAVED, kHive, "the directory cannot be flushed", nullptr, 4096);
  ASSERT_NE(UnsavedRestoredHive(unflushed), nullptr);
  EXPECT_EQ(UnsavedRestoredHive(unflushed)->outcome, HiveOutcome::kUnflushed) << "the new hive is in place";

  RunRecord stuck = mounted(true);
  Debug(&stuck, kUnloadFailed);
  EXPECT_NE(UnsavedRestoredHive(stuck), nullptr) << "dropped with its changes when the machine closes";

  EXPECT_EQ(UnsavedRestoredHive(mounted(true)), nullptr) << "unmounted, but it held those values already";

  RunRecord untouched = mounted(false);
  Debug(&untouched, kUnloadFailed);
  EXPECT_EQ(UnsavedRestoredHive(untouched), nullptr);

  RunRecord running;
  Event(&running, VXRMACHINE_HIVE_NOT_SAVED, "SYSTEM", "disk full");
  EXPECT_EQ(UnsavedRestoredHive(running), nullptr) << "a hive of the running system";
}

TEST(DebugText, TellsTheLogFileAndALostBootDisk) {
  RunRecord record;
  Debug(&record, "a:VXRDbg_Initialize:start logging to 00005596F89064F0:X:\\P\\logs.dir\\a-vxr-01012026.log...\n");
  EXPECT_EQ(record.logFile, "X:\\P\\logs.dir\\a-vxr-01012026.log");
  Debug(&record, "ERROR:VXRDev_GetStoragetDeviceNumber:CreateFile(D9) faield!ec=0x00000002\n");
  Debug(&record, "ERROR:VXRDev_ScanDiskDevices:VXRDev_GetDiskInstanceID():failed!ec=2:0x00000002:msg=None\n");
  EXPECT_THAT(record.scanProblem, testing::HasSubstr("CreateFile(D9)"));

  RunRecord without;
  Debug(&without, "a:VXRDbg_Initialize:CreateFile(X:\\P\\logs.dir\\a.log) failed!ec=3\n");
  EXPECT_EQ(without.logFile, "");
  EXPECT_EQ(without.logProblem, "CreateFile(X:\\P\\logs.dir\\a.log) failed!ec=3");
}

}  // namespace
