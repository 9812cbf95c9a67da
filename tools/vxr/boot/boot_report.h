// What a boot-sector repair found and did. The library's export answers with yes or no; it reports the rest.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/vxr/base/machine_session.h"

struct BootReport {
  struct Geometry {
    std::uint64_t cylinders = 0;
    std::uint32_t heads = 0, sectors = 0, bytes = 0;  // sectors a track, bytes a sector
  };
  struct Partition {
    int index = 0;  // of its entry, from 0
    unsigned type = 0;
    std::uint32_t sectors = 0, first = 0;
  };
  struct BootSectorFields {  // as they were read
    std::uint32_t sectors = 0, heads = 0, hidden = 0, total = 0;
  };
  // Each empty when the repair did not get that far.
  std::optional<Geometry> geometry;
  std::optional<Partition> partition;
  std::optional<BootSectorFields> fields;

  bool sectorsSet = false, headsSet = false, hiddenSet = false, totalSet = false;
  std::uint32_t refused = 0;  // as VXRMACHINE_BOOT_REFUSED tells
  LoggedError error;          // the first
};

// Events that tell nothing of the above change nothing.
void AddEvent(BootReport *report, const VXRMachine_Event &event);

// For people, of a repair that succeeded: the disk, the partition, each field with what became of it, the outcome.
std::vector<std::string> DescribeRepair(const BootReport &report, const std::string &disk);

// For people, of one that failed: one line saying what is wrong and what to do.
std::string ExplainFailure(const BootReport &report, const std::string &disk);
