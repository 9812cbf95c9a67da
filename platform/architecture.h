// Processor architectures, by Windows' numbers and the names that INF files and packages have for them.
#pragma once

#include "platform/platform.h"

inline constexpr WORD kX86 = 0, kArm = 5, kIa64 = 6, kAmd64 = 9, kArm64 = 12;  // PROCESSOR_ARCHITECTURE_...

struct NamedArchitecture {
  const char *name;
  WORD architecture;
  const char *variable;  // what a system keeps in PROCESSOR_ARCHITECTURE
  const char *usual;     // what people call it
};
inline constexpr NamedArchitecture kArchitectures[] = {{"x86", kX86, "x86", "x86"},
                                                       {"amd64", kAmd64, "AMD64", "x64"},
                                                       {"ia64", kIa64, "IA64", "Itanium"},
                                                       {"arm", kArm, "ARM", "ARM"},
                                                       {"arm64", kArm64, "ARM64", "ARM64"}};

// Null for another.
constexpr const NamedArchitecture *FindArchitecture(DWORD architecture) {
  for (const NamedArchitecture &known : kArchitectures) {
    if (known.architecture == architecture) return &known;
  }
  return nullptr;
}

// Null for another.
constexpr const char *ArchitectureName(DWORD architecture) {
  const NamedArchitecture *known = FindArchitecture(architecture);
  return known == nullptr ? nullptr : known->name;
}
