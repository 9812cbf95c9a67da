// The result codes of a restore run: what each means, which status line carries it, what to do.
#pragma once

#include <cstdint>
#include <string_view>

constexpr std::uint32_t kProgress = 101;
constexpr std::uint32_t kNoDriverCode = 3;
constexpr std::uint32_t kHiveCode = 4;
constexpr std::uint32_t kCancelledCode = 15;
constexpr std::uint32_t kNamedIdCode = 58;
constexpr std::uint32_t kCopyCode = 13;
constexpr std::uint32_t kRehearsalCode = 1;  // not the library's: an exit status of a verification

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
