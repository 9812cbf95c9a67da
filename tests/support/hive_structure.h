// A strict check of a whole hive, which shares nothing with the code that reads and writes hives.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The first thing that Windows' own check would complain about: base block and size of the file, bins, cells, every key
// with its list of subkeys (order, hashes, count), values and data, no cell used twice, security records with their
// ring and reference counts. Empty for a sound hive.
std::string HiveProblem(const std::vector<uint8_t> &hive);
