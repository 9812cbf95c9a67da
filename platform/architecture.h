// Processor architectures, by Windows' numbers and the names that INF files and packages have for them.
#pragma once

#include "platform/platform.h"

inline constexpr WORD kX86 = 0, kArm = 5, kIa64 = 6, kAmd64 = 9, kArm64 = 12;  // PROCESSOR_ARCHITECTURE_...

struct NamedArchitecture {
  const char *name;
  WORD architecture;
};
inline constexpr NamedArchitecture kArchitectures[] = {
    {"x86", kX86}, {"amd64", kAmd64}, {"ia64", kIa64}, {"arm", kArm}, {"arm64", kArm64}};

// Null for another.
constexpr const char *ArchitectureName(DWORD architecture) {
  for (const NamedArchitecture &known : kArchitectures) {
    if (known.architecture == architecture) return known.name;
  }
  return nullptr;
}
