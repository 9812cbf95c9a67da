#include "log/log.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "log/characters.h"
#include "log/heap.h"
#include "log/product.h"
#include "platform/scope_guard.h"
#include "vxrcore/events.h"
#include "vxrcore/vxrcore.h"

namespace {

constexpr int32_t kLineSize = 2048;
constexpr SIZE_T kProgramNameSize = 16;
constexpr int32_t kHighestLevel = 5;
constexpr int32_t kNothing = -1;  // as a threshold and as a line's level: nothing is written

constexpr char kErrorPrefix[] = "ERROR";
constexpr char kMasterIni[] = "\\master.ini";
constexpr char kLogDirectory[] = "\\logs.dir";
constexpr SIZE_T kPathSpare = 65;  // room for the date, the endings and the terminator in a log file's path

constexpr DWORD kToFile = 0x1;
constexpr DWORD kToDebugger = 0x2;
constexpr DWORD kToStandardError = 0x4;
constexpr DWORD kToStandardOutput = 0x8;
constexpr DWORD kFirstFlags = kToFile | kToDebugger;

bool initialised = false;
int32_t threshold = kNothing;
DWORD outputs = 0;
char line[kLineSize];
char programName[kProgramNameSize];
HeapText logPath;
std::FILE *logFile = nullptr;
HWND logWindow = nullptr;

// Whatever the log does on behalf of its caller, the caller's last error stays.
struct ErrorSaver {
  DWORD code = platform::GetLastError();
  void operator()() const { platform::SetLastError(code); }
};

// Formats into the line buffer behind "<prefix>:<name>:" when there is a prefix; zero-filled behind the text. Returns
// the count of all, negative when the line is cut.
int32_t FormatLine(const char *prefix, const char *name, const char *format, va_list arguments) {
  std::memset(line, 0, kLineSize);
  const int32_t begin = prefix == nullptr ? 0 : std::snprintf(line, kLineSize, "%s:%s:", prefix, name);
  const int32_t count = platform::FormatText(line + begin, kLineSize - begin, format, arguments);
  if (count >= 0) return begin + count;
  // Readers of the log split it at line ends and take it for text: a cut line keeps one, behind a whole character, and
  // every output gets a terminated text.
  const SIZE_T whole = WholeCharacters(line, kLineSize - 2);
  line[whole] = '\n';
  std::memset(line + whole + 1, 0, kLineSize - whole - 1);
  return count;
}

// Tells the debugger of the log's own affairs, whatever level and outputs are.
void Trace(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  FormatLine(nullptr, nullptr, format, arguments);
  va_end(arguments);
  platform::OutputDebugStringA(line);
}

const char *PathOrNone() { return logPath != nullptr ? logPath.get() : "N/A"; }

void CloseLogFile() {
  if (logFile != nullptr) std::fclose(logFile);
  logFile = nullptr;
}

void WriteToStream(std::FILE *stream, int32_t length) {
  if (stream != nullptr && length > 0) std::fwrite(line, 1, static_cast<SIZE_T>(length), stream);
}

// Sends the line buffer to the outputs; a cut line goes out as the whole buffer.
void SendLine(int32_t count) {
  const int32_t length = count < 1 ? kLineSize : count;
  if (outputs & kToDebugger) platform::OutputDebugStringA(line);
  if (outputs & kToStandardError) WriteToStream(stderr, length);
  if (outputs & kToStandardOutput) WriteToStream(stdout, length);
  if (outputs & kToFile) WriteToStream(logFile, length);
  if (logWindow != nullptr) platform::SetWindowTextA(logWindow, line);
}

// The host's program name: the last component of argv[0], cut at ".exe", and to whole characters of at most 15 bytes.
void SetProgramName() {
  const char *name = platform::GetProgramName();
  if (name == nullptr) name = "vxrcore";
  // A host outside Windows is started by a path with slashes; one left in the name would name a directory that is not
  // there, and no log file would open.
  for (const char *at = name; *at != '\0'; at += CharacterLength(at)) {
    if (*at == '\\' || *at == '/') name = at + 1;
  }
  SIZE_T length = WholeCharacters(name, kProgramNameSize - 1);
  const char *ending = std::strstr(name, ".exe");  // by bytes: a full stop is never a trail byte
  if (ending != nullptr) length = std::min(length, static_cast<SIZE_T>(ending - name));
  std::memset(programName, 0, sizeof programName);
  std::memcpy(programName, name, length);
  // No file's name may hold these; a character that the code page lacks comes as one of them.
  for (char *at = programName; *at != '\0'; at += CharacterLength(at)) {
    if (std::strchr("?*:\"<>|", *at) != nullptr) *at = '_';
  }
}

// The product's directory without a trailing backslash; null when the registry does not tell.
HeapText ReadProductDirectory() {
  HKEY key = nullptr;
  if (platform::RegOpenKeyA(HKEY_LOCAL_MACHINE, kProductKey, &key) != ERROR_SUCCESS || key == nullptr) return nullptr;
  const ScopeGuard closeKey([key] { platform::RegCloseKey(key); });

  DWORD size = 0;
  if (platform::RegQueryValueExA(key, kProductDirectoryValue, nullptr, nullptr, nullptr, &size) != ERROR_SUCCESS) {
    return nullptr;
  }
  // Unlogged: a failure line would need the log that is only just starting.
  HeapText directory = AllocTextUnlogged(SIZE_T{size} + 2);  // the stored text may lack its terminator
  if (directory == nullptr ||
      platform::RegQueryValueExA(key, kProductDirectoryValue, nullptr, nullptr,
                                 reinterpret_cast<BYTE *>(directory.get()), &size) != ERROR_SUCCESS) {
    return nullptr;
  }
  RemoveTrailingBackslash(directory.get());
  return directory;
}

void SetThreshold(int32_t level, const char *source) {
  threshold = level > kHighestLevel ? kHighestLevel : level < 0 ? 0 : level;
  Trace("%s:VXRDbg_Initialize:set dbglvl = %d for %s from %s...\n", programName, threshold, programName, source);
}

void GoOnWithoutFile() {
  outputs &= ~kToFile;
  logPath.reset();
}

// Takes the level from master.ini and opens the day's log file, both below the product's directory.
void OpenLogFile(const char *directory, int32_t level) {
  const SIZE_T size = std::strlen(directory) + std::strlen(kLogDirectory) + 2 + std::strlen(programName) + kPathSpare;
  logPath = AllocTextUnlogged(size);
  if (logPath == nullptr) {
    SetThreshold(level, "N/A");
    GoOnWithoutFile();
    return;
  }
  std::snprintf(logPath.get(), size, "%s%s", directory, kMasterIni);
  SetThreshold(static_cast<int32_t>(platform::GetPrivateProfileIntA("debugging", "vxrcore", level, logPath.get())),
               logPath.get());

  SYSTEMTIME now{};
  platform::GetSystemTime(&now);
  std::snprintf(logPath.get(), size, "%s%s\\%s-vxr-%02u%02u%04u.log", directory, kLogDirectory, programName, now.wDay,
                now.wMonth, now.wYear);
  Trace("%s:VXRDbg_Initialize:creating log file %s...\n", programName, logPath.get());
  logFile = platform::OpenStream(logPath.get(), "w+");
  if (logFile == nullptr) {
    Trace("%s:VXRDbg_Initialize:CreateFile(%s) failed!ec=%d\n", programName, logPath.get(), platform::GetLastError());
    platform::ReportDecision(VXRMACHINE_LOG_NOT_OPENED, logPath.get(), nullptr, platform::GetLastError());
    GoOnWithoutFile();
    return;
  }
  Trace("%s:VXRDbg_Initialize:start logging to %p:%s...\n", programName, logFile, logPath.get());
  platform::ReportDecision(VXRMACHINE_LOG_OPENED, logPath.get());
}

void WriteBanner(const char *format) {
  SYSTEMTIME now{};
  platform::GetSystemTime(&now);
  VXRDbg_Log(0, format, now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, threshold, outputs,
             PathOrNone());
}

void Start(int32_t level, HWND window) {
  const ScopeGuard restoreError{ErrorSaver()};
  logWindow = window;
  outputs = kFirstFlags;
  SetProgramName();
  Trace("%s:VXRDbg_Initialize:started...\n", programName);
  const HeapText directory = ReadProductDirectory();
  if (directory != nullptr) {
    OpenLogFile(directory.get(), level);
  } else {
    Trace("%s:VXRDbg_Initialize:no product directory in HKLM\\%s:%s, logging without a file...\n", programName,
          kProductKey, kProductDirectoryValue);
    SetThreshold(level, "N/A");
    GoOnWithoutFile();
  }
  initialised = true;
  Trace("%s:VXRDbg_Initialize():Done.\n", programName);
  WriteBanner("*** Varnelt VXRCORE LOG STARTS:%02d/%02d/%02d@%02d:%02d:%02d:[L=%02u:F=%08x:%s]\n");
}

// Starts the log with the first line. Most lines are not wanted, and end here before anything is done for them.
bool IsWanted(int32_t level) {
  if (!initialised) Start(kCheck, nullptr);
  return level <= threshold && threshold != kNothing && level != kNothing;
}

// One line to all outputs. Returns the formatter's count.
int32_t WriteLine(const char *prefix, const char *name, const char *format, va_list arguments) {
  const int32_t count = FormatLine(prefix, name, format, arguments);
  SendLine(count);
  return count;
}

// An error's line, which a host that watches hears too; `call` is the one that failed, null for another error.
void WriteError(const char *name, const char *call, DWORD code, const char *format, va_list arguments) {
  WriteLine(kErrorPrefix, name, format, arguments);
  platform::ReportError(name, line + std::strlen(kErrorPrefix) + std::strlen(name) + 2, call, code);
}

}  // namespace

