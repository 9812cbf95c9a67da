#include "tools/vxr/hive/hive_command.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/machine/host/file_bytes.h"
#include "tools/vxr/base/host_file.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/hive/hive_facts.h"

namespace {

// Copies the hive's content, brought up to date, to an empty file and flushes it.
machine::Status CopyContent(const machine::Hive &hive, int out) {
  std::uint64_t size = 0;
  const int content = ContentOf(hive);
  if (machine::Status sized = machine::RegularFileSize(content, &size); !sized) return sized;
  if (machine::Status copied = machine::CopyBytes(content, size, out); !copied) return copied;
  // The copy that libhivex reads may hold a checksum that it understands and Windows does not.
  std::uint8_t head[machine::kLogHeadSize];
  if (machine::Status read = machine::ReadAt(out, 0, head, sizeof head); !read) return read;
  machine::SealBaseBlock(head);
  if (machine::Status written = machine::WriteAt(out, 0, head, sizeof head); !written) return written;
  return fsync(out) == 0 ? machine::Status() : machine::Status::System("cannot be flushed");
}

// Writes what the hive is to a new file; one that could not be written whole is removed again. False after one line of
// complaint.
bool WriteRecovered(const machine::Hive &hive, const std::string &name) {
  const std::filesystem::path file = HostFile(name);
  const machine::Descriptor out(open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (!out) {
    PrintError(name + (errno == EEXIST
                           ? " exists; name a new file"
                           : std::string(": cannot be made: ") + std::strerror(errno) + "; correct the path"));
    return false;
  }
  const machine::Status copied = CopyContent(hive, out.fd);
  if (copied) return true;
  unlink(file.c_str());
  PrintError(name + ": " + Words(copied) + "; it was removed again");
  return false;
}

}  // namespace

int HiveCommand(const HiveOptions &options) {
  if (!options.replay.empty()) BeginWork();
  machine::Hive hive;
  const machine::Status opened = OpenHiveFile(&hive, HostFile(options.file), machine::HiveUse::kLook);
  const HiveFacts facts = CollectHiveFacts(options.file, &hive, opened);
  // Of a file that is no hive there is nothing to show.
  if (!options.json && facts.isHive) PrintHiveText(facts);
  bool good = facts.refusal.empty();
  if (!good) PrintError(options.file + " " + facts.refusal);
  if (good && !options.replay.empty()) {
    good = WriteRecovered(hive, options.replay);
    if (good && !options.json) PrintLine("Written to " + options.replay, Style::kGood);
  }
  if (options.json && facts.isHive) PrintHiveJson(facts, TakeErrors(), good ? 0 : 1);
  return good ? 0 : 1;
}
