#include "platform/machine/hive/hive_logs.h"

#include <fcntl.h>

#include <algorithm>
#include <cstring>

#include "platform/machine/host/file_bytes.h"
#include "platform/machine/host/listing.h"
#include "platform/text/ansi_case.h"

namespace machine {
namespace {

constexpr const char *kSuffixes[] = {".LOG1", ".LOG2", ".LOG"};

// No system lets its logs grow near to this; a file that only claims to be one must not fill the memory.
constexpr std::uint64_t kLargestLog = std::uint64_t{1} << 30;

std::string OpenLog(int directory, HiveLog *log) {
  log->file = Descriptor(openat(directory, log->name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!log->file) return ErrnoReason("cannot be opened");
  std::string reason = RegularFileSize(log->file.fd, &log->size);
  if (log->size > kLargestLog) return "is larger than any log (" + std::to_string(log->size) + " bytes)";
  if (!reason.empty() || log->size < kLogHeadSize) return reason;
  std::uint8_t head[kLogHeadSize];
  reason = ReadAt(log->file.fd, 0, head, sizeof head);
  if (reason.empty()) log->head = ReadBaseBlock(head);
  log->format = FormatOf(log->head);
  return reason;
}

std::string ReadLog(HiveLog *log) {
  log->bytes.resize(static_cast<std::size_t>(log->size));
  std::string reason = ReadAt(log->file.fd, 0, log->bytes.data(), log->bytes.size());
  if (reason.empty()) ReadHiveLog(log);
  log->file = Descriptor();
  return reason;
}

std::string OfLog(const HiveLog &log, const std::string &reason) {
  return "has a log that is in the way: " + log.name + " " + reason + "; move it away, or make it readable";
}

}  // namespace

bool IsHiveLogName(const std::string &name, const std::string &file) {
  return std::any_of(std::begin(kSuffixes), std::end(kSuffixes),
                     [&](const char *suffix) { return FoldName(file) == FoldName(name + suffix); });
}

std::string FindHiveLogs(int directory, const std::string &name, std::vector<HiveLog> *logs) {
  const DirectoryStream stream = OpenDirectoryStream(directory);
  if (!stream) return ErrnoReason("lies in a directory that cannot be read");
  HiveLog found[std::size(kSuffixes)];
  while (const dirent *entry = readdir(stream.get())) {
    for (std::size_t i = 0; i < std::size(kSuffixes); ++i) {
      if (std::strlen(entry->d_name) != name.size() + std::strlen(kSuffixes[i])) continue;
      if (FoldName(entry->d_name) != FoldName(name + kSuffixes[i])) continue;
      if (!found[i].name.empty()) {
        return "has two logs of one name, " + std::min<std::string>(found[i].name, entry->d_name) + " and " +
               std::max<std::string>(found[i].name, entry->d_name) + "; move the one that is not its own away";
      }
      found[i].name = entry->d_name;
    }
  }
  for (HiveLog &log : found) {
    if (log.name.empty()) continue;
    if (const std::string reason = OpenLog(directory, &log); !reason.empty()) return OfLog(log, reason);
    logs->push_back(std::move(log));
  }
  return "";
}

std::string ReadHiveLogs(std::vector<HiveLog> *logs) {
  for (HiveLog &log : *logs) {
    if (!log.file) continue;
    if (const std::string reason = ReadLog(&log); !reason.empty()) return OfLog(log, reason);
  }
  return "";
}

}  // namespace machine
