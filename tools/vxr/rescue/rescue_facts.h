// The restored system and the machine, as the commands of a rescue system found them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "rescue/disk_chain.h"
#include "rescue/obstacles.h"
#include "rescue/restored_system.h"
#include "tools/vxr/base/given_directories.h"
#include "tools/vxr/rescue/rescue_options.h"

struct RescueFacts {
  GivenDirectories drivers;
  std::optional<rescue::RestoredSystem> system;
  std::optional<rescue::Mount> mount;
  std::vector<rescue::Disk> all;    // of the machine
  std::vector<rescue::Disk> disks;  // that the system is to start from
  bool toCome = false;              // they are made up, for controllers that the user named
  std::string diskProblem;          // why there are none, or why one was left out
  std::vector<rescue::Obstacle> obstacles;
};

// 0, or after a message the exit status: kExitUsage for an argument that is none, 1 when the system cannot be told.
int GatherFacts(const RescueOptions &options, RescueFacts *facts);

// The restored system alone, and what forbids changing it.
int GatherSystem(const std::string &root, RescueFacts *facts);

// Whether /proc is mounted, without which no file can be opened by its descriptor; if not, after a message.
bool CheckProc();

// Whether one run takes all controllers of the disks; if not, after a message.
bool CheckCount(const RescueFacts &facts);

// The machine file of what was found. `scratch`: host directory for the running system's drive.
std::string MachineFile(const RescueFacts &facts, const std::string &scratch);
