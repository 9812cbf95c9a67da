// What the files of a restored system tell of it, and which of them is believed where they contradict each other.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/machine/base/status.h"
#include "rescue/restored_system.h"
#include "rescue/system_files.h"

namespace rescue {

// What each file tells, before it is decided whom to believe.
struct Witnesses {
  ImageFacts kernel;
  machine::Status kernelRead, softwareRead;
  std::optional<SystemVersion> software;
  std::uint32_t softwareBuild = 0;           // 0: not told
  std::string systemRoot, installationType;  // by the SOFTWARE hive
  std::string processor, product;            // by the SYSTEM hive, as are the next
  std::vector<std::string> suites;
  bool manyUsers = false;          // may work on it at a time, as on a terminal server
  std::optional<bool> database;    // it has the records of 6.2 and later; empty: of no version
  bool runs32BitPrograms = false;  // has the directory for them
};

// Stores version, build, architecture, product, suite, drive and name, and adds a doubt for each contradiction. The
// kernel's own file is believed over the SOFTWARE hive, that over the rest. Fails, with one line, when none tells the
// version, or it is too old.
machine::Status DecideFacts(const Witnesses &witnesses, RestoredSystem *system);

}  // namespace rescue
