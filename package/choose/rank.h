// How well a driver fits a device, as Windows orders drivers: a lower rank, then a later date, then a higher version.
// The signature stays out, since it is not verified offline.
#pragma once

#include <string>
#include <vector>

#include "package/read/target.h"

namespace package {

// A device's ids, each list most specific first.
struct DeviceIds {
  std::vector<std::string> hardware, compatible;
};
// Of two multi-strings, either of which may be null.
DeviceIds IdsOf(const char *hardware, const char *compatible);

bool HasId(const DeviceIds &device, const std::string &id);

// What takes part in the order. `path` makes it total.
struct Rank {
  DWORD value = 0;      // 0x00GGTHHH: feature score, identifier score
  DWORD64 date = 0;     // 100 ns since 1601, 0 none
  DWORD64 version = 0;  // four numbers of 16 bits, the first one highest; 0 none
  std::string path;
};

inline constexpr DWORD kNoMatch = 0xFFFFFFFF;
inline constexpr DWORD kDefaultFeatureScore = 0xFF;

// 0xTHHH of an id of a model line; `position` 0 is its hardware id, others its compatible ids. kNoMatch when the device
// has no such id.
DWORD IdentifierScore(const DeviceIds &device, const std::string &id, std::size_t position);
// Before 6.0 a feature score counts for nothing: the default takes its place.
DWORD RankValue(DWORD identifierScore, DWORD featureScore, const Target &target);
// Whether `a` is preferred to `b`. The paths are compared without regard to case.
bool Better(const Rank &a, const Rank &b);

// "03/26/2013" or "3-26-2013" as 100 ns since 1601 at 00:00 UTC; 0 for what is no date.
DWORD64 ParseDriverDate(const std::string &text);
// "1.34.3.83"; missing numbers are 0, and so is all of what is no version.
DWORD64 ParseDriverVersion(const std::string &text);
// "2013-03-26"; empty for 0.
std::string DateText(DWORD64 date);

}  // namespace package
