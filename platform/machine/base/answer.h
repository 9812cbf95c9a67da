// How calls fail, and how those of the set-up library hand out bytes of a size that the caller first asks for.
#pragma once

#include <cstring>
#include <string>
#include <string_view>

#include "platform/machine/base/errors.h"
#include "platform/platform.h"

namespace machine {

// Sets the last error and returns what the call returns when it fails. For the platform's calls alone: what is below
// them returns a Status.
template <typename Result = BOOL>
Result FailWith(DWORD error, Result result = FALSE) {
  platform::SetLastError(error);
  return result;
}

template <typename Result = BOOL>
Result FailWith(const Status &failure, Result result = FALSE) {
  return FailWith(WindowsError(failure), result);
}

template <typename Failure>
HANDLE FailOpen(const Failure &failure) {
  return FailWith(failure, INVALID_HANDLE_VALUE);
}

// The end of a call: TRUE, or FALSE with the last error set.
inline BOOL Finish(const Status &status) { return status ? TRUE : FailWith(status); }

enum class SizeAlone { kSucceeds, kFails };  // what a query with a null buffer and size 0 is

// Stores the size needed in `*required`, when given, and the bytes in the buffer when they fit. FALSE with
// ERROR_INSUFFICIENT_BUFFER when they do not, with ERROR_INVALID_PARAMETER for a null buffer of some size.
inline BOOL Answer(std::string_view bytes, SizeAlone sizeAlone, void *buffer, DWORD size, DWORD *required) {
  if (bytes.size() > 0x7FFFFFFF) return FailWith(ERROR_INVALID_DATA);
  if (required != nullptr) *required = static_cast<DWORD>(bytes.size());
  if (buffer == nullptr && size != 0) return FailWith(ERROR_INVALID_PARAMETER);
  if (buffer == nullptr && sizeAlone == SizeAlone::kSucceeds) return TRUE;
  if (buffer == nullptr || size < bytes.size()) return FailWith(ERROR_INSUFFICIENT_BUFFER);
  std::memcpy(buffer, bytes.data(), bytes.size());
  return TRUE;
}

// The text with its terminator; std::string keeps one behind its end.
inline std::string_view WithTerminator(const std::string &text) { return {text.c_str(), text.size() + 1}; }

}  // namespace machine