int32_t VXRDbg_Log(int32_t level, const char *format, ...) {
  if (!IsWanted(level)) return 0;
  const ScopeGuard restoreError{ErrorSaver()};
  va_list arguments;
  va_start(arguments, format);
  const int32_t count = WriteLine(nullptr, nullptr, format, arguments);
  va_end(arguments);
  return count;
}

void Caller::Log(int32_t level, const char *prefix, const char *format, ...) const {
  if (!IsWanted(level)) return;
  const ScopeGuard restoreError{ErrorSaver()};
  va_list arguments;
  va_start(arguments, format);
  if (std::strcmp(prefix, kErrorPrefix) == 0) {
    WriteError(name, nullptr, 0, format, arguments);
  } else {
    WriteLine(prefix, name, format, arguments);
  }
  va_end(arguments);
}

void Caller::ErrorOf(const char *call, DWORD code, const char *format, ...) const {
  if (!IsWanted(kError)) return;
  const ScopeGuard restoreError{ErrorSaver()};
  va_list arguments;
  va_start(arguments, format);
  WriteError(name, call, code, format, arguments);
  va_end(arguments);
}

void Caller::Failed(const char *call, const char *message) const {
  const DWORD code = platform::GetLastError();
  ErrorOf(call, code, "%s():failed!ec=%u:0x%08x:msg=%s\n", call, code, code, message != nullptr ? message : "N/A");
}

