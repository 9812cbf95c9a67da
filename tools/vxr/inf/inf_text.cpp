#include "tools/vxr/inf/inf_text.h"

#include <cstdio>
#include <utility>

#include "tools/vxr/base/host_file.h"
#include "tools/vxr/base/output.h"

namespace {

bool ReadBytes(const std::string &name, machine::InfBytes *bytes, std::string *reason) {
  std::uint64_t size = 0;
  const OpenedFile file = OpenRegularFile(name, &size, reason);
  if (file == nullptr) return false;
  if (size > machine::kInfSizeMax) {
    *reason = "has " + Bytes(size) + ", more than the " + Bytes(machine::kInfSizeMax) + " of the largest INF file";
    return false;
  }
  bytes->memory = std::make_unique_for_overwrite<char[]>(size);
  bytes->size = std::fread(bytes->memory.get(), 1, size, file.get());
  if (std::ferror(file.get()) == 0) return true;
  *reason = "cannot be read";
  return false;
}

}  // namespace

std::shared_ptr<machine::InfFile> ReadInfText(const std::string &name,
                                              std::shared_ptr<const machine::InfSettings> settings,
                                              std::string *reason) {
  machine::InfBytes bytes;
  if (!ReadBytes(name, &bytes, reason)) return nullptr;
  machine::InfRefusal refusal;
  std::shared_ptr<machine::InfFile> inf = machine::ReadInf(std::move(bytes), std::move(settings), &refusal);
  if (inf == nullptr) *reason = std::move(refusal.reason);
  return inf;
}
