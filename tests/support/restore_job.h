// A whole restore job on a described machine: a 64-bit 6.1 system restored to D:\Windows, whose boot disk hangs off a
// SCSI adapter, with one INF file that fits it. Tests bend it before they open the machine.
#pragma once

#include <functional>

#include "tests/support/hive_builder.h"
#include "tests/support/test_machine.h"

class RestoreJobTest : public MachineTest {
 protected:
  // Writes the restored system (a SYSTEM hive, an old driver file) and X:\drivers.
  RestoreJobTest();

  // Opens the machine with the job's settings; `bend` may change the machine file's text first.
  void OpenJob(const std::function<void(std::string *toml)> &bend = {});
  // Runs job 1 with the window attached; returns the result code.
  uint32_t Run(bool inject);

  // Whether the restored hive is one that may be mounted and still holds all that it held at first.
  void ExpectHiveWhole() const;

  static const char *const kHivePath;  // below the folder
  static const char *const kInf;       // text of the INF file that fits
};
