// What the recording of a machine left out, and why it failed. The library's export answers with a number; it reports
// the rest. All texts here are UTF-8.
#pragma once

#include <string>
#include <vector>

#include "tools/vxr/base/machine_session.h"

struct CreateRecord {
  struct Shortfall {
    std::string root;    // such as F:\; empty when none was looked at
    std::string reason;  // what is wrong and what to do
  };
  std::vector<Shortfall> leftOut;     // fixed drives that are not recorded
  std::vector<Shortfall> incomplete;  // recorded, but not all of its drivers
  bool full = false;                  // drives behind the fourth recorded one were not looked at
  LoggedError failure;                // what ended the recording; empty: nothing
  std::string logFile;                // as the machine names it; empty: none

  // Of the drive that is being described.
  std::string root;
  LoggedError error;
};

// Events that tell nothing of the above change nothing.
void AddEvent(CreateRecord *record, const VXRMachine_Event &event);

// One line saying what is wrong and what to do, for a failed recording. `file` and `includes`: the arguments.
std::string ExplainFailure(const CreateRecord &record, const std::string &file, const std::string &includes);
