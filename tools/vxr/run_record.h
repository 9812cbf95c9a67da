// What a restore run did, gathered from its status lines and from what the machine reports. All texts are UTF-8.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/vxr/result_codes.h"
#include "vxrcore/machine.h"

struct StatusLine {
  std::string text;    // without its line end
  std::uint32_t code;  // kProgress or the code that the line sets
  std::string cause;   // of a failure: the log line that tells why; often empty
};

struct DeviceRecord {
  std::string instance;
  std::string infFile, driver, hardwareId;  // of the driver that was taken; empty: none
  bool failed = false;
};

// Whose the files are that an INF file has copied, or would: of one that is still at work, of one that set up a device,
// or of one that was refused after it.
enum class CopyUse { kPending, kNeeded, kLeftOver };

struct CopyRecord {
  std::string source, target;
  std::uint64_t size = 0;  // bytes copied
  bool copied = false;     // else: would be copied (verification) when `reason` is empty
  std::string reason;      // why not
  bool keptOld = false;    // an old target stayed, which the run takes for success
  CopyUse use = CopyUse::kPending;
};

struct ValueRecord {
  std::string key, name, data;  // key below HKEY_LOCAL_MACHINE
  std::uint32_t type = 0;
  std::uint64_t size = 0;  // bytes
};

struct FailedValue {
  std::string key, name;  // as of a ValueRecord
  bool wholeKey = false;  // the key could not be created; which value was to be set in it is not known
  std::string reason;
  std::uint32_t type = 0, error = 0;
};

enum class HiveOutcome { kMounted, kSaved, kNotSaved, kRefused, kUnflushed };

struct HiveRecord {
  std::string file, mountPoint, reason;
  HiveOutcome outcome = HiveOutcome::kMounted;
  std::uint64_t size = 0;  // bytes of a saved hive, or one in place but not surely on the disk
  std::string replay;      // what its logs brought, such as "replayed 14 entries from two logs"; empty: nothing
};

struct RefusedPath {
  std::string path, reason;
};

struct RunRecord {
  std::vector<StatusLine> lines;
  std::vector<DeviceRecord> devices;
  std::vector<CopyRecord> copies;
  std::vector<ValueRecord> values;
  std::vector<FailedValue> failedValues;  // each once, those that a later attempt wrote left out
  std::vector<HiveRecord> hives;
  std::vector<RefusedPath> refusedPaths;
  std::string logFile;                      // Windows path; empty when there is none
  std::string logProblem;                   // why there is none
  std::string scanProblem;                  // why the boot disk was not found; the result code says nothing of it
  std::string namedIdProblem;               // why the job's HardwareID could not be read
  std::vector<std::string> contradictions;  // between the job, the restored system and the machine

  // Since the last status line, for the lines that follow.
  DeviceRecord candidate;
  std::string firstError;
};

// Takes a status line in the machine's code page and gives the record made of it; valid until the next.
const StatusLine &AddStatusLine(RunRecord *record, const char *text);
void AddEvent(RunRecord *record, const VXRMachine_Event &event);

// The hive of the restored system that the run mounted and then could not save, or not flush; null when there is none.
const HiveRecord *UnsavedRestoredHive(const RunRecord &record);
// How many values of the restored system, or keys for them, were not written.
std::size_t LostRestoredValues(const RunRecord &record);
// Whether the run met anything that the user should know beside success.
bool HasProblems(const RunRecord &record);
// Whether a value's key belongs to the restored system's mounted hive, not to the running system.
bool InRestoredHive(const ValueRecord &value);
bool InRestoredHive(const FailedValue &value);
