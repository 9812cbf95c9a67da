// The result codes of a restore run: what each means, which status line carries it, what to do.
#pragma once

#include <cstdint>
#include <string_view>

#include "vxrcore/vxrcore.h"

// Of the program, not of the library: a verification that succeeds where an injection would not.
constexpr std::uint32_t kRehearsalCode = 1;

struct ResultCode {
  std::uint32_t code;
  const char *statusLine;  // how its status line begins; null: it has none
  const char *meaning;
  const char *advice;  // empty: nothing is to be done
  bool causeInLog;     // the log's first error line before the status line tells the cause
};

// The entry of a code; for an unknown one an entry that says so.
const ResultCode &FindResultCode(std::uint32_t code);

// The entry whose status line this is, null for a progress line. A run's status lines come without their codes.
const ResultCode *FailureOfStatusLine(std::string_view line);
