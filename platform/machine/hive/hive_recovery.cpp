#include "platform/machine/hive/hive_recovery.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "platform/machine/base/little_endian.h"
#include "platform/machine/hive/hive_check.h"
#include "platform/machine/host/file_bytes.h"

namespace machine {
namespace {

struct Planner {
  const BaseBlock &hive;
  const std::vector<HiveLog> &logs;
  Recovery *recovery;
};

LogVerdict *VerdictOn(const Planner &planner, const HiveLog &log) {
  return &planner.recovery->verdicts[static_cast<std::size_t>(&log - planner.logs.data())];
}

void Apply(const Planner &planner, const HiveLog &log) {
  VerdictOn(planner, log)->applied = true;
  planner.recovery->applied.push_back(&log);
  planner.recovery->entries += log.entries.size();
}

void LeaveOut(const Planner &planner, const HiveLog &log, std::string reason) {
  VerdictOn(planner, log)->reason = std::move(reason);
}

std::string Number(std::uint32_t number) { return std::to_string(number); }

// Usable logs of that format, the earliest first: their names say nothing about that.
std::vector<const HiveLog *> UsableLogs(const Planner &planner, LogFormat format) {
  std::vector<const HiveLog *> usable;
  for (const HiveLog &log : planner.logs) {
    if (log.flaw.empty() && log.format == format) usable.push_back(&log);
  }
  std::stable_sort(usable.begin(), usable.end(),
                   [](const HiveLog *a, const HiveLog *b) { return IsBefore(a->head.primary, b->head.primary); });
  return usable;
}

// --- The new format: logs are written in turn -----------------------------------------------------------------------

void RefuseEmptyLog(const Planner &planner, const HiveLog &log) {
  planner.recovery->refusal = log.name + " stops before its first entry";
  LeaveOut(planner, log, "stops before its first entry");
}

bool HasNewLog(const Planner &planner) {
  return std::any_of(planner.logs.begin(), planner.logs.end(), [](const HiveLog &log) {
    return log.format == LogFormat::kNew || (log.format == LogFormat::kNone && log.latest);
  });
}

// The numbers in the hive are those with which it became dirty; logs from before that are in it already.
void DropOldLogs(const Planner &planner, std::vector<const HiveLog *> *usable) {
  std::erase_if(*usable, [&](const HiveLog *log) {
    if (!IsBefore(log->head.primary, planner.hive.secondary)) return false;
    LeaveOut(
        planner, *log,
        "is older than the hive (" + Number(log->head.primary) + " is before " + Number(planner.hive.secondary) + ")");
    return true;
  });
}

// The later of two logs builds on the earlier one, and is complete only with it.
void PlanNewLogs(const Planner &planner, std::vector<const HiveLog *> usable) {
  if (planner.hive.checksumRight) DropOldLogs(planner, &usable);
  if (usable.empty()) return;
  if (usable.front()->entries.empty()) {
    for (const HiveLog *log : usable) LeaveOut(planner, *log, "builds on a log that stops before its first entry");
    RefuseEmptyLog(planner, *usable.front());
    return;
  }
  if (!planner.hive.checksumRight) {
    // Without the hive's own numbers nothing says where the earlier ones would begin.
    const HiveLog &latest = *usable.back();
    planner.recovery->replacesBlock = true;
    for (const HiveLog *log : usable) {
      if (log != &latest) LeaveOut(planner, *log, "comes before the log that replaces the base block");
    }
    if (latest.entries.empty()) {
      RefuseEmptyLog(planner, latest);
    } else {
      Apply(planner, latest);
    }
    return;
  }
  Apply(planner, *usable.front());
  for (std::size_t i = 1; i < usable.size(); ++i) {
    const HiveLog &log = *usable[i];
    const HiveLog &before = *planner.recovery->applied.back();
    const std::uint32_t next = before.entries.back().number + 1;
    if (log.head.primary != next) {
      LeaveOut(planner, log,
               "does not continue " + before.name + " (it begins with " + Number(log.head.primary) + ", not " +
                   Number(next) + ")");
    } else if (log.entries.empty()) {
      LeaveOut(planner, log, "stops before its first entry");
    } else {
      Apply(planner, log);
    }
  }
}

// --- The old format: one log has all that the hive lacks ------------------------------------------------------------

// Of two that fit, the second was written because writing the first had failed: the later one holds.
void PlanOldLogs(const Planner &planner, std::uint64_t firstBinTime, const std::vector<const HiveLog *> &usable) {
  const std::uint64_t time = planner.hive.checksumRight ? planner.hive.time : firstBinTime;
  std::vector<const HiveLog *> fitting;
  for (const HiveLog *log : usable) {
    if (log->head.time == time) {
      fitting.push_back(log);
    } else {
      LeaveOut(planner, *log, "belongs to another state of the hive (the times of their last writes differ)");
    }
  }
  if (fitting.empty()) return;
  const HiveLog *latest = fitting.front();
  for (const HiveLog *log : fitting) {
    if (IsBefore(latest->head.primary, log->head.primary)) latest = log;
  }
  for (const HiveLog *log : fitting) {
    if (log != latest) LeaveOut(planner, *log, "is not the latest that fits");
  }
  planner.recovery->replacesBlock = !planner.hive.checksumRight;
  if (latest->entries.empty()) {
    RefuseEmptyLog(planner, *latest);
  } else {
    Apply(planner, *latest);
  }
}

bool LeavesOutNumbers(const Planner &planner) {
  return std::any_of(planner.logs.begin(), planner.logs.end(),
                     [&](const HiveLog &log) { return log.latest && !VerdictOn(planner, log)->applied; });
}

std::string DescribeFailure(const Planner &planner) {
  if (planner.logs.empty()) return "there is no log beside it";
  std::string reasons;
  for (const HiveLog &log : planner.logs) {
    reasons += (reasons.empty() ? "" : ", ") + log.name + " " + VerdictOn(planner, log)->reason;
  }
  return reasons;
}

// --- Applying -------------------------------------------------------------------------------------------------------

// A page that reaches into a window of the bins.
struct PageUse {
  const HiveLog *log;
  const LogPage *page;
};
using WindowPages = std::vector<std::vector<PageUse>>;  // by window, in the order in which they apply

WindowPages SortPages(const Recovery &recovery, std::uint64_t end) {
  WindowPages windows((end + kWindowSize - 1) / kWindowSize);
  for (const HiveLog *log : recovery.applied) {
    for (const LogPage &page : log->pages) {
      if (page.size == 0) continue;
      const std::uint32_t last = page.hiveOffset + page.size - 1;
      for (std::uint32_t i = page.hiveOffset / kWindowSize; i <= last / kWindowSize; ++i)
        windows[i].push_back({log, &page});
    }
  }
  return windows;
}

void CopyPage(const PageUse &use, std::uint64_t start, std::vector<std::uint8_t> *window) {
  const std::uint64_t from = std::max<std::uint64_t>(start, use.page->hiveOffset);
  const std::uint64_t to =
      std::min<std::uint64_t>(start + window->size(), std::uint64_t{use.page->hiveOffset} + use.page->size);
  const std::uint8_t *bytes = use.log->bytes.data() + use.page->logOffset + (from - use.page->hiveOffset);
  std::memcpy(window->data() + (from - start), bytes, to - from);
}

// The window of the old hive's bins; zeros behind its end.
Status ReadWindow(int hive, std::uint64_t size, std::uint64_t start, std::vector<std::uint8_t> *window) {
  const std::uint64_t at = kBaseBlockSize + start, there = at < size ? std::min(size - at, window->size()) : 0;
  std::fill(window->begin() + static_cast<std::ptrdiff_t>(there), window->end(), 0);
  return there == 0 ? Status() : ReadAt(hive, at, window->data(), there);
}

// What the base block becomes.
void FinishHead(const Recovery &recovery, std::uint8_t *head) {
  const HiveLog &last = *recovery.applied.back();
  if (recovery.replacesBlock) {
    std::memcpy(head, last.bytes.data(), kLogHeadSize);
    WriteLe32(head + kTypeOffset, 0);
  }
  const LogEntry &entry = last.entries.back();
  WriteLe32(head + kBinsSizeOffset, entry.binsSize);
  if (last.format == LogFormat::kNew) {
    WriteLe32(head + kFlagsOffset, (ReadLe32(head + kFlagsOffset) & ~1u) | (entry.flags & 1));
  } else {
    // A log of the old format belongs to the hive whose time of the last write is the same. The recovered hive gets the
    // next time, the smallest change there is, so that this log, when it is left beside it, is not applied again.
    WriteLe64(head + kTimeOffset, ReadLe64(head + kTimeOffset) + 1);
  }
  WriteLe32(head + kPrimaryOffset, recovery.number);
  WriteLe32(head + kSecondaryOffset, recovery.number);
  SealBaseBlock(head);
}

std::uint32_t LargestBinsSize(const Recovery &recovery) {
  std::uint32_t largest = 0;
  for (const HiveLog *log : recovery.applied) {
    for (const LogEntry &entry : log->entries) largest = std::max(largest, entry.binsSize);
  }
  return largest;
}

}  // namespace

Recovery PlanRecovery(const BaseBlock &hive, std::uint64_t firstBinTime, const std::vector<HiveLog> &logs) {
  Recovery recovery;
  recovery.verdicts.resize(logs.size());
  const Planner planner = {hive, logs, &recovery};
  for (const HiveLog &log : logs) LeaveOut(planner, log, log.flaw);

  // A system that writes the new format, even if nothing of that can be used, has old logs at most from the image it
  // was installed from; and since it no longer changes the hive's time, such a log can still seem to fit.
  PlanNewLogs(planner, UsableLogs(planner, LogFormat::kNew));
  const std::vector<const HiveLog *> old = UsableLogs(planner, LogFormat::kOld);
  if (HasNewLog(planner)) {
    for (const HiveLog *log : old) LeaveOut(planner, *log, "has the format of an earlier system");
  } else {
    PlanOldLogs(planner, firstBinTime, old);
  }
  if (recovery.applied.empty()) {
    if (recovery.refusal.empty()) recovery.refusal = DescribeFailure(planner);
    return recovery;
  }
  const HiveLog &last = *recovery.applied.back();
  const bool past = last.format == LogFormat::kOld || LeavesOutNumbers(planner);
  recovery.number = past ? NextNumber(hive, logs) : last.entries.back().number + 1;
  return recovery;
}

Status ApplyRecovery(const Recovery &recovery, int hive, std::uint64_t size, int recovered) {
  std::uint8_t head[kBaseBlockSize];
  if (Status read = ReadAt(hive, 0, head, sizeof head); !read) return read;
  FinishHead(recovery, head);
  if (Status written = WriteAt(recovered, 0, head, sizeof head); !written) return written;

  // In one pass, since a hive can be large: read, put the pages in, look at bins and cells, write.
  BinWalk walk = {CellCheck::kAll, ReadLe32(head + kBinsSizeOffset), 0, 0};
  const std::uint64_t end =
      std::max(std::min<std::uint64_t>(size - kBaseBlockSize, kLargestBins), std::uint64_t{LargestBinsSize(recovery)});
  const WindowPages pages = SortPages(recovery, end);
  const bool moveTime = recovery.applied.back()->format == LogFormat::kOld;
  std::vector<std::uint8_t> window;
  for (std::uint64_t start = 0; start < end; start += kWindowSize) {
    window.resize(std::min<std::uint64_t>(kWindowSize, end - start));
    if (Status read = ReadWindow(hive, size, start, &window); !read) return read;
    for (const PageUse &use : pages[start / kWindowSize]) CopyPage(use, start, &window);
    if (start == 0 && moveTime) std::memcpy(window.data() + kFirstBinTime - kBaseBlockSize, head + kTimeOffset, 8);
    const auto checked = std::min<std::uint64_t>(window.size(), walk.bins - std::min<std::uint64_t>(walk.bins, start));
    if (checked != 0) {
      Status sound =
          WalkBins(&walk, window.data(), static_cast<std::uint32_t>(start), static_cast<std::uint32_t>(checked));
      if (!sound) return sound;
    }
    Status written = WriteAt(recovered, kBaseBlockSize + start, window.data(), window.size());
    if (!written) return written;
  }
  return {};
}

std::uint32_t NextNumber(const BaseBlock &hive, const std::vector<HiveLog> &logs) {
  std::optional<std::uint32_t> latest;
  if (hive.checksumRight) {
    NoteNumber(&latest, hive.secondary);
    NoteNumber(&latest, hive.primary);
  }
  for (const HiveLog &log : logs) {
    if (log.latest) NoteNumber(&latest, *log.latest);
  }
  return latest.value_or(0) + 1;
}

}  // namespace machine
