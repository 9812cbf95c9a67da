#include "platform/machine/files/disk_index.h"

#include <cstddef>
#include <string>
#include <unordered_map>

#include "platform/machine/description/current.h"
#include "platform/text/code_page.h"

namespace machine {
namespace {

struct DiskIndex {
  std::unordered_map<std::string, std::size_t> byInterface;  // upper case
  std::unordered_map<DWORD, std::size_t> byNumber;
};

DiskIndex disks;

}  // namespace

const Disk *FindDiskByNumber(DWORD number) {
  const auto found = disks.byNumber.find(number);
  return found != disks.byNumber.end() ? &Current()->disks[found->second] : nullptr;
}

const Disk *FindDiskByInterface(std::string_view path) {
  const auto found = disks.byInterface.find(ToUpper(path));
  return found != disks.byInterface.end() ? &Current()->disks[found->second] : nullptr;
}

void IndexDisks(const Description &description) {
  disks = {};
  for (std::size_t disk = 0; disk < description.disks.size(); ++disk) {
    const std::string &path = description.disks[disk].interfacePath;
    if (!path.empty()) disks.byInterface.try_emplace(ToUpper(path), disk);
    disks.byNumber.try_emplace(description.disks[disk].number, disk);
  }
}

void ForgetDisks() { disks = {}; }

}  // namespace machine
