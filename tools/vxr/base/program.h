// What all commands of vxr share.
#pragma once

constexpr int kExitUsage = 2;  // wrong usage, or a machine that cannot be opened

// Whether files describe the machines. On Windows the commands work on the machine that they run on: no option names
// one, and disks are the machine's own, never images.
#ifdef _WIN32
constexpr bool kDescribedMachines = false;
#else
constexpr bool kDescribedMachines = true;
#endif
