#include "engine/base/files.h"

#include <cstdio>
#include <cstring>

#include "engine/base/processes.h"
#include "engine/base/strings.h"
#include "log/log.h"
#include "log/record_dump.h"
#include "vxrcore/vxrcore.h"

namespace {

constexpr char kMappingName[] = "VAVXRFMap";
constexpr char kCopyCommand[] = "cmd.exe /c copy /y ";
constexpr DWORD kProtectingAttributes = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;

unsigned liveMappings = 0;  // numbers the mapping objects' names

// Takes the record's view and handles back, as far as they were made.
void CloseFileMap(VXR_FILEMAP *fileMap) {
  if (fileMap->Start != nullptr) platform::UnmapViewOfFile(fileMap->Start);
  if (fileMap->hMap != nullptr) platform::CloseHandle(fileMap->hMap);
  if (fileMap->hFile != nullptr) platform::CloseHandle(fileMap->hFile);
}

// Opens the file named in the record and maps a view of all of it. FALSE, after logging, at the first step that fails.
BOOL OpenFileMap(VXR_FILEMAP *fileMap, const char *caller) {
  fileMap->hFile =
      OpenLogged(fileMap->File, GENERIC_ALL, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING, caller).release();
  if (fileMap->hFile == nullptr) return FALSE;
  fileMap->Size = platform::GetFileSize(fileMap->hFile, nullptr);
  if (fileMap->Size == INVALID_FILE_SIZE) {
    LogFailure("GetFileSize", fileMap->File, caller);
    return FALSE;
  }
  std::snprintf(fileMap->Name, sizeof(fileMap->Name), "%s-%02u", kMappingName, liveMappings);
  fileMap->hMap = platform::CreateFileMappingA(fileMap->hFile, nullptr, PAGE_READWRITE, 0, 0, fileMap->Name);
  if (fileMap->hMap == nullptr) {
    LogFailure("CreateFileMapping", fileMap->File, caller);
    return FALSE;
  }
  fileMap->Start = platform::MapViewOfFile(fileMap->hMap, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0);
  if (fileMap->Start == nullptr) {
    LogFailure("MapViewOfFile", fileMap->File, caller);
    return FALSE;
  }
  fileMap->Mapped = TRUE;
  return TRUE;
}

// What a name holds that the command interpreter does not take as it is, in quotes either; null when nothing.
const char *FindUnquotable(const char *path) {
  for (; *path != '\0'; ++path) {
    if (*path == '"') return "a quotation mark";
    if (*path == '%') return "a percent sign";
    if (*path == '*' || *path == '?') return "a wildcard";
    // It would take what follows, the closing quotation mark too, for its other half. No such half is below '@'.
    const bool isLead = platform::IsDBCSLeadByte(static_cast<BYTE>(*path));
    if (isLead && static_cast<BYTE>(*++path) < '@') return "half a character";
  }
  return nullptr;
}

BOOL CopyByCommand(const char *source, const char *target, const char *caller) {
  // Such a name from an INF file could name another file, or end its quotes and start a command of its own.
  const char *unquotable = FindUnquotable(source);
  if (unquotable == nullptr) unquotable = FindUnquotable(target);
  if (unquotable != nullptr) {
    VXRDbg_Log(kError, "ERROR:%s:a file name holds %s, not copied:src=%s:tgt=%s\n", caller, unquotable, source, target);
    return FALSE;
  }
  // The 19 bytes hold the blank between the paths, their quotation marks and the terminator.
  const SIZE_T size = std::strlen(source) + std::strlen(target) + std::strlen(kCopyCommand) + 19;
  const HeapText command = AllocText(size, "szCmmd", caller);
  if (command == nullptr) return FALSE;
  std::snprintf(command.get(), size, "%s%s%s%s %s%s%s", kCopyCommand, QuoteFor(source), source, QuoteFor(source),
                QuoteFor(target), target, QuoteFor(target));
  DWORD exitCode = 0;
  if (VXREng_ExecCommand(command.get(), &exitCode)) return TRUE;
  LogFailure("VXREng_ExecCommand", command.get(), caller);
  return FALSE;
}

void ClearProtectingAttributes(const char *target, const char *caller) {
  VXRDbg_Log(kFlush, "FLUSH:%s:checking attr for %s\n", caller, target);
  const DWORD attributes = platform::GetFileAttributesA(target);
  if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & kProtectingAttributes) == 0) return;
  if (platform::SetFileAttributesA(target, FILE_ATTRIBUTE_NORMAL)) {
    VXRDbg_Log(kFlush, "FLUSH:%s:%s:attr=0x%08X:set to FILE_ATTRIBUTE_NORMAL.\n", caller, target, attributes);
  } else {
    LogFailure("SetFileAttributes", "Failed to set to FILE_ATTRIBUTE_NORMAL:copy may fail", caller);
  }
}

