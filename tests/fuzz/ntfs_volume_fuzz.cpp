// The head of a volume from outside, the input's bytes from its first on: its kind, and whether it is dirty. No more
// may count than its boot sector and its record number 3, and whatever is missing or contradicts itself is a failure.
#include <unistd.h>

#include <algorithm>
#include <string>

#include "platform/machine/base/descriptor.h"
#include "platform/machine/host/file_bytes.h"
#include "rescue/ntfs_volume.h"
#include "tests/fuzz/fuzz_folder.h"

namespace {

constexpr std::size_t kBootSize = 512;

machine::Status Read(const uint8_t *data, size_t size, rescue::VolumeHead *head) {
  machine::Descriptor file;
  Require(static_cast<bool>(machine::MakeMemoryFile(&file)), "no memory file");
  Require(static_cast<bool>(machine::WriteAt(file.fd, 0, data, size)), "no memory file");
  return rescue::ReadVolumeHead("/proc/self/fd/" + std::to_string(file.fd), head);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  rescue::VolumeHead head, boot, longer;
  const machine::Status read = Read(data, size, &head);
  const bool ntfs = head.kind == rescue::VolumeKind::kNtfs;
  Require(read || ntfs, "only an NTFS volume can contradict itself");
  Require(!head.dirty || (read && ntfs), "dirty, and no NTFS volume that was read");
  Require(size >= kBootSize || (head.kind == rescue::VolumeKind::kOther && !head.bootable), "a volume without a head");
  if (size < kBootSize) return 0;
  const machine::Status alone = Read(data, kBootSize, &boot);
  Require(boot.kind == head.kind && boot.bootable == head.bootable, "the boot sector alone says something else");
  Require(!alone || !ntfs, "a record that is not there");
  std::string more(reinterpret_cast<const char *>(data), size);
  more.resize(size + 4096, '\xFF');
  const machine::Status again = Read(reinterpret_cast<const uint8_t *>(more.data()), more.size(), &longer);
  Require(!read || (again && longer.dirty == head.dirty), "what lies behind the record counts");
  return 0;
}
