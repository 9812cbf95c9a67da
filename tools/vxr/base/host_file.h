// Files of the host. Their names are UTF-8 in the commands, which std::filesystem takes for another encoding on
// Windows.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "platform/text/utf.h"

inline std::filesystem::path HostFile(const std::string &name) {
  return std::filesystem::path(std::u8string(name.begin(), name.end()));
}

inline std::string HostName(const std::filesystem::path &file) {
  const std::u8string name = file.u8string();
  return std::string(name.begin(), name.end());
}

// Whether a machine's text can hold the name.
inline bool IsUtf8(std::string_view name) {
  while (!name.empty()) {
    if (machine::TakeUtf8(&name) == machine::kUndefined) return false;
  }
  return true;
}

struct FileCloser {
  void operator()(std::FILE *file) const { std::fclose(file); }
};
using OpenedFile = std::unique_ptr<std::FILE, FileCloser>;

// Opens a regular file for reading and tells its size in bytes. Never waits, as the open of a FIFO would. Null for
// anything else, with the reason in the form that follows a file's name: "is missing", "is a directory", "cannot be
// read: ...".
OpenedFile OpenRegularFile(const std::string &name, std::uint64_t *size, std::string *reason);
