#include "platform/machine/files/disk_index.h"

#include <cstddef>
#include <unordered_map>

#include "platform/machine/description/current.h"
#include "platform/text/ansi_case.h"

namespace machine {
namespace {

struct DiskIndex {
  NameTable<std::size_t> byInterface;
  std::unordered_map<DWORD, std::size_t> byNumber;
};

DiskIndex disks;

}  // namespace

const Disk *FindDiskByNumber(DWORD number) {
  const auto found = disks.byNumber.find(number);
  return found != disks.byNumber.end() ? &Current()->disks[found->second] : nullptr;
}

const Disk *FindDiskByInterface(std::string_view path) {
  const auto found = disks.byInterface.find(path);
  return found != disks.byInterface.end() ? &Current()->disks[found->second] : nullptr;
}

void IndexDisks(const Description &description) {
  disks = {};
  for (std::size_t disk = 0; disk < description.disks.size(); ++disk) {
    const std::string &path = description.disks[disk].interfacePath;
    if (!path.empty()) disks.byInterface.try_emplace(path, disk);
    disks.byNumber.try_emplace(description.disks[disk].number, disk);
  }
}

void ForgetDisks() { disks = {}; }

}  // namespace machine
