// Taking an injection back: the hive first, so that it never names a driver that is gone, then files, then directories.
#include <sys/file.h>

#include <algorithm>

#include "platform/machine/host/digest.h"
#include "platform/machine/host/file_bytes.h"
#include "platform/machine/host/replace_file.h"
#include "rescue/undo_folder.h"

namespace rescue {

namespace fs = std::filesystem;
using machine::Descriptor;
using machine::Status;

namespace {

struct Step {
  const UndoChange *change = nullptr;
  Descriptor parent;  // empty: the directory is not there
  std::string name;
  Descriptor lock;  // of a hive: a run that changes it has it too
  UndoState state = UndoState::kUnchanged;
};

Status Prepare(const OpenFolder &folder, const UndoManifest &manifest, Step *step) {
  const UndoChange &change = *step->change;
  if (Status opened = OpenParent(folder.volume.fd, change.path, &step->parent, &step->name); !opened) return opened;
  if (step->parent && change.kind == ChangeKind::kHive) {
    step->lock = OpenForReading(step->parent.fd, step->name);
    if (step->lock && flock(step->lock.fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) return InUseByAnother();
  }
  return LookAt(folder.volume.fd, manifest, change, &step->state);
}

// Whether what is to be put back is still what was kept.
Status CheckKept(const OpenFolder &folder, const Step &step) {
  if (step.state != UndoState::kInjected || !step.change->before) return {};
  const OldFile &old = *step.change->before;
  const Descriptor kept = OpenForReading(folder.folder.fd, old.kept);
  if (!kept) return Status::System("has a kept copy, " + old.kept + ", that cannot be opened");
  FileState now;
  if (Status sized = machine::RegularFileSize(kept.fd, &now.size); !sized) return sized;
  if (now.size == old.state.size && now.size <= kLargestFile) {
    if (Status read = machine::FileDigest(kept.fd, now.size, &now.digest); !read) return read;
  }
  if (now == old.state) return {};
  return Status::Refused("has a kept copy, " + old.kept + ", that is damaged; remove the folder to keep what is there");
}

// Removes what a run that was stopped left beside the file.
Status ClearBeside(const Step &step) {
  if (!step.parent || step.change->kind == ChangeKind::kDirectory) return {};
  Status cleared = machine::ClearLeftOver(step.parent.fd, step.name);
  if (!cleared && cleared.error == EBUSY) return InUseByAnother();
  return cleared ? Status() : SaidAs("has an unfinished file beside it that cannot be removed", std::move(cleared));
}

Status PutBack(const OpenFolder &folder, const Step &step) {
  const OldFile &old = *step.change->before;
  const Descriptor kept = OpenForReading(folder.folder.fd, old.kept);
  machine::NewFile created(step.parent.fd, step.name);
  if (!kept) return Status::System("has a kept copy that cannot be opened");
  if (Status opened = machine::OpenNewFile(&created, true); !opened) {
    return SaidAs("cannot be put back, no new file can be made beside it", std::move(opened));
  }
  if (Status copied = CopyWhole(kept.fd, old.state.size, created.file.fd); !copied) return copied;
  return machine::PutInPlace(&created, true);
}

// What a stopped run did is flushed too. `*left`: a directory that holds something else by now.
Status TakeBackOne(const OpenFolder &folder, const Step &step, bool *left) {
  if (!step.parent) return {};
  const bool isDirectory = step.change->kind == ChangeKind::kDirectory;
  if (step.state == UndoState::kInjected) {
    if (step.change->before) {
      if (Status put = PutBack(folder, step); !put) return put;
    } else if (unlinkat(step.parent.fd, step.name.c_str(), isDirectory ? AT_REMOVEDIR : 0) != 0 && errno != ENOENT) {
      *left = isDirectory && (errno == ENOTEMPTY || errno == EEXIST);
      if (!*left) return Status::System("cannot be removed");
    }
  }
  Status flushed = machine::FlushDirectory(step.parent.fd);
  return flushed ? Status() : SaidAs("cannot be flushed to the disk", std::move(flushed));
}

// The hive, then files, then directories, each before the one that holds it.
std::vector<Step> InOrder(const UndoManifest &manifest) {
  std::vector<Step> steps;
  for (const UndoChange &change : manifest.changes) steps.emplace_back().change = &change;
  const auto rank = [](const Step &step) {
    return step.change->kind == ChangeKind::kHive ? 0 : step.change->kind == ChangeKind::kFile ? 1 : 2;
  };
  std::stable_sort(steps.begin(), steps.end(), [&](const Step &a, const Step &b) {
    if (rank(a) != rank(b)) return rank(a) < rank(b);
    return rank(a) == 2 && a.change->path > b.change->path;
  });
  return steps;
}

Status About(const Step &step, const Status &failure, const char *outcome) {
  return Status::Refused(outcome + step.change->path + " " + Words(failure), failure.error);
}

// Everything that can be known to fail fails before the first change.
Status PrepareAll(const OpenFolder &folder, const UndoManifest &manifest, std::vector<Step> *steps) {
  constexpr const char *kNothing = "was not taken back, and nothing was changed: ";
  for (Step &step : *steps) {
    if (Status prepared = Prepare(folder, manifest, &step); !prepared) return About(step, prepared, kNothing);
    if (step.change->kind != ChangeKind::kHive || step.state == UndoState::kUnchanged) continue;
    if (const std::string later = LaterInjection(folder, manifest.time, *step.change, step.state); !later.empty()) {
      return About(step,
                   Status::Refused("is another injection's too, " + later +
                                   "; take that one back first, or remove its folder if it is no injection's"),
                   kNothing);
    }
    if (step.state != UndoState::kChanged) continue;
    return About(step,
                 Status::Refused("has changed since, so Windows may have started; without the drivers that it names "
                                 "it might not start again. Remove the folder to keep what is there"),
                 kNothing);
  }
  for (const Step &step : *steps) {
    if (Status checked = CheckKept(folder, step); !checked) return About(step, checked, kNothing);
  }
  for (const Step &step : *steps) {
    if (Status cleared = ClearBeside(step); !cleared) return About(step, cleared, kNothing);
  }
  return {};
}

Status TakeBackAll(const OpenFolder &folder, const std::vector<Step> &steps) {
  std::string changed;
  for (const Step &step : steps) {
    bool left = step.state == UndoState::kChanged;
    if (Status taken = TakeBackOne(folder, step, &left); !taken) {
      return About(step, taken, "was not wholly taken back; mend this, then run again: ");
    }
    if (left) changed += (changed.empty() ? "" : ", ") + step.change->path;
  }
  if (changed.empty()) {
    Status removed = RemoveUndoFolder(folder);
    if (removed) RemoveEmptyParent(folder);
    return removed;
  }
  return Status::Refused("was taken back but for what has changed since and was left: " + changed +
                         "; remove that and run again, or remove the folder to keep it");
}

// Of a caller that holds the lock of the Windows directory.
Status TakeBackLocked(const fs::path &path) {
  OpenFolder folder;
  UndoManifest manifest;
  bool unfinished = false;
  if (Status opened = OpenUndoFolder(path, &folder); !opened) return opened;
  if (Status locked = LockUndoFolder(folder); !locked) return locked;
  if (Status read = ReadManifest(folder, &manifest, &unfinished); !read) return read;
  std::vector<Step> steps = InOrder(manifest);
  if (Status prepared = PrepareAll(folder, manifest, &steps); !prepared) return prepared;
  return TakeBackAll(folder, steps);
}

}  // namespace

Status TakeBack(const UndoFolder &undo) {
  Descriptor lock;
  if (Status locked = LockWindows(undo.folder.parent_path().parent_path(), &lock); !locked) return locked;
  return TakeBackLocked(undo.folder);
}

bool DropIfUnused(const fs::path &folder) {
  UndoFolder undo;
  if (!ReadUndoFolder(folder, &undo)) return false;
  const bool unused = std::all_of(undo.entries.begin(), undo.entries.end(),
                                  [](const UndoEntry &entry) { return entry.state == UndoState::kUnchanged; });
  return unused && TakeBackLocked(undo.folder);
}

}  // namespace rescue
