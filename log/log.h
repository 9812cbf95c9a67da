// The log: one line writer for the whole library, its levels, and each shape of line that many functions write.
//
// The exported half (start, end, level, flags, window) is declared in vxrcore/vxrcore.h.
#pragma once

#include <memory>

#include "platform/platform.h"

// The level that each prefix is written at, unless a line says otherwise.
inline constexpr int32_t kError = 0;
inline constexpr int32_t kStatus = 0;
inline constexpr int32_t kWarning = 1;
inline constexpr int32_t kFixme = 1;
inline constexpr int32_t kCheck = 3;
inline constexpr int32_t kInfo = 4;
inline constexpr int32_t kFlush = 5;

// Writes one line, formatted by platform::FormatText, when `level` does not exceed the threshold and is not -1; starts
// the log on the first call. Adds nothing to the line, so a format brings its own line end. Leaves GetLastError as it
// was. A line longer than 2,047 bytes is cut: all outputs get 2,048 bytes that end in a line end and a NUL.
// Returns the count of characters (negative when the line was cut), 0 when nothing was written.
int32_t VXRDbg_Log(int32_t level, const char *format, ...);

// A function, whose lines begin with their prefix and its name: "ERROR:<name>:<text>". It is made by TraceCall; a
// function that logs neither entry nor exit makes its own: `const Caller trace{__func__};`. Helpers that log in the
// name of who called them take one.
struct Caller {
  const char *name;

  // Writes "<prefix>:<name>:" and the formatted text, which brings its line end.
  void Log(int32_t level, const char *prefix, const char *format, ...) const;
  // The same, at the level of the prefix.
  template <typename... Arguments>
  void Error(const char *format, Arguments... arguments) const {
    Log(kError, "ERROR", format, arguments...);
  }
  template <typename... Arguments>
  void Warning(const char *format, Arguments... arguments) const {
    Log(kWarning, "WARNG", format, arguments...);
  }
  template <typename... Arguments>
  void Fixme(const char *format, Arguments... arguments) const {
    Log(kFixme, "FIXME", format, arguments...);
  }
  template <typename... Arguments>
  void Check(const char *format, Arguments... arguments) const {
    Log(kCheck, "CHECK", format, arguments...);
  }
  template <typename... Arguments>
  void Info(const char *format, Arguments... arguments) const {
    Log(kInfo, "INFOR", format, arguments...);
  }
  template <typename... Arguments>
  void Flush(const char *format, Arguments... arguments) const {
    Log(kFlush, "FLUSH", format, arguments...);
  }

  // An error line of a call that failed, whose name and error code a host that watches hears beside the line.
  void ErrorOf(const char *call, DWORD code, const char *format, ...) const;
  // "ERROR:<name>:<call>():failed!ec=<code>:<code>:msg=<message>\n" with the last error, so it comes right after the
  // call that failed; `message` null gives "N/A".
  void Failed(const char *call, const char *message) const;
  // "ERROR:<name>:<argument> is NULL\n".
  void Null(const char *argument) const;
};

// Whether an argument is there; writes that line when it is not.
inline bool Given(const void *argument, const char *name, const Caller &trace = {__builtin_FUNCTION()}) {
  if (argument == nullptr) trace.Null(name);
  return argument != nullptr;
}

// What a line shows of an address or a handle in eight digits. Windows uses no more of a window handle.
inline DWORD LowHalf(const void *address) { return static_cast<DWORD>(reinterpret_cast<uintptr_t>(address)); }

struct LogLeaveDeleter {
  void operator()(const char *function) const { VXRDbg_Log(kFlush, "FLUSH:%s:___LEAVE___\n", function); }
};

// The exit line, written when it ends.
using LeaveLine = std::unique_ptr<const char, LogLeaveDeleter>;

// A function from its entry to its exit, which it logs: a function's first statement is
// `const CallTrace trace = TraceCall();`.
struct CallTrace : Caller {
  LeaveLine leave;
};
[[nodiscard]] CallTrace TraceCall(const char *caller = __builtin_FUNCTION());
