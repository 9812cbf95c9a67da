// The restore jobs of the 10.0 example, in the fixture's own folder: drivers chosen as Windows would choose them, and
// the record that the restored hive reads.
#pragma once

#include <functional>

#include "tests/support/test_machine.h"

class ChoiceJobTest : public MachineTest {
 protected:
  ChoiceJobTest();

  // Opens a machine file of the example, with these texts as its job's two choices, each left out when it is null;
  // `bend` may change the machine file's text first.
  void OpenChoice(const std::string &name, const char *rules = "windows", const char *record = "auto",
                  const std::function<void(std::string *toml)> &bend = {});
  // Runs that file's job with the window attached; returns the result code.
  uint32_t Run(bool inject);
  // What was told of changes, planned or made, a text each: "target < source size" of files and, below the hive's root,
  // values as HiveLines has them and "-[key" of deleted keys.
  std::vector<std::string> Told() const;
  // What strict eyes find wrong with the restored hive.
  std::string Problem() const;

  static const char *const kHivePath;  // below the folder

 private:
  uint32_t job = 0;
};
