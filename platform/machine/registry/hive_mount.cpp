// What the registry tool does with hives, and the saving of the running system's.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "platform/machine/base/errors.h"
#include "platform/machine/base/report.h"
#include "platform/machine/files/paths.h"
#include "platform/machine/host/rehearsal.h"
#include "platform/machine/host/replace_file.h"
#include "platform/machine/registry/registry.h"
#include "platform/machine/registry/registry_state.h"

namespace machine {
namespace {

void PrintLine(const std::string &line) { platform::OutputDebugStringA(("reg.exe: " + line + "\n").c_str()); }

void ReportHive(DWORD kind, const std::string &subject, const std::string &detail, std::uint64_t size = 0,
                const std::string &text = {}) {
  VXRMachine_Event event = {};
  event.kind = kind;
  event.subject = subject.c_str();
  event.detail = detail.empty() ? nullptr : detail.c_str();
  event.size = size;
  event.text = text.empty() ? nullptr : text.c_str();
  Report(event);
}

std::string CannotLocate(DWORD error) {
  switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
      return "does not exist; correct the path";
    case ERROR_ACCESS_DENIED:
      return "leads out of its drive or may not be read; correct the path or its rights";
    default:
      return "cannot be found (system error " + std::to_string(error) + "); correct the path";
  }
}

// Opens the hive file for a mount. A directory that cannot be written to is refused now: the save at the end of the run
// would fail, after everything else was done.
Status OpenNamedHive(const char *windowsPath, Hive *hive) {
  HostPlace place;
  if (windowsPath == nullptr) return Status::Refused("is not named; give its path");
  const Status located = LocatePlace(windowsPath, &place);
  if (!located) return Status::Refused(CannotLocate(WindowsError(located)));
  if (!place.exists) return Status::Refused("does not exist; correct the path");
  if (const Status may = MayWriteTo(place.directory); !may) {
    return Status::Refused(std::string("could not be saved, its directory cannot be written to (") +
                               std::strerror(may.error) + "); mount the file system for writing, then run again",
                           may.error);
  }
  // The place's descriptor only names the directory; one that can be flushed must be open for reading.
  hive->directory = Descriptor(openat(place.directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  hive->name = place.name;
  if (Status opened = OpenHive(hive, HiveUse::kChange); !opened) return opened;
  if (Status read = ReadHive(hive); !read) return read;
  // A run that was stopped may have left a new hive, and this run may have nothing to save. What cannot be removed is
  // told when it is in the way.
  if (!Rehearsing()) (void)ClearLeftOver(hive->directory.fd, hive->name);
  return {};
}

// What was set in a damaged hive is not all that was to be set: a restored system is better left as it was than with
// half a driver. The running system goes on with what it has.
Status Save(MountedHive *mounted, std::uint64_t *size, std::string *digest) {
  if (mounted->discarded) {
    return Status::Refused("it holds part of a driver that could not be taken back; see the errors, then run again");
  }
  if (mounted->running || !mounted->hive->damaged) return SaveHive(mounted->hive.get(), size, digest);
  return Status::Refused(
      "it is damaged (error 1009) where it was read or changed; restore the hive file again, then run again");
}

bool SaveMounted(MountedHive *mounted) {
  std::uint64_t size = 0;
  std::string digest;
  if (const Status saved = Save(mounted, &size, &digest); !saved) {
    const std::string reason = Words(saved);
    PrintLine(mounted->subject + " is not saved: " + reason);
    ReportHive(VXRMACHINE_HIVE_NOT_SAVED, mounted->subject, reason, size);
    return false;
  }
  if (size != 0) ReportHive(VXRMACHINE_HIVE_SAVED, mounted->subject, "", size, digest);
  return true;
}

// Opens the hive file for a mount at a key that is free.
Status OpenForMount(const char *windowsPath, MountedHive *mounted) {
  if (!Registry().open) return Status::Refused("cannot be mounted without a machine; open one first");
  if (mounted->at.folded.size() != 1) {
    return Status::Refused("cannot be mounted at \"" + mounted->key + "\"; give one key directly below HKLM");
  }
  if (FindKey(mounted->at).kind != StatusKind::kNotFound) {
    return Status::Refused("cannot be mounted, HKLM\\" + mounted->key + " is in use; unload what is there first");
  }
  mounted->hive = std::make_unique<Hive>();
  return OpenNamedHive(windowsPath, mounted->hive.get());
}

}  // namespace

void TellReplay(const MountedHive &mounted) {
  if (!mounted.hive->recovered) return;
  const std::string replay = DescribeReplay(mounted.hive->recovery);
  PrintLine(mounted.subject + " was not closed cleanly: " + replay);
  ReportHive(VXRMACHINE_HIVE_REPLAYED, mounted.subject, replay);
}

int MountHive(const std::string &key, const char *windowsPath) {
  MountedHive mounted;
  mounted.key = key;
  mounted.at = ParseKeyPathA(key);
  mounted.subject = windowsPath != nullptr ? windowsPath : "";
  if (const Status opened = OpenForMount(windowsPath, &mounted); !opened) {
    const std::string reason = Words(opened);
    PrintLine(mounted.subject + " " + reason);
    ReportHive(VXRMACHINE_HIVE_REFUSED, mounted.subject, reason);
    return 1;
  }
  ReportHive(VXRMACHINE_HIVE_LOADED, mounted.subject, key);
  TellReplay(mounted);
  Registry().hives.push_back(std::move(mounted));
  ++Registry().changes;
  return 0;
}

int UnmountHive(const std::string &key) {
  std::vector<MountedHive> &hives = Registry().hives;
  const KeyPath at = ParseKeyPathA(key);
  const auto found = std::find_if(hives.begin(), hives.end(), [&](const MountedHive &mounted) {
    return !mounted.running && mounted.at.folded == at.folded;
  });
  if (found == hives.end()) {
    PrintLine("no hive is mounted at HKLM\\" + key);
    return 1;
  }
  if (const std::size_t open = OpenKeysBelow(at); open != 0) {
    const std::string reason =
        "stays mounted: " + std::to_string(open) + " of its keys are still open; close them first";
    PrintLine(found->subject + " " + reason);
    ReportHive(VXRMACHINE_HIVE_NOT_SAVED, found->subject, reason);
    return 1;
  }
  const bool saved = SaveMounted(&*found);
  hives.erase(found);
  ++Registry().changes;
  return saved ? 0 : 1;
}

void DiscardHiveOf(const KeyPath &key) {
  if (MountedHive *mounted = PlaceOfKey(key).mounted) mounted->discarded = true;
}

void DropMountedHives() {
  if (std::erase_if(Registry().hives, [](const MountedHive &mounted) { return !mounted.running; }) != 0) {
    ++Registry().changes;
  }
}

bool CloseRegistry() {
  DropKeyHandles();
  bool saved = true;
  for (MountedHive &mounted : Registry().hives) {
    if (mounted.running) saved = SaveMounted(&mounted) && saved;
  }
  Registry() = RegistryState();
  return saved;
}

}  // namespace machine
