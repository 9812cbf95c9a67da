// What vxr makes of a run's status lines and of the machine's events.
#include "tools/vxr/run/run_record.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

void Event(RunRecord *record, uint32_t kind, const char *subject, const char *detail = nullptr,
           const char *text = nullptr, uint64_t size = 0) {
  AddEvent(record, {kind, 1, size, subject, detail, text});
}

void Coded(RunRecord *record, uint32_t kind, uint32_t type, const char *subject, const char *detail = nullptr) {
  AddEvent(record, {kind, type, 0, subject, detail, nullptr});
}

void Error(RunRecord *record, const char *function, const char *line) {
  Coded(record, VXRMACHINE_ERROR_LOGGED, 0, function, line);
}

void Status(RunRecord *record, const char *line, uint32_t code = VXR_STATUS_PROGRESS) {
  Coded(record, VXRMACHINE_STATUS_LINE, code, line);
}

constexpr const char *kKey = "SYSTEM_ORG\\ControlSet001\\Services\\x";
constexpr const char *kHive = "D:\\Windows\\system32\\config\\system";

TEST(StatusLines, CauseIsTheFirstErrorSinceTheLineBefore) {
  RunRecord record;
  Error(&record, "Old", "of the line before\n");
  Status(&record, "Initializing...\n");
  EXPECT_FALSE(HasProblems(record));
  Error(&record, "VXRReg_GetRegistryValue", "RegQueryValueEx(K\\HardwareID) failed for size !rc=2 ec=2\n");
  Coded(&record, VXRMACHINE_VALUE_NOT_READ, 2, "K", "HardwareID");
  Error(&record, "Inner", "the cause\n");
  Error(&record, "Outer", "passed on\n");
  Event(&record, VXRMACHINE_KEY_MISSING, "K");
  Status(&record, "Failed to initialize Vexmorph engine!\n", VXR_RESULT_NO_ENGINE);
  EXPECT_EQ(record.lines.back().cause, "ERROR:Inner:the cause");
  EXPECT_EQ(record.lines.back().text, "Failed to initialize Vexmorph engine!");
  Status(&record, "Failed to locate the restored system volume!\n", VXR_RESULT_NO_VOLUME);
  EXPECT_EQ(record.lines.back().cause, "");
  EXPECT_TRUE(HasProblems(record));
}

// Its name may be empty: a job can name an id so. One that is not known at all is something else.
TEST(Devices, KeepWhyADriverThatWasTakenCameToNothing) {
  RunRecord record;
  Coded(&record, VXRMACHINE_DEVICE_CHECKED, 0, "");
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
  const auto refuse = [&] { Event(&record, VXRMACHINE_MODEL_GIVEN_UP, "X", "PCI\\X"); };
  Coded(&record, VXRMACHINE_DEVICE_CHECKED, 0, "PCI\\A");
  for (const char *target : {"D:\\BAD.SYS", "D:\\BOTH.SYS"}) copy(target);
  refuse();
  for (const char *target : {"D:\\both.sys", "D:\\GOOD.SYS"}) copy(target);
  Event(&record, VXRMACHINE_DEVICE_SET_UP, "PCI\\A");
  Coded(&record, VXRMACHINE_DEVICE_CHECKED, 0, "PCI\\B");
  copy("D:\\GOOD.SYS");
  refuse();
  copy("D:\\LATE.SYS");
  Status(&record, "Failed to locate driver files for device PCI\\B", VXR_RESULT_NO_DRIVER);
  std::vector<std::string> left;
  for (const CopyRecord &each : record.copies) {
    if (each.use == CopyUse::kLeftOver) left.push_back(each.target);
  }
  EXPECT_THAT(left, testing::ElementsAre("D:\\BAD.SYS", "D:\\LATE.SYS"));

  RunRecord check;
  Coded(&check, VXRMACHINE_DEVICE_CHECKED, 1, "PCI\\X");
  Event(&check, VXRMACHINE_COPY_BYPASSED, "D:\\F.SYS", "X:\\F.SYS");
  Event(&check, VXRMACHINE_MODEL_GIVEN_UP, "X", "PCI\\X");
  Event(&check, VXRMACHINE_DEVICE_FAILED, "PCI\\X");
  EXPECT_EQ(check.copies.at(0).use, CopyUse::kPending) << "a check of one id copies nothing";
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
  Event(&stuck, VXRMACHINE_HIVE_NOT_UNLOADED, "X:\\W");
  EXPECT_NE(UnsavedRestoredHive(stuck), nullptr) << "dropped with its changes when the machine closes";

  EXPECT_EQ(UnsavedRestoredHive(mounted(true)), nullptr) << "unmounted, but it held those values already";

  RunRecord untouched = mounted(false);
  Event(&untouched, VXRMACHINE_HIVE_NOT_UNLOADED, "X:\\W");
  EXPECT_EQ(UnsavedRestoredHive(untouched), nullptr);

  RunRecord running;
  Event(&running, VXRMACHINE_HIVE_NOT_SAVED, "SYSTEM", "disk full");
  EXPECT_EQ(UnsavedRestoredHive(running), nullptr) << "a hive of the running system";
}

TEST(Events, TellTheLogFileAndALostBootDisk) {
  RunRecord record;
  Coded(&record, VXRMACHINE_LOG_NOT_OPENED, 3, "X:\\a.log");
  EXPECT_EQ(record.logProblem, "CreateFile(X:\\a.log) failed!ec=3");
  Event(&record, VXRMACHINE_LOG_OPENED, "X:\\b.log");
  EXPECT_EQ(record.logFile + record.logProblem, "X:\\b.log");
  Error(&record, "VXRDev_GetStoragetDeviceNumber", "CreateFile(D9) faield!ec=0x00000002\n");
  Error(&record, "VXRDev_ScanDiskDevices", "VXRDev_GetDiskInstanceID():failed!ec=2:0x00000002:msg=None\n");
  Event(&record, VXRMACHINE_BOOT_DISK_NOT_FOUND, "D9");
  EXPECT_EQ(record.scanProblem, "ERROR:VXRDev_GetStoragetDeviceNumber:CreateFile(D9) faield!ec=0x00000002");
}

}  // namespace
