// The result codes of a restore run: what each means, what to do.
#pragma once

#include <cstdint>

#include "vxrcore/vxrcore.h"

// Of the program, not of the library: a verification that succeeds where an injection would not.
constexpr std::uint32_t kRehearsalCode = 1;

struct ResultCode {
  std::uint32_t code;
  const char *meaning;
  const char *advice;  // empty: nothing is to be done
  bool causeInLog;     // the log's first error line before the status line tells the cause
};

// The entry of a code; for an unknown one an entry that says so.
const ResultCode &FindResultCode(std::uint32_t code);
