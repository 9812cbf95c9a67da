// New directories, and the room in old ones.
#include <fcntl.h>
#include <sys/stat.h>

#include "platform/machine/base/answer.h"
#include "platform/machine/base/descriptor.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/files/paths.h"
#include "platform/machine/host/rehearsal.h"
#include "platform/machine/host/replace_file.h"

namespace {

// Whether something is there already. A link is, wherever it leads.
bool IsTaken(const machine::HostPlace &place) {
  std::uint64_t size = 0;
  return place.exists || place.throughLink || machine::WouldExist(place, &size) ||
         machine::WouldBeDirectory(place.directory, place.name);
}

// The directory itself; of one that is rehearsed the one in which it would be.
machine::Status OpenForRoom(const char *name, machine::Descriptor *directory) {
  machine::HostPlace place;
  if (machine::Rehearsing() && machine::LocatePlace(name, &place) &&
      machine::WouldBeDirectory(place.directory, place.name)) {
    *directory = machine::Descriptor(openat(place.directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return *directory ? machine::Status() : machine::Status::System();
  }
  return machine::OpenHostDirectory(name, directory);
}

}  // namespace

namespace platform {

BOOL CreateDirectoryA(const char *name, void *) {
  VXR_FAULT(FALSE, ERROR_ACCESS_DENIED);
  machine::HostPlace place;
  if (const machine::Status located = machine::LocatePlace(name, &place); !located) return machine::FailWith(located);
  if (IsTaken(place)) return machine::FailWith(ERROR_ALREADY_EXISTS);
  if (machine::Rehearsing()) {
    const machine::Status would = machine::RehearseDirectory(place.directory, place.name);
    return would ? TRUE : machine::FailWith(would);
  }
  if (mkdirat(place.directory, place.name.c_str(), 0777) != 0) return machine::FailWith(machine::Status::System());
  (void)machine::FlushDirectory(place.directory);
  return TRUE;
}

BOOL GetDiskFreeSpaceExA(const char *directory, ULARGE_INTEGER *available, ULARGE_INTEGER *, ULARGE_INTEGER *) {
  VXR_FAULT(FALSE, ERROR_NOT_READY);
  machine::Descriptor open;
  if (const machine::Status opened = OpenForRoom(directory, &open); !opened) return machine::FailWith(opened);
  DWORD64 room = 0;
  if (const machine::Status told = machine::RoomLeft(open.fd, &room); !told) return machine::FailWith(told);
  if (available != nullptr) available->QuadPart = room;
  return TRUE;
}

}  // namespace platform
