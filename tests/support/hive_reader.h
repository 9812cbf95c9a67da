// Reading a hive file back through the library's own reader in another process, which knows nothing of ours.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

// The lines of a registry export of the key (such as \ControlSet001\Services) and all below it, data as bytes. Empty
// when the tool is not there: the test is to be skipped.
std::vector<std::string> ExportHive(const std::filesystem::path &file, const std::string &key = "\\");

// The same in the process, quickly, through another library: every key as "[path" below the root, every value as a
// line.
std::vector<std::string> HiveLines(const std::filesystem::path &file);
// That line: type, size as stored, data as the machine's reports show them.
std::string HiveValueLine(const std::string &key, const std::string &name, uint32_t type, uint64_t size,
                          const std::string &text);

// Lines that one of two exports lacks, each with + (only in `after`) or - in front.
std::vector<std::string> ExportDifference(std::vector<std::string> before, std::vector<std::string> after);
