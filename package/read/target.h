// The system that drivers are chosen for.
#pragma once

#include "platform/architecture.h"

namespace package {

struct Target {
  DWORD major = 0, minor = 0;
  DWORD build = 0;
  WORD architecture = kX86;
  DWORD product = 1;       // 1 workstation, 2 domain controller, 3 server
  DWORD suite = 0;         // bits
  WORD language = 0x0409;  // of its texts
};

// Whether the target is of that version or a later one.
inline bool AtLeast(const Target &target, DWORD major, DWORD minor) {
  return target.major != major ? target.major > major : target.minor >= minor;
}

}  // namespace package
