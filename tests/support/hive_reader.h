// Reading a hive file back through the library's own reader in another process, which knows nothing of ours.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

// The lines of a registry export of the key (such as \ControlSet001\Services) and all below it, data as bytes. Empty
// when the tool is not there: the test is to be skipped.
std::vector<std::string> ExportHive(const std::filesystem::path &file, const std::string &key = "\\");

// Lines that one of the two exports lacks, each with + (only in `after`) or - in front.
std::vector<std::string> ExportDifference(std::vector<std::string> before, std::vector<std::string> after);