void Caller::Null(const char *argument) const { Error("%s is NULL\n", argument); }

CallTrace TraceCall(const char *caller) {
  const Caller self{caller};
  self.Flush("___ENTER___\n");
  return {self, LeaveLine(caller)};
}

int32_t VXRDbg_Initialize(int32_t level, int32_t, void *window) {
  if (!initialised) Start(level, static_cast<HWND>(window));
  return TRUE;
}

int32_t VXRDbg_Cleanup() {
  // The end banner is a line like any other: written into a log that does not run it would start one, and empty the
  // day's file of all that the run before had left there.
  if (!initialised) return TRUE;
  const ScopeGuard restoreError{ErrorSaver()};
  WriteBanner("*** Varnelt VXRCORE LOG ENDS:%02d/%02d/%02d@%02d:%02d:%02d:[L=%02u:F=%08x:%s]\n");
  CloseLogFile();
  Trace("%s:VXRDbg_Cleanup:log file %s closed...\n", programName, PathOrNone());
  logPath.reset();
  threshold = kNothing;
  initialised = false;
  Trace("%s:VXRDbg_Cleanup():Done.\n", programName);
  std::memset(programName, 0, sizeof programName);
  return TRUE;
}

void VXRDbg_SetLevel(uint32_t level) {
  threshold = static_cast<int32_t>(level);
  VXRDbg_Log(0, "%s:VXRDbg_SetLevel:setting level = 0x%08x\n", programName, level);
}

void VXRDbg_SetFlags(uint32_t flags) {
  outputs = flags;
  VXRDbg_Log(0, "%s:VXRDbg_SetFlags:setting flags = 0x%08x\n", programName, flags);
}

void VXRDbg_SetWnd(void *window) {
  logWindow = static_cast<HWND>(window);
  VXRDbg_Log(0, "%s:VXRDbg_SetWnd:setting hwnd = 0x%08x\n", programName, LowHalf(window));
}
