// What the recording of a machine left out, and why it failed. The library's export answers with a number; the rest is
// in its log, whose lines have fixed texts. All texts here are UTF-8.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct CreateRecord {
  struct Shortfall {
    std::string root;    // such as F:\; empty when the log is set to write too little to tell
    std::string reason;  // what is wrong and what to do
  };
  std::vector<Shortfall> leftOut;     // fixed drives that are not recorded
  std::vector<Shortfall> incomplete;  // recorded, but not all of its drivers
  bool full = false;                  // drives behind the fourth recorded one were not looked at
  std::string failure;                // the line that ended the recording; empty: none
  std::string logFile;                // as the machine names it; empty: none

  // Of the drive that is being described.
  std::string root, error;
};

// Takes a line of the log; lines that tell nothing of the above change nothing.
void AddLogLine(CreateRecord *record, std::string_view line);

// One line saying what is wrong and what to do, for a failed recording. `file` and `includes`: the arguments.
std::string ExplainFailure(const CreateRecord &record, const std::string &file, const std::string &includes);
