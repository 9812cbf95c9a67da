// Rows of calls on the platform layer and what they give: the same text wherever the layer stands.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <string_view>

#include "platform/platform.h"

namespace contract {

inline constexpr DWORD kUnset = 0x2000BEEF;  // the last error before each call: what a call leaves alone shows

// The last error for people; "unset" when the call left it alone.
inline std::string LastError() {
  const DWORD error = platform::GetLastError();
  if (error == kUnset) return "unset";
  char text[16];
  std::snprintf(text, sizeof text, error >= 0x20000000 ? "%08X" : "%u", static_cast<unsigned>(error));
  return text;
}

inline bool Succeeded(BOOL result) { return result != FALSE; }
inline bool Succeeded(const void *result) { return result != nullptr && result != INVALID_HANDLE_VALUE; }

// "ok", or the last error of a call that failed.
template <class Call>
std::string Outcome(Call call) {
  platform::SetLastError(kUnset);
  const bool succeeded = Succeeded(call());
  return succeeded ? "ok" : LastError();
}

// The same of a call that tells its error itself.
inline std::string Status(LSTATUS status) { return status == ERROR_SUCCESS ? "ok" : std::to_string(status); }

// Bytes for people: what does not print as hexadecimal digits, the bytes of 0x7F that a test filled a buffer with as ~.
inline std::string Shown(std::string_view bytes) {
  std::string shown;
  for (const char c : bytes) {
    char hex[8];
    std::snprintf(hex, sizeof hex, "<%02X>", static_cast<unsigned>(static_cast<unsigned char>(c)));
    shown += c == 0x7F ? "~" : c >= 0x20 && c < 0x7F ? std::string(1, c) : std::string(hex);
  }
  return shown;
}

// Whether an answer is as expected. What ends in ! is what the described machine gives, where Wine is known to give
// something else, which is not looked at.
inline bool Agrees(std::string_view answer, std::string_view expected) {
  if (!expected.ends_with('!')) return answer == expected;
#ifdef _WIN32
  return true;
#else
  return answer == expected.substr(0, expected.size() - 1);
#endif
}

// The answers, separated by blanks, as they are expected where they agree.
inline std::string Agreed(const std::string &answers, const std::string &expected) {
  std::istringstream given(answers), wanted(expected);
  std::string agreed;
  for (std::string answer, want; given >> answer;) {
    wanted >> want;
    agreed += (agreed.empty() ? "" : " ") + (Agrees(answer, want) ? want : answer);
  }
  return agreed;
}

// Whether the Windows that the test runs on is Wine.
inline bool OnWine() {
#ifdef _WIN32
  const HMODULE system = GetModuleHandleA("ntdll.dll");
  return system != nullptr && GetProcAddress(system, "wine_get_version") != nullptr;
#else
  return false;
#endif
}

// A buffer of that many bytes in use, all 0x7F.
struct Buffer {
  char bytes[4096];
  DWORD size;
  explicit Buffer(DWORD used = sizeof bytes) : size(used) { std::fill(bytes, bytes + sizeof bytes, '\x7F'); }
  std::string Text() const { return std::string(bytes, strnlen(bytes, size)); }
};

// A file, shared with others.
inline HANDLE OpenHandle(const char *name, DWORD access = GENERIC_READ, DWORD disposition = OPEN_EXISTING,
                         DWORD flags = 0) {
  return platform::CreateFileA(name, access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, disposition, flags, nullptr);
}

// "ok", with the last error behind a colon where a call that succeeds sets one; else the error.
inline std::string Opened(const char *name, DWORD access, DWORD disposition, DWORD flags = 0) {
  platform::SetLastError(kUnset);
  const HANDLE file = OpenHandle(name, access, disposition, flags);
  const std::string error = LastError();
  if (file == INVALID_HANDLE_VALUE) return error;
  platform::CloseHandle(file);
  return error == "0" ? "ok" : "ok:" + error;
}

// The name that a search finds first, or its error.
inline std::string Found(const char *pattern) {
  WIN32_FIND_DATAA data = {};
  platform::SetLastError(kUnset);
  const HANDLE search = platform::FindFirstFileA(pattern, &data);
  if (search == INVALID_HANDLE_VALUE) return LastError();
  platform::FindClose(search);
  return data.cFileName;
}

// A call, and what it gives.
struct Row {
  const char *what;
  std::string (*call)();
  const char *gives;
};

template <std::size_t kCount>
void Check(const Row (&rows)[kCount]) {
  for (const Row &row : rows) EXPECT_PRED2(Agrees, row.call(), row.gives) << row.what;
}

}  // namespace contract
