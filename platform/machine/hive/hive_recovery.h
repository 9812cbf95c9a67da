// Bringing a hive up to date from its transaction logs, as Windows does at its load.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/machine/base/status.h"
#include "platform/machine/hive/base_block.h"
#include "platform/machine/hive/hive_log.h"

namespace machine {

struct LogVerdict {
  bool applied = false;
  std::string reason;  // why not, for people, such as "is empty"
};

struct Recovery {
  std::string refusal;                   // why the logs are of no use, for people; empty when they are
  std::vector<const HiveLog *> applied;  // in their order
  std::vector<LogVerdict> verdicts;      // one a log
  bool replacesBlock = false;            // the hive's own was lost: the last applied log's takes its place
  std::size_t entries = 0;               // of all applied logs
  std::uint32_t number = 0;              // both sequence numbers afterwards
};

// Whether a hive with that base block needs its logs. A clean one is taken as it is, whatever they hold.
inline bool NeedsRecovery(const BaseBlock &hive) { return !hive.checksumRight || hive.primary != hive.secondary; }

// Which of the logs, read, apply to a hive that needs them. `firstBinTime` is the FILETIME in the first bin's header.
// The result points into `logs`.
Recovery PlanRecovery(const BaseBlock &hive, std::uint64_t firstBinTime, const std::vector<HiveLog> &logs);

// Writes what the hive, of `size` bytes, becomes with the logs to the empty file `recovered`. Fails, with one line for
// people, when the bins that come of it are not whole, or memory is short. Base block and root cell are left for
// CheckAllButBins.
Status ApplyRecovery(const Recovery &recovery, int hive, std::uint64_t size, int recovered);

// The sequence number for a hive that was changed with those logs beside it: past the hive's own (unless its base block
// is damaged, and they with it) and every entry of every log, old rounds too. None of them can then be applied, not
// even when the hive is dirty the next time.
std::uint32_t NextNumber(const BaseBlock &hive, const std::vector<HiveLog> &logs);

}  // namespace machine
