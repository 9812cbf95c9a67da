// What a restore run did, gathered from what it reports. All texts are UTF-8.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/vxr/run/choice_record.h"
#include "tools/vxr/run/result_codes.h"
#include "vxrcore/machine.h"

struct StatusLine {
  std::string text;    // without its line end
  std::uint32_t code;  // VXR_STATUS_PROGRESS or the code that the line sets
  std::string cause;   // of a failure: the log line that tells why; often empty
};

// What became of an INF file that was tried for a device.
struct Refusal {
  std::string id;            // the id sought in it; empty: any of the device's
  std::uint32_t reason = 0;  // VXRMACHINE_REFUSED_..., the furthest of its attempts; 0: none
  std::string detail;
};

// An INF file that lists an id of a device without driver, and why it was not taken.
struct Candidate {
  std::string inf, id;
  std::string reason;  // a word for programs
  std::string text;    // for people
};

struct DeviceRecord {
  std::string instance;                     // or the one hardware id that the job names
  std::string infFile, driver, hardwareId;  // of the driver that was taken; empty: none
  bool failed = false;
  bool named = false;                       // an id that the job names, for which nothing is copied
  bool unsearched = false;                  // it failed before any INF file was looked for
  std::vector<std::string> ids;             // best first
  std::vector<std::string> targets;         // decorations that sections for the restored system may have
  std::vector<std::string> directories;     // searched
  std::map<std::string, Refusal> refusals;  // by INF file
  std::vector<Candidate> candidates;        // of a failed one
  std::optional<DriverChoice> choice;       // by Windows' rules
};

// Whose the files are that an INF file has copied, or would: of one that is still at work, of one that set up a device,
// or of one that was refused after it.
enum class CopyUse { kPending, kNeeded, kLeftOver };

struct CopyRecord {
  std::string source, target;
  std::optional<std::uint64_t> size;  // bytes, of a file that was copied, or whose copy was rehearsed
  bool copied = false;                // else: would be copied (verification) when `reason` is empty
  std::string reason;                 // why not
  bool keptOld = false;               // an old target stayed, which the run takes for success
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
  std::string digest;      // of a hive that a rehearsal would save: SHA-256
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
  std::string logFile;                  // Windows path; empty when there is none
  std::string logProblem;               // why there is none
  std::string scanProblem;              // why the boot disk was not found; the result code says nothing of it
  std::string namedIdProblem;           // why the job's HardwareID could not be read
  std::uint64_t infFiles = 0;           // read by Windows' rules
  std::vector<RefusedPath> unreadInfs;  // by Windows' rules: INF files and directories that could not be read
  std::vector<ValueRecord> plannedValues;
  std::vector<DeletedValue> plannedDeletions, deletions;
  std::vector<std::string> contradictions;  // between the job, the restored system and the machine

  std::vector<std::string> problems;  // what was seen beside the status lines
  bool badDirectory = false;          // one of the problems is a directory that was searched for INF files
  bool noController = false;          // no controller was found, or looked for, above a device of the disk's chain

  // The attempt that is being made.
  std::string triedInf;
  Refusal tried;

  // Since the last status line, for the lines that follow.
  std::string firstError;
  bool firstIsLast = false;  // no other error came after it

  std::string lastError;
};

void AddEvent(RunRecord *record, const VXRMachine_Event &event);

// What to do about a result code; empty: nothing.
std::string AdviceFor(std::uint32_t code, const RunRecord &record);
// The hive of the restored system that the run mounted and then could not save, or not flush; null when there is none.
const HiveRecord *UnsavedRestoredHive(const RunRecord &record);
// How many values of the restored system, or keys for them, were not written.
std::size_t LostRestoredValues(const RunRecord &record);
// The program's exit status for a run that ended with that code.
int ExitStatus(std::uint32_t code, const RunRecord &record);
// Whether the run met anything that the user should know beside success.
bool HasProblems(const RunRecord &record);
// Whether a value's key belongs to the restored system's mounted hive, not to the running system.
bool InRestoredHive(const ValueRecord &value);
bool InRestoredHive(const FailedValue &value);
std::vector<ValueRecord> RestoredValues(const RunRecord &record);
