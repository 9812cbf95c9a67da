// The choice of one device's driver by Windows' own rules, and what the plan made of it, as a run reports them. All
// texts are UTF-8.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vxrcore/machine.h"

struct RunRecord;

struct DriverCandidate {
  std::string inf, id, description, section;
  std::string service;  // empty: none needed
  std::string version;  // as written
  std::uint32_t rank = 0;
  std::uint64_t date = 0;    // 100 ns since 1601; 0: none
  std::string reason, text;  // why it cannot be taken; empty: it can
  bool heldBack = false;     // the restored system's own, which it would not start
};

struct DriverChoice {
  std::vector<DriverCandidate> candidates;       // best first
  std::optional<DriverCandidate> own;            // what the restored system has
  bool made = false;                             // one was chosen
  std::string chosenInf;                         // empty: the restored system's own
  std::optional<bool> hasCatalog, signedInside;  // of a package that was chosen; not verified
  std::vector<std::string> warnings, notes;
};

// A value, or (without a name) a key with all below it, that an injection deletes or has deleted.
struct DeletedValue {
  std::string key, name;
  bool wholeKey = false;
};

// False for an event of another kind.
bool AddChoiceEvent(RunRecord *record, const VXRMachine_Event &event);

// The candidate that was chosen, the restored system's own too; null when none was.
const DriverCandidate *ChosenDriver(const DriverChoice &choice);
