#include "package/plan/apply.h"

#include "engine/base/files.h"
#include "engine/base/status.h"
#include "engine/base/strings.h"
#include "log/log.h"
#include "package/plan/file_bytes.h"
#include "registry/edit_keys.h"
#include "registry/values.h"
#include "vxrcore/events.h"

namespace package {
namespace {

// What a failure is told by: the log's line, and to the caller what it is about.
bool FailFor(const char *what, const std::string &subject, const Caller &trace, std::string *failed) {
  trace.Error("%s:%s\n", what, subject.c_str());
  *failed = subject;
  return false;
}

bool IsDirectory(const std::string &path, bool *exists) {
  const DWORD attributes = platform::GetFileAttributesA(path.c_str());
  *exists = attributes != INVALID_FILE_ATTRIBUTES;
  return *exists && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// The nearest directory above that is there; false with a file in its place.
bool ExistingDirectory(std::string path, std::string *directory) {
  bool exists = false, isDirectory = false;
  while (!exists && !isDirectory) {
    const char *end = LastBackslash(path.c_str());
    if (end == nullptr) break;
    path.resize(static_cast<std::size_t>(end - path.c_str()));
    isDirectory = IsDirectory(path, &exists);
  }
  *directory = path;
  return isDirectory || !exists;
}

bool CheckFile(const PlannedFile &file, const Caller &trace, std::string *failed) {
  DWORD64 size = 0;
  if (!ReadableSize(file.source, &size)) {
    trace.Failed("CreateFile", file.source.c_str());
    *failed = file.source;
    return false;
  }
  if (size != file.size) return FailFor("the file is not as it was planned", file.source, trace, failed);
  bool exists = false;
  std::string directory;
  if (IsDirectory(file.target, &exists)) return FailFor("a directory is in the way", file.target, trace, failed);
  if (!ExistingDirectory(file.target, &directory)) {
    return FailFor("a file is in the way of a directory", directory, trace, failed);
  }
  return true;
}

bool CheckRoom(const std::vector<PlannedFile> &files, const Caller &trace, std::string *failed) {
  if (files.empty()) return true;
  DWORD64 needed = 0;
  for (const PlannedFile &file : files) needed += file.size;
  std::string directory;
  ExistingDirectory(files.front().target, &directory);
  ULARGE_INTEGER available = {};
  if (!platform::GetDiskFreeSpaceExA((directory + '\\').c_str(), &available, nullptr, nullptr)) {
    trace.Failed("GetDiskFreeSpaceEx", directory.c_str());
    *failed = directory;
    return false;
  }
  if (needed <= available.QuadPart) return true;
  trace.Error("the files take %I64u bytes, there is room for %I64u:%s\n", needed, DWORD64{available.QuadPart},
              directory.c_str());
  *failed = directory;
  return false;
}

bool CheckHive(const RegistryEdits &edits, const Caller &trace, std::string *failed) {
  if (!edits.unread.empty()) return FailFor("the hive could not be read", edits.unread, trace, failed);
  if (edits.list.empty()) return true;
  HKEY key = nullptr;
  const LSTATUS status = platform::RegOpenKeyA(HKEY_LOCAL_MACHINE, VXR_RESTORED_HIVE, &key);
  if (status == ERROR_SUCCESS) {
    platform::RegCloseKey(key);
    return true;
  }
  platform::SetLastError(static_cast<DWORD>(status));
  trace.Failed("RegOpenKey", VXR_RESTORED_HIVE);
  *failed = VXR_RESTORED_HIVE;
  return false;
}

// Everything that can be found out before the first byte is written. Files that are not needed and cannot be copied are
// left out of `*files`.
bool CheckPlan(const Plan &plan, std::vector<PlannedFile> *files, const Caller &trace, std::string *failed) {
  for (const PlannedFile &file : plan.files) {
    if (CheckFile(file, trace, failed)) {
      files->push_back(file);
    } else if (file.needed) {
      return false;
    }
  }
  return CheckRoom(*files, trace, failed) && CheckHive(plan.edits, trace, failed);
}

// One that cannot be made fails the files that go into it, each as it is needed.
void MakeDirectories(const std::vector<std::string> &directories, const Caller &trace) {
  for (const std::string &directory : directories) {
    bool exists = false;
    if (platform::CreateDirectoryA(directory.c_str(), nullptr)) continue;
    const DWORD error = platform::GetLastError();
    if (IsDirectory(directory, &exists)) continue;
    platform::SetLastError(error);
    trace.Failed("CreateDirectory", directory.c_str());
  }
}

// Whether the target is as large as the source was; a copy that is in place can still be cut.
bool HasSize(const PlannedFile &file) {
  WIN32_FIND_DATAA found = {};
  const HANDLE search = platform::FindFirstFileA(file.target.c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return false;
  platform::FindClose(search);
  return (DWORD64{found.nFileSizeHigh} << 32 | found.nFileSizeLow) == file.size;
}

bool CopyFiles(const std::vector<PlannedFile> &files, std::vector<std::string> *copied, const Caller &trace,
               std::string *failed) {
  for (const PlannedFile &file : files) {
    const char *source = file.source.c_str(), *target = file.target.c_str();
    if (VXREng_ReplaceFile(source, target)) copied->push_back(file.target);
    const bool done = !copied->empty() && copied->back() == file.target && HasSize(file);
    if (done) {
      VXREng_StatusMsg(VXR_STATUS_PROGRESS, "Successfully copied %s -> %s...\n", source, target);
    } else if (file.needed) {
      trace.Error("not copied:src=%s:tgt=%s\n", source, target);
      *failed = file.target;
      return false;
    } else {
      trace.Warning("not copied, and not needed:src=%s:tgt=%s\n", source, target);
    }
  }
  return true;
}

// Files are not taken back: an old one that was replaced is gone.
void TellLeftFiles(const std::vector<std::string> &copied, const Caller &trace) {
  for (const std::string &file : copied) {
    trace.Warning("stays in the restored system:%s\n", file.c_str());
    platform::ReportDecision(VXRMACHINE_FILE_LEFT, file.c_str());
  }
}

void ReportEdit(const RegistryEdit &edit) {
  const std::string key = MountedKey(edit.key);
  switch (edit.kind) {
    case RegistryEdit::Kind::kSetValue:
      platform::ReportValue(VXRMACHINE_PLAN_VALUE, key.c_str(), edit.name.c_str(), edit.data.type,
                            reinterpret_cast<const BYTE *>(edit.data.bytes.data()),
                            static_cast<DWORD>(edit.data.bytes.size()));
      return;
    case RegistryEdit::Kind::kCreateKey:
      return platform::ReportDecision(VXRMACHINE_PLAN_KEY, key.c_str());
    case RegistryEdit::Kind::kDeleteValue:
      return platform::ReportDecision(VXRMACHINE_PLAN_DELETE, key.c_str(), edit.name.c_str());
    case RegistryEdit::Kind::kDeleteKey:
      return platform::ReportDecision(VXRMACHINE_PLAN_DELETE, key.c_str());
  }
}

}  // namespace

void ReportPlan(const Plan &plan, std::size_t firstEdit) {
  const CallTrace trace = TraceCall();
  trace.Check("service=%s:%u files:%u registry changes\n", plan.service.c_str(), static_cast<DWORD>(plan.files.size()),
              static_cast<DWORD>(plan.edits.list.size() - firstEdit));
  for (const PlannedFile &file : plan.files) {
    trace.Check("%s -> %s\n", file.source.c_str(), file.target.c_str());
    platform::ReportDecision(VXRMACHINE_PLAN_FILE, file.target.c_str(), file.source.c_str(), 0, file.size);
  }
  for (std::size_t i = firstEdit; i < plan.edits.list.size(); ++i) ReportEdit(plan.edits.list[i]);
}

void ReportRemarks(const Plan &plan) {
  const CallTrace trace = TraceCall();
  if (plan.fromPackage) {
    platform::ReportDecision(VXRMACHINE_PLAN_SIGNATURES, nullptr, nullptr, plan.hasCatalog, plan.signedInside);
  }
  for (const std::string &warning : plan.warnings) {
    trace.Warning("%s\n", warning.c_str());
    platform::ReportDecision(VXRMACHINE_PLAN_WARNING, warning.c_str());
  }
  for (const std::string &note : plan.notes) {
    trace.Info("%s\n", note.c_str());
    platform::ReportDecision(VXRMACHINE_PLAN_NOTE, note.c_str());
  }
}

ApplyResult ApplyPlan(const Plan &plan, std::string *failed) {
  const CallTrace trace = TraceCall();
  std::vector<PlannedFile> files;
  if (!CheckPlan(plan, &files, trace, failed)) return ApplyResult::kNotReady;
  std::vector<std::string> copied;
  MakeDirectories(plan.directories, trace);
  if (!CopyFiles(files, &copied, trace, failed)) {
    TellLeftFiles(copied, trace);
    return ApplyResult::kFileNotCopied;
  }
  bool restored = true;
  if (ApplyEdits(plan.edits, failed, &restored)) {
    failed->clear();  // of a file that is not needed
    return ApplyResult::kDone;
  }
  if (!restored) trace.Error("the hive is not as it was, do not save it:%s\n", failed->c_str());
  TellLeftFiles(copied, trace);
  return ApplyResult::kHiveNotChanged;
}

}  // namespace package
