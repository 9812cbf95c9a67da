// Why a restored system must not be changed now.
#pragma once

#include <string>
#include <vector>

#include "rescue/disk_chain.h"
#include "rescue/restored_system.h"

namespace rescue {

struct Obstacle {
  // For programs: "hibernated", "read-only", "no-rights", "dirty-volume", "encrypted", "not-ntfs", "dirty-hive",
  // "unusable-hive", "double-name", "stopped-injection".
  std::string word;
  std::string text;       // one line: what is wrong and the remedy
  bool forcible = false;  // the user may take the risk
  std::string loss;       // what is lost then, the beginning of a sentence: "Memory ...,"
};

// Half of an injection would be kept as what was before the next one: what to do first, a line; empty: nothing. For a
// run that holds the lock of the Windows directory.
std::string StoppedInjection(const RestoredSystem &system);

// Of a system that was found; that its facts were read is needed only to tell which may lie on another file system than
// NTFS, and nothing is changed. `mount`: null for a root of which no mount is known. `sysfs` tells what is below a
// mapped device. A run that is forced over "hibernated" must call ForgetHibernation (hibernation.h) before its first
// change.
std::vector<Obstacle> FindObstacles(const RestoredSystem &system, const Mount *mount,
                                    const std::filesystem::path &sysfs = "/sys");

}  // namespace rescue
