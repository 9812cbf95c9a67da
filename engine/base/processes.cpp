#include "engine/base/processes.h"

#include <cstring>

#include "log/log.h"

namespace {

// Starts the command; FALSE, with the system error code in `*exitCode`, when it cannot.
BOOL StartCommand(const char *command, PROCESS_INFORMATION *process, DWORD *exitCode, const char *caller) {
  STARTUPINFOA startup = {};
  startup.cb = sizeof(startup);
  // The call's text is not const in its declaration, but only its wide form writes to it.
  if (platform::CreateProcessA(nullptr, const_cast<char *>(command), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                               nullptr, &startup, process)) {
    return TRUE;
  }
  *exitCode = platform::GetLastError();
  LogFailure("CreateProcess", command, caller);
  return FALSE;
}

// Waits for the process, reads its exit code and closes its handles.
void FinishProcess(const PROCESS_INFORMATION &process, const char *command, DWORD *exitCode, const char *caller) {
  if (platform::WaitForSingleObject(process.hProcess, INFINITE) == WAIT_FAILED) {
    LogFailure("WaitForSingleObject", command, caller);
  } else if (!platform::GetExitCodeProcess(process.hProcess, exitCode)) {
    LogFailure("GetExitCodeProcess", command, caller);
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
  const CallTrace secondExitLine(__func__);
  *exitCode = 0xFFFFFFFF;
  if (command == nullptr) {
    VXRDbg_Log(kError, "ERROR:szCmmd is NULL!\n");
    return FALSE;
  }
  VXRDbg_Log(kFlush, "FLUSH:%s:szCmmd=%s\n", __func__, command);
  PROCESS_INFORMATION process = {};
  const BOOL started = StartCommand(command, &process, exitCode, __func__);
  if (started) FinishProcess(process, command, exitCode, __func__);
  // A failed start may leave no error code.
  const BOOL success = started && *exitCode == 0;
  VXRDbg_Log(success ? kCheck : kError,
             success ? "CHECK:%s:succss cmmd=%s:exit=0x%08x:%d!\n" : "ERROR:%s:failed cmmd=%s:exit=0x%08x:%d!\n",
             __func__, command, *exitCode, *exitCode);
  return success;
}