void CopyOver(const char *source, const char *target, const char *caller) {
  ClearProtectingAttributes(target, caller);
  BOOL copied = platform::CopyFileA(source, target, FALSE);
  if (!copied) {
    LogFailure("CopyFile", "Failed, try cmmd line", caller);
    copied = CopyByCommand(source, target, caller);
  }
  if (copied) VXRDbg_Log(kCheck, "CHECK:%s:copied ok:src=%s:tgt=%s\n", caller, source, target);
}

}  // namespace

OpenedFile OpenLogged(const char *name, DWORD access, DWORD share, DWORD disposition, const char *caller) {
  const HANDLE file = platform::CreateFileA(name, access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file != INVALID_HANDLE_VALUE) return OpenedFile(file);
  LogFailure("CreateFile", name, caller);
  return nullptr;
}

// Asked for every file that may be there: no entry and exit lines.
extern "C" int32_t VXREng_FileExists(const char *path) {
  if (path == nullptr) return FALSE;
  WIN32_FIND_DATAA found = {};
  const HANDLE search = platform::FindFirstFileA(path, &found);
  if (search == INVALID_HANDLE_VALUE) {
    LogFailure("FindFirstFile", path);
    return FALSE;
  }
  platform::FindClose(search);
  return TRUE;
}

HeapPtr<VXR_FILEMAP> VXREng_MapFile(const char *fileName) {
  const CallTrace trace = TraceCall();
  if (fileName == nullptr) {
    LogNull("szFileName");
    return nullptr;
  }
  VXRDbg_Log(kCheck, "CHECK:%s:setting up file map for %s\n", __func__, fileName);
  HeapPtr<VXR_FILEMAP> fileMap = AllocRecord<VXR_FILEMAP>("pFileMap");
  if (fileMap == nullptr) return nullptr;
  const SIZE_T length = std::strlen(fileName);
  if (length >= sizeof(fileMap->File)) {
    platform::SetLastError(ERROR_INVALID_NAME);
    VXRDbg_Log(kError, "ERROR:%s:path has %u characters, at most %u can be mapped, move the file:%s\n", __func__,
               static_cast<DWORD>(length), static_cast<DWORD>(sizeof(fileMap->File) - 1), fileName);
    return nullptr;
  }
  std::memcpy(fileMap->File, fileName, length + 1);
  if (!OpenFileMap(fileMap.get(), __func__)) {
    CloseFileMap(fileMap.get());
    return nullptr;
  }
  ++liveMappings;
  VXRDbg_DumpFileMap(fileMap.get(), __func__);
  return fileMap;
}

BOOL VXREng_UnmapFile(VXR_FILEMAP *fileMap) {
  const CallTrace trace = TraceCall();
  if (fileMap == nullptr) {
    LogNull("pFileMap");
    return FALSE;
  }
  VXRDbg_Log(kCheck, "CHECK:%s:released mapped file %s", __func__, fileMap->File);
  CloseFileMap(fileMap);
  // A record that is unmapped a second time must not count twice.
  if (fileMap->Mapped) --liveMappings;
  *fileMap = {};
  return TRUE;
}

BOOL VXREng_CopyFile(const char *source, const char *target, [[maybe_unused]] BOOL flag) {
  const CallTrace trace = TraceCall();
  if (source == nullptr) LogNull("szSource");
  if (target == nullptr) LogNull("szTarget");
  if (source != nullptr && target != nullptr) CopyOver(source, target, __func__);
  // A driver that was already in place serves, even when it could not be replaced.
  return VXREng_FileExists(target);
}

BOOL VXREng_FileExistsInDir(const char *directory, const char *name) {
  const CallTrace trace = TraceCall();
  if (directory == nullptr || *directory == '\0' || name == nullptr || *name == '\0') return FALSE;
  char path[MAX_PATH];
  const int length = std::snprintf(path, sizeof(path), "%s\\%s", directory, name);
  if (length < 0 || static_cast<SIZE_T>(length) >= sizeof(path)) {
    VXRDbg_Log(kError, "ERROR:%s:path of %d characters is too long, shorten the directory:%s\\%s\n", __func__, length,
               directory, name);
    return FALSE;
  }
  return VXREng_FileExists(path);
}
