// What a hive file is, for people and programs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/machine/hive/hive.h"

struct LogFacts {
  std::string name;
  std::uint64_t size = 0;               // bytes
  std::string format;                   // "old", "new"; empty when it is none
  std::optional<std::uint32_t> number;  // of a sound base block
  std::uint32_t entries = 0;            // valid ones
  std::uint32_t first = 0, last = 0;    // their numbers
  bool applied = false;
  std::string reason;  // why not; empty when applied, and when the hive needs no log
};

struct HiveFacts {
  std::string file;
  bool isHive = false;  // has a base block that says so, sound or not
  std::uint32_t major = 0, minor = 0;
  std::uint32_t primary = 0, secondary = 0;
  std::uint64_t size = 0;      // of the file, bytes
  std::uint32_t binsSize = 0;  // bytes
  bool clean = false;          // closed cleanly
  std::string refusal;         // why it cannot be changed; empty when it can
  std::string replay;          // what bringing it up to date does; empty when that is not needed
  std::uint32_t numberAfter = 0;
  std::vector<LogFacts> logs;
  // Of a hive that holds them, such as a SYSTEM hive, when it can be read:
  std::optional<std::uint32_t> controlSet;
  std::optional<std::string> machineName;  // UTF-8
};

// `hive` has been opened with `opened` as the answer.
HiveFacts CollectHiveFacts(const std::string &file, machine::Hive *hive, const machine::Status &opened);

// Both of a file that is a hive.
void PrintHiveText(const HiveFacts &facts);
// `errors`: what the command failed with; empty: nothing.
void PrintHiveJson(const HiveFacts &facts, const std::vector<std::string> &errors, int exitStatus);
