// Why a restored system must not be changed now.
#pragma once

#include <string>
#include <vector>

#include "rescue/disk_chain.h"
#include "rescue/restored_system.h"

namespace rescue {

struct Obstacle {
  std::string
      word;  // for programs: "hibernated", "read-only", "dirty-volume", "encrypted", "dirty-hive", "double-name"
  std::string text;       // one line: what is wrong and the remedy
  bool forcible = false;  // the user may take the risk
  std::string loss;       // what is lost then, a sentence
};

// `mount`: null for a root of which no mount is known.
std::vector<Obstacle> FindObstacles(const RestoredSystem &system, const Mount *mount);

}  // namespace rescue
