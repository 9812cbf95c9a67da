// The machine that a rescue system runs on, with a restored system, as the text of a machine file: it opens with
// VXRMachine_OpenText, and a run of its one job puts the drivers in.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "rescue/disks.h"
#include "rescue/restored_system.h"

namespace rescue {

struct Description {
  RestoredSystem system;
  std::vector<Disk> disks;                     // that the system needs to start; at least one
  std::string drives;                          // drive tables of the directories of driver packages
  std::vector<std::string> driverDirectories;  // as the machine names them
  std::filesystem::path scratch = "/";         // a directory of the host that the running system's drive stands for
  std::int64_t time = 0;                       // seconds since 1970, at which the machine's clock stands
};

inline constexpr unsigned kJob = 1;
inline constexpr char kHostKey[] = "SOFTWARE\\Varnelt\\Halcyra";  // of the host's directory, HCDIR

// Most disks that one run takes.
inline constexpr std::size_t kMostDisks = 9;

// The letter of the running system's drive, which the restored system does not have.
char RunningDrive(const RestoredSystem &system);
// A path below the restored volume's root as Windows names it.
std::string WindowsPath(const RestoredSystem &system, const std::filesystem::path &path);

// UTF-8.
std::string DescribeMachine(const Description &description);

// One disk for each controller, since a controller needs its driver once.
std::vector<Disk> OneForEachController(const std::vector<Disk> &disks);

}  // namespace rescue
