// What a function below namespace platform answers: that it succeeded, or what failed. A caller passes a failure on,
// puts it in words for people (Words), or makes a Windows code of it (WindowsError in errors.h).
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

namespace machine {

enum class StatusKind : std::uint8_t {
  kGood,
  kSystem,       // a call of the host failed: errno says why
  kRefused,      // the text says why
  kNotFound,     // there is no such key or value
  kDamaged,      // a hive cannot be read there
  kUnsupported,  // a hive could not be saved with it
  kInvalid,      // not what may be asked for
  kWindows,      // what Windows has a code of its own for
};

struct [[nodiscard]] Status {
  StatusKind kind = StatusKind::kGood;
  int error = 0;           // errno value; 0 when no call of the host has to do with it
  std::string text;        // what failed, for people, in the form that follows a name ("cannot be read"); may be empty
  std::uint32_t code = 0;  // of a kWindows failure

  explicit operator bool() const { return kind == StatusKind::kGood; }

  static Status System(std::string text = {}, int error = errno) {
    return {StatusKind::kSystem, error, std::move(text)};
  }
  static Status Refused(std::string text, int error = 0) { return {StatusKind::kRefused, error, std::move(text)}; }
  static Status Windows(std::uint32_t code, std::string text = {}) {
    return {StatusKind::kWindows, 0, std::move(text), code};
  }
  static Status Of(StatusKind kind) { return {kind, 0, {}}; }
};

// One line for people: the text, and for a call of the host also the system's words for the errno value.
inline std::string Words(const Status &failure) {
  if (failure.kind != StatusKind::kSystem) return failure.text;
  return failure.text + ": " + std::strerror(failure.error);
}

// The same failure, said in other words.
inline Status SaidAs(std::string text, Status failure) {
  failure.text = std::move(text);
  return failure;
}

}  // namespace machine
