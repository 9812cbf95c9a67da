// Names of files: UTF-8 in the commands, which std::filesystem takes for another encoding on Windows.
#pragma once

#include <filesystem>
#include <string>

inline std::filesystem::path HostFile(const std::string &name) {
  return std::filesystem::path(std::u8string(name.begin(), name.end()));
}

inline std::string HostName(const std::filesystem::path &file) {
  const std::u8string name = file.u8string();
  return std::string(name.begin(), name.end());
}
