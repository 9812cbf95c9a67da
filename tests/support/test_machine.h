// A machine in a folder, for tests that run the real code on one: a described machine or, in the Windows build, the
// Windows that the test runs on, with the folder's directories as its drives X: and D:.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "vxrcore/machine.h"
#include "vxrcore/vxrcore.h"

// What the machine reported, with the event's texts copied.
struct MachineEvent {
  uint32_t kind = 0, type = 0;
  uint64_t size = 0;
  std::string subject, detail, text;
};

// First in a test that only a described machine can run: it sets what Windows has of itself, such as the clock, devices
// or disks, or looks at the machine's reports.
#ifdef _WIN32
#define NEEDS_DESCRIBED_MACHINE() GTEST_SKIP() << "needs a described machine"
#else
#define NEEDS_DESCRIBED_MACHINE() static_cast<void>(0)
#endif

// The folder holds ram/ (X:, RAM disk, with Windows\System32, Windows\inf and the product's Halcyra\logs.dir),
// restored/ (D:, fixed), and machine.toml. The standard machine is a 64-bit 6.1 system, two processors, 8 GiB, with
// HCDIR set to X:\Halcyra; nothing else until a test adds it. Windows is as it is, but for the drives and HCDIR.
class MachineTest : public testing::Test {
 protected:
  MachineTest();
  ~MachineTest() override;

  // Writes machine.toml (`system` replaces the standard [system] table when not empty; `rest` follows) and opens it,
  // with the log's level 5 in master.ini. Fails the test when the machine cannot be opened. On Windows `rest` can hold
  // nothing but the product's keys of the registry.
  void Open(const std::string &rest = "", const std::string &system = "");
  // The same for a machine file of the folder, as it is; whoever wrote it sees to the log's level.
  void OpenFile(const std::string &relative);
  // Ends the log and closes the machine; the destructor does too. Another Open may follow.
  void Close();

  // Host path of a file in the folder, and a file with content there (directories made).
  std::filesystem::path Host(const std::string &relative) const;
  void WriteFile(const std::string &relative, const std::string &content);
  std::string ReadFile(const std::string &relative) const;
  // The names of what a directory holds, in no order.
  std::vector<std::string> Names(const std::string &relative) const;
  // The lines of the log that begin with `prefix`, without it and without the line end; and forgetting what was logged.
  std::vector<std::string> Lines(const std::string &prefix) const;
  void ClearLog() { log.clear(); }

  // Handles and mapped views that the code under test has open, the log's file aside.
  std::size_t OpenHandles() const;
  std::size_t OpenViews() const;

  // Copies an example machine into the folder, as `relative`, with the log's level 5 in the master.ini that it has on
  // its drive `drive`, a directory of the example.
  void CopyExample(const std::string &name, const std::string &relative, const std::string &drive);
  // Takes the folder for an example whose drives are ram and restored; nothing else stays. The clocks of its machine
  // files stand still, so that equal runs make equal hives.
  void BecomeExample(const std::string &name);
  // Every file below restored/ with its bytes.
  std::string RestoredTree() const;

  // A job key's values for job `number` as TOML, with a boot disk, D:\ as root, X:\drivers as INF directory.
  static std::string JobToml(int number, const std::string &more = "");

  void *window = nullptr;  // collects into statusLines; attach it where a test needs it
  std::vector<std::string> statusLines;
  std::string log;                   // the debugger output so far: every line at level 5
  std::vector<MachineEvent> events;  // all but the debugger output
  std::filesystem::path folder;

 private:
  bool open = false;
};
