// Disks and volumes of the described machine: how they are found, opened by their device names, and asked questions.
#pragma once

#include <algorithm>
#include <iterator>
#include <string_view>

#include "platform/machine/base/status.h"
#include "platform/machine/description/records.h"

namespace machine {

// Whether a name in one of the device namespaces is no file's: files are there by their drive only.
bool NamesDevice(std::string_view name);

// Opens the disk or volume of that name. Fails with ERROR_FILE_NOT_FOUND there is none; ERROR_INVALID_PARAMETER a
// disposition other than OPEN_EXISTING; as OpenDisk and OpenVolume.
Status OpenDevice(std::string_view name, DWORD access, DWORD disposition, HANDLE *handle);

// --- Disks -------------------------------------------------------------------------------------------------------

// Null when there is no such disk. A name is "\\.\PhysicalDriveN" or the disk's interface path, in any case.
const Disk *FindDisk(std::string_view name);

// With access rights opens the image too: ERROR_NOT_READY the disk has none; ERROR_WRITE_PROTECT writing is asked for
// and nobody may write to the image; others of the host.
Status OpenDisk(const Disk &disk, DWORD access, HANDLE *handle);

// --- Drives and volumes ------------------------------------------------------------------------------------------

// Null when there is no such drive. The letter is upper case; a root is "X:\", or the GUID path of the volume with its
// trailing backslash, in any case.
const Drive *FindDrive(char letter);
const Drive *FindDrive(std::string_view root);

// ERROR_ACCESS_DENIED with access rights: what a volume holds is described as files, not as sectors.
Status OpenVolume(const Drive &drive, DWORD access, HANDLE *handle);

// --- Requests ----------------------------------------------------------------------------------------------------

// Where the answer to a request goes.
struct AnswerBuffer {
  BYTE *bytes = nullptr;
  DWORD size = 0;
  DWORD stored = 0;
};

// Each answers one request, or fails with ERROR_INVALID_FUNCTION for one that the device does not know, and with
// ERROR_NOT_READY when its machine is no longer open.
Status AnswerDiskRequest(DWORD number, DWORD code, AnswerBuffer *answer);
Status AnswerVolumeRequest(char letter, DWORD code, AnswerBuffer *answer);

template <class Device>
struct Request {
  DWORD code;
  Status (*answer)(const Device &device, AnswerBuffer *answer);
};

template <class Device, std::size_t count>
Status AnswerRequest(const Request<Device> (&requests)[count], const Device *device, DWORD code, AnswerBuffer *answer) {
  if (device == nullptr) return Status::Windows(ERROR_NOT_READY);
  const auto known = std::find_if(std::begin(requests), std::end(requests),
                                  [code](const Request<Device> &request) { return request.code == code; });
  if (known == std::end(requests)) return Status::Windows(ERROR_INVALID_FUNCTION);
  return known->answer(*device, answer);
}

}  // namespace machine
