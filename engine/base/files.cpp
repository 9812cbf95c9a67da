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
BOOL OpenFileMap(VXR_FILEMAP *fileMap, const Caller &trace) {
  fileMap->hFile =
      OpenLogged(fileMap->File, GENERIC_ALL, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING, trace).release();
  if (fileMap->hFile == nullptr) return FALSE;
  fileMap->Size = platform::GetFileSize(fileMap->hFile, nullptr);
  if (fileMap->Size == INVALID_FILE_SIZE) {
    trace.Failed("GetFileSize", fileMap->File);
    return FALSE;
  }
  std::snprintf(fileMap->Name, sizeof(fileMap->Name), "%s-%02u", kMappingName, liveMappings);
  fileMap->hMap = platform::CreateFileMappingA(fileMap->hFile, nullptr, PAGE_READWRITE, 0, 0, fileMap->Name);
  if (fileMap->hMap == nullptr) {
    trace.Failed("CreateFileMapping", fileMap->File);
    return FALSE;
  }
  fileMap->Start = platform::MapViewOfFile(fileMap->hMap, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0);
  if (fileMap->Start == nullptr) {
    trace.Failed("MapViewOfFile", fileMap->File);
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

BOOL CopyByCommand(const char *source, const char *target, const Caller &trace) {
  // Such a name from an INF file could name another file, or end its quotes and start a command of its own.
  const char *unquotable = FindUnquotable(source);
  if (unquotable == nullptr) unquotable = FindUnquotable(target);
  if (unquotable != nullptr) {
    trace.Error("a file name holds %s, not copied:src=%s:tgt=%s\n", unquotable, source, target);
    return FALSE;
  }
  // The 19 bytes hold the blank between the paths, their quotation marks and the terminator.
  const SIZE_T size = std::strlen(source) + std::strlen(target) + std::strlen(kCopyCommand) + 19;
  const HeapText command = AllocText(size, "szCmmd", trace);
  if (command == nullptr) return FALSE;
  std::snprintf(command.get(), size, "%s%s%s%s %s%s%s", kCopyCommand, QuoteFor(source), source, QuoteFor(source),
                QuoteFor(target), target, QuoteFor(target));
  DWORD exitCode = 0;
  if (VXREng_ExecCommand(command.get(), &exitCode)) return TRUE;
  trace.Failed("VXREng_ExecCommand", command.get());
  return FALSE;
}

void ClearProtectingAttributes(const char *target, const Caller &trace) {
  trace.Flush("checking attr for %s\n", target);
  const DWORD attributes = platform::GetFileAttributesA(target);
  if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & kProtectingAttributes) == 0) return;
  if (platform::SetFileAttributesA(target, FILE_ATTRIBUTE_NORMAL)) {
    trace.Flush("%s:attr=0x%08X:set to FILE_ATTRIBUTE_NORMAL.\n", target, attributes);
  } else {
    trace.Failed("SetFileAttributes", "Failed to set to FILE_ATTRIBUTE_NORMAL:copy may fail");
  }
}

BOOL CopyOver(const char *source, const char *target, const Caller &trace) {
  ClearProtectingAttributes(target, trace);
  BOOL copied = platform::CopyFileA(source, target, FALSE);
  if (!copied) {
    trace.Failed("CopyFile", "Failed, try cmmd line");
    copied = CopyByCommand(source, target, trace);
  }
  if (copied) trace.Check("copied ok:src=%s:tgt=%s\n", source, target);
  return copied;
}

}  // namespace

OpenedFile OpenLogged(const char *name, DWORD access, DWORD share, DWORD disposition, const Caller &trace) {
  const HANDLE file = platform::CreateFileA(name, access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file != INVALID_HANDLE_VALUE) return OpenedFile(file);
  trace.Failed("CreateFile", name);
  return nullptr;
}

// Asked for every file that may be there: no entry and exit lines.
extern "C" int32_t VXREng_FileExists(const char *path) {
  if (path == nullptr) return FALSE;
  const Caller trace{__func__};
  WIN32_FIND_DATAA found = {};
  const HANDLE search = platform::FindFirstFileA(path, &found);
  if (search == INVALID_HANDLE_VALUE) {
    trace.Failed("FindFirstFile", path);
    return FALSE;
  }
  platform::FindClose(search);
  return TRUE;
}

HeapPtr<VXR_FILEMAP> VXREng_MapFile(const char *fileName) {
  const CallTrace trace = TraceCall();
  if (fileName == nullptr) {
    trace.Null("szFileName");
    return nullptr;
  }
  trace.Check("setting up file map for %s\n", fileName);
  HeapPtr<VXR_FILEMAP> fileMap = AllocRecord<VXR_FILEMAP>("pFileMap");
  if (fileMap == nullptr) return nullptr;
  const SIZE_T length = std::strlen(fileName);
  if (length >= sizeof(fileMap->File)) {
    platform::SetLastError(ERROR_INVALID_NAME);
    trace.Error("path has %u characters, at most %u can be mapped, move the file:%s\n", static_cast<DWORD>(length),
                static_cast<DWORD>(sizeof(fileMap->File) - 1), fileName);
    return nullptr;
  }
  std::memcpy(fileMap->File, fileName, length + 1);
  if (!OpenFileMap(fileMap.get(), trace)) {
    CloseFileMap(fileMap.get());
    return nullptr;
  }
  ++liveMappings;
  VXRDbg_DumpFileMap(fileMap.get(), trace.name);
  return fileMap;
}

BOOL VXREng_UnmapFile(VXR_FILEMAP *fileMap) {
  const CallTrace trace = TraceCall();
  if (fileMap == nullptr) {
    trace.Null("pFileMap");
    return FALSE;
  }
  trace.Check("released mapped file %s", fileMap->File);
  CloseFileMap(fileMap);
  // A record that is unmapped a second time must not count twice.
  if (fileMap->Mapped) --liveMappings;
  *fileMap = {};
  return TRUE;
}

BOOL VXREng_CopyFile(const char *source, const char *target, [[maybe_unused]] BOOL flag) {
  const CallTrace trace = TraceCall();
  if (source == nullptr) trace.Null("szSource");
  if (target == nullptr) trace.Null("szTarget");
  if (source != nullptr && target != nullptr) CopyOver(source, target, trace);
  // A driver that was already in place serves, even when it could not be replaced.
  return VXREng_FileExists(target);
}

BOOL VXREng_ReplaceFile(const char *source, const char *target) {
  const CallTrace trace = TraceCall();
  return Given(source, "szSource", trace) && Given(target, "szTarget", trace) && CopyOver(source, target, trace);
}

BOOL VXREng_FileExistsInDir(const char *directory, const char *name) {
  const CallTrace trace = TraceCall();
  if (directory == nullptr || *directory == '\0' || name == nullptr || *name == '\0') return FALSE;
  char path[MAX_PATH];
  const int length = std::snprintf(path, sizeof(path), "%s\\%s", directory, name);
  if (length < 0 || static_cast<SIZE_T>(length) >= sizeof(path)) {
    trace.Error("path of %d characters is too long, shorten the directory:%s\\%s\n", length, directory, name);
    return FALSE;
  }
  return VXREng_FileExists(path);
}
