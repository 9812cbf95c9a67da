#include "platform/machine/files/storage.h"

#include "platform/machine/base/answer.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/base/handles.h"

namespace machine {
namespace {

// The drive whose volume a GUID path without trailing backslash names. With one it is the volume's root directory.
const Drive *FindVolume(std::string_view name) {
  return name.ends_with('\\') ? nullptr : FindDrive(std::string(name) + '\\');
}

}  // namespace

bool NamesDevice(std::string_view name) {
  if (name.starts_with(R"(\\.\)")) return true;
  return name.starts_with(R"(\\?\)") && (name.size() < 6 || name[5] != ':');
}

Status OpenDevice(std::string_view name, DWORD access, DWORD disposition, HANDLE *handle) {
  const Disk *disk = FindDisk(name);
  const Drive *volume = disk == nullptr ? FindVolume(name) : nullptr;
  if (disk == nullptr && volume == nullptr) {
    return Status::Windows(FindDrive(name) != nullptr ? ERROR_PATH_NOT_FOUND : ERROR_FILE_NOT_FOUND);
  }
  if (disposition != OPEN_EXISTING) return Status::Windows(ERROR_INVALID_PARAMETER);
  return disk != nullptr ? OpenDisk(*disk, access, handle) : OpenVolume(*volume, access, handle);
}

}  // namespace machine

namespace platform {

BOOL DeviceIoControl(HANDLE device, DWORD code, void *, DWORD, void *out, DWORD outSize, DWORD *returned, void *) {
  VXR_FAULT(FALSE, ERROR_GEN_FAILURE);
  machine::AnswerBuffer answer = {static_cast<BYTE *>(out), out == nullptr ? 0 : outSize, 0};
  if (returned != nullptr) *returned = 0;
  const machine::HandleRecord *record = machine::FindHandle(device);
  if (record == nullptr) return machine::FailWith(ERROR_INVALID_HANDLE);
  const bool file = std::holds_alternative<machine::FileHandle>(*record);
  // A file system's answer, and a device's.
  machine::Status status = machine::Status::Windows(file ? ERROR_INVALID_PARAMETER : ERROR_INVALID_FUNCTION);
  if (const auto *disk = std::get_if<machine::DiskHandle>(record)) {
    status = machine::AnswerDiskRequest(disk->number, code, &answer);
  } else if (const auto *volume = std::get_if<machine::VolumeHandle>(record)) {
    status = machine::AnswerVolumeRequest(volume->letter, code, &answer);
  }
  if (returned != nullptr) *returned = answer.stored;
  return machine::Finish(status);
}

}  // namespace platform
