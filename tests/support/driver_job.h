// A restore job brought up to where a controller's driver is searched for: engine, extension and settings are there, in
// injection mode the restored hive is mounted, and the job's SCSI adapter has its record.
#pragma once

#include "inf/field_reader.h"
#include "tests/support/restore_job.h"
#include "vxr/device.h"

inline constexpr char kDirectory[] = "X:\\drivers";
inline constexpr char kId[] = R"(PCI\VEN_1000&DEV_0030)";  // of the adapter

class DriverJobTest : public RestoreJobTest {
 protected:
  ~DriverJobTest() override;

  // Opens the job and prepares `device`, with the decorations ntamd64.6.1 and ntamd64, and `driver`, attached to it.
  void Begin(bool inject, const std::function<void(std::string *toml)> &bend = {});
  // Releases the records, unmounts the hive, which saves it, and cleans up the engine. Begin may follow.
  void End();

  // Writes an INF file of the adapter's class to X:\drivers; `body` follows the Version section.
  void WriteInf(const std::string &name, const std::string &body);
  // The same, opened.
  InfFile OpenInf(const std::string &name, const std::string &body);

  // A value of the mounted hive as "type:size:text", a number in hexadecimal; empty when it is missing.
  static std::string HiveText(const std::string &key, const std::string &value);
  // The texts as a multi-string on the process heap.
  static char *HeapTexts(const std::vector<std::string> &texts);

  VXR_DEVICE *device = nullptr;
  VXR_DRIVER *driver = nullptr;
};
