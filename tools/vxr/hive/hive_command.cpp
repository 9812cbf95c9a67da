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

// Writes what the hive is, brought up to date, to a new file; one that could not be written whole is removed again.
// False after one line of complaint.
bool WriteRecovered(const machine::Hive &hive, const std::string &name) {
  const std::filesystem::path file = HostFile(name);
  const machine::Descriptor out(open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (!out) {
    PrintError(name + (errno == EEXIST
                           ? ": exists; name a new file"
                           : std::string(": cannot be made: ") + std::strerror(errno) + "; correct the path"));
    return false;
  }
  std::uint64_t size = 0;
  const int content = ContentOf(hive);
  std::string problem = machine::RegularFileSize(content, &size);
  if (problem.empty()) problem = machine::CopyBytes(content, size, out.fd);
  // The copy that libhivex reads may hold a checksum that it understands and Windows does not.
  std::uint8_t head[machine::kLogHeadSize];
  if (problem.empty()) problem = machine::ReadAt(out.fd, 0, head, sizeof head);
  machine::SealBaseBlock(head);
  if (problem.empty()) problem = machine::WriteAt(out.fd, 0, head, sizeof head);
  if (problem.empty() && fsync(out.fd) != 0) problem = std::string("cannot be flushed: ") + std::strerror(errno);
  if (problem.empty()) return true;
  unlink(file.c_str());
  PrintError(name + ": " + problem + "; it was removed again");
  return false;
}

}  // namespace

int HiveCommand(const HiveOptions &options) {
  machine::Hive hive;
  const std::string refusal = OpenHiveFile(&hive, HostFile(options.file), machine::HiveUse::kLook);
  const HiveFacts facts = CollectHiveFacts(options.file, &hive, refusal);
  // Of a file that is no hive there is nothing to show.
  if (!options.json && facts.isHive) PrintHiveText(facts);
  bool good = facts.refusal.empty();
  if (!good) PrintError(options.file + " " + facts.refusal);
  if (good && !options.replay.empty()) {
    good = WriteRecovered(hive, options.replay);
    if (good && !options.json) PrintLine("Written to " + options.replay, Style::kGood);
  }
  if (options.json && facts.isHive) PrintHiveJson(facts, TakeError(), good ? 0 : 1);
  return FinishOutput() && good ? 0 : 1;
}
