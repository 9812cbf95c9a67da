#include "engine/base/processes.h"

#include <cstring>

#include "log/log.h"

namespace {

// Starts the command; FALSE, with the system error code in `*exitCode`, when it cannot.
BOOL StartCommand(const char *command, PROCESS_INFORMATION *process, DWORD *exitCode, const Caller &trace) {
  STARTUPINFOA startup = {};
  startup.cb = sizeof(startup);
  // The call's text is not const in its declaration, but only its wide form writes to it.
  if (platform::CreateProcessA(nullptr, const_cast<char *>(command), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                               nullptr, &startup, process)) {
    return TRUE;
  }
  *exitCode = platform::GetLastError();
  trace.Failed("CreateProcess", command);
  return FALSE;
}

// Waits for the process, reads its exit code and closes its handles.
void FinishProcess(const PROCESS_INFORMATION &process, const char *command, DWORD *exitCode, const Caller &trace) {
  if (platform::WaitForSingleObject(process.hProcess, INFINITE) == WAIT_FAILED) {
    trace.Failed("WaitForSingleObject", command);
  } else if (!platform::GetExitCodeProcess(process.hProcess, exitCode)) {
    trace.Failed("GetExitCodeProcess", command);
  }
  platform::CloseHandle(process.hThread);
  platform::CloseHandle(process.hProcess);
}

}  // namespace

const char *QuoteFor(const char *path) {
  // Every two-byte character begins outside this list, so its second byte is not taken for one of it.
  static constexpr char kPlain[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789\\:._-~$";
  return path[std::strspn(path, kPlain)] != '\0' ? "\"" : "";
}

BOOL VXREng_ExecCommand(const char *command, DWORD *exitCode) {
  const CallTrace trace = TraceCall();
  const LeaveLine secondExitLine(trace.name);
  *exitCode = 0xFFFFFFFF;
  if (command == nullptr) {
    VXRDbg_Log(kError, "ERROR:szCmmd is NULL!\n");
    return FALSE;
  }
  trace.Flush("szCmmd=%s\n", command);
  PROCESS_INFORMATION process = {};
  const BOOL started = StartCommand(command, &process, exitCode, trace);
  if (started) FinishProcess(process, command, exitCode, trace);
  // A failed start may leave no error code.
  const BOOL success = started && *exitCode == 0;
  if (success) {
    trace.Check("succss cmmd=%s:exit=0x%08x:%d!\n", command, *exitCode, *exitCode);
  } else {
    trace.Error("failed cmmd=%s:exit=0x%08x:%d!\n", command, *exitCode, *exitCode);
  }
  return success;
}
