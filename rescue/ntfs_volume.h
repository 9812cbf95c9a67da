// What a volume's first sectors tell, read from its device or image. Nothing in it is believed: every offset and size
// is checked, and no more is read than the boot sector and one file record.
#pragma once

#include <cstdint>
#include <filesystem>

#include "platform/machine/base/status.h"

namespace rescue {

enum class VolumeKind : std::uint8_t {
  kOther,
  kNtfs,
  kEncrypted,  // by Windows, and not unlocked
};

struct VolumeHead {
  VolumeKind kind = VolumeKind::kOther;
  bool bootable = false;  // ends in the signature of boot sectors, as volumes and disks do
  bool dirty = false;     // NTFS: Windows will check the volume at its next start
};

// Of a block device or a regular file; a file too short to hold a volume is kOther. A device that cannot be read, or an
// NTFS volume that leads out of it or contradicts itself, is a failure in the form that follows its name; what was
// found until then is stored.
machine::Status ReadVolumeHead(const std::filesystem::path &device, VolumeHead *head);

}  // namespace rescue
