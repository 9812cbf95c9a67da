// One injection of drivers into a restored system, from the rehearsal to what can be taken back.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "tools/vxr/rescue/rescue_facts.h"
#include "tools/vxr/run/run_record.h"

struct Injection {
  RunRecord record;        // of the run, or of its rehearsal when it came no further; directories as they were named
  std::uint32_t code = 0;  // the library's result
  int exitStatus = 0;      // the program's
  bool done = false;       // the run itself was made, not only rehearsed
  bool needless = false;   // nothing has to be changed
  bool forgotHibernation = false;  // the memory of a hibernated system was dropped
  std::filesystem::path undo;      // folder that takes it back; empty: none
  std::string problem;             // why it was not made, a line; empty: the record says
};

// Rehearses the injection; unless `dry` or it would fail, keeps what it will change, and makes it. False, after a
// message, when the machine cannot be opened.
bool Inject(const RescueFacts &facts, bool dry, Injection *injection);
