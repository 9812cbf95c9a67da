#include "rescue/hibernation.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/machine/base/descriptor.h"
#include "platform/machine/host/file_bytes.h"
#include "rescue/disk_names.h"

namespace rescue {
namespace {

using machine::Status;

constexpr std::size_t kPage = 4096;

// The image is whole, or a start is taking it back; "WAKE", "LINK" and zeros say that none is. Either in both cases.
bool IsKept(const char *signature) {
  constexpr const char *kSignatures[] = {"HIBR", "hibr", "RSTR", "rstr"};
  return std::any_of(std::begin(kSignatures), std::end(kSignatures),
                     [&](const char *each) { return std::memcmp(signature, each, 4) == 0; });
}

struct HibernationFile {
  std::filesystem::path path;
  machine::Descriptor file;
  std::uint64_t size = 0;
  bool kept = false;
};

Status Open(const RestoredSystem &system, int flags, HibernationFile *found) {
  found->path = FindBelow(system.volume, {"hiberfil.sys"});
  if (found->path.empty()) return {};
  const auto about = [&](const Status &failure) {
    return Status::Refused(found->path.string() + " " + Words(failure), failure.error);
  };
  found->file = machine::Descriptor(open(found->path.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!found->file) return about(Status::System("cannot be opened"));
  if (Status regular = machine::RegularFileSize(found->file.fd, &found->size); !regular) return about(regular);
  std::array<char, 4> signature = {};
  if (found->size < signature.size()) return {};
  if (Status read = machine::ReadAt(found->file.fd, 0, signature.data(), signature.size()); !read) return about(read);
  found->kept = IsKept(signature.data());
  return {};
}

}  // namespace

Status FindHibernation(const RestoredSystem &system, bool *kept) {
  HibernationFile found;
  Status opened = Open(system, O_RDONLY, &found);
  *kept = found.kept;
  return opened;
}

Status ForgetHibernation(const RestoredSystem &system) {
  HibernationFile found;
  if (Status opened = Open(system, O_RDONLY, &found); !opened || !found.kept) return opened;
  if (Status opened = Open(system, O_RDWR, &found); !opened) return opened;
  const std::array<char, kPage> zeros = {};
  Status written = machine::WriteAt(found.file.fd, 0, zeros.data(), std::min<std::uint64_t>(found.size, kPage));
  if (written && fsync(found.file.fd) != 0) written = Status::System("cannot be written");
  return written ? Status() : Status::Refused(found.path.string() + " " + Words(written), written.error);
}

}  // namespace rescue
