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

Status OpenLog(int directory, HiveLog *log) {
  log->file = Descriptor(openat(directory, log->name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!log->file) return Status::System("cannot be opened");
  if (Status sized = RegularFileSize(log->file.fd, &log->size); !sized) return sized;
  if (log->size > kLargestLog) {
    return Status::Refused("is larger than any log (" + std::to_string(log->size) + " bytes)");
  }
  if (log->size < kLogHeadSize) return {};
  std::uint8_t head[kLogHeadSize];
  if (Status read = ReadAt(log->file.fd, 0, head, sizeof head); !read) return read;
  log->head = ReadBaseBlock(head);
  log->format = FormatOf(log->head);
  return {};
}

Status ReadLog(HiveLog *log) {
  log->bytes.resize(static_cast<std::size_t>(log->size));
  const Descriptor file = std::move(log->file);
  if (Status read = ReadAt(file.fd, 0, log->bytes.data(), log->bytes.size()); !read) return read;
  ReadHiveLog(log);
  return {};
}

Status InTheWay(const HiveLog &log, const Status &failure) {
  return Status::Refused(
      "has a log that is in the way: " + log.name + " " + Words(failure) + "; move it away, or make it readable",
      failure.error);
}

}  // namespace

bool IsHiveLogName(const std::string &name, const std::string &file) {
  return std::any_of(std::begin(kSuffixes), std::end(kSuffixes),
                     [&](const char *suffix) { return FoldName(file) == FoldName(name + suffix); });
}

Status FindHiveLogs(int directory, const std::string &name, std::vector<HiveLog> *logs) {
  DirectoryStream stream;
  if (Status opened = OpenDirectoryStream(directory, &stream); !opened) {
    return SaidAs("lies in a directory that cannot be read", std::move(opened));
  }
  HiveLog found[std::size(kSuffixes)];
  while (const dirent *entry = readdir(stream.get())) {
    for (std::size_t i = 0; i < std::size(kSuffixes); ++i) {
      if (std::strlen(entry->d_name) != name.size() + std::strlen(kSuffixes[i])) continue;
      if (FoldName(entry->d_name) != FoldName(name + kSuffixes[i])) continue;
      if (!found[i].name.empty()) {
        return Status::Refused("has two logs of one name, " + std::min<std::string>(found[i].name, entry->d_name) +
                               " and " + std::max<std::string>(found[i].name, entry->d_name) +
                               "; move the one that is not its own away");
      }
      found[i].name = entry->d_name;
    }
  }
  for (HiveLog &log : found) {
    if (log.name.empty()) continue;
    if (const Status opened = OpenLog(directory, &log); !opened) return InTheWay(log, opened);
    logs->push_back(std::move(log));
  }
  return {};
}

Status ReadHiveLogs(std::vector<HiveLog> *logs) {
  for (HiveLog &log : *logs) {
    if (!log.file) continue;
    if (const Status read = ReadLog(&log); !read) return InTheWay(log, read);
  }
  return {};
}

}  // namespace machine
