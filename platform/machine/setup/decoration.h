// Decorations of models sections, such as NTamd64.6.1, and which of them serves the running system.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "platform/machine/description/records.h"

namespace machine {

// nt[arch][.[major][.[minor][.[product][.[suite][.build]]]]]; numbers are decimal, or hexadecimal after 0x.
struct Decoration {
  std::optional<DWORD> architecture;  // PROCESSOR_ARCHITECTURE_...
  std::optional<DWORD> major, minor, product, suite, build;
};

// False when the text is not of that form; such a decoration fits no system.
bool ParseDecoration(std::string_view text, Decoration *decoration);
bool Fits(const Decoration &decoration, const System &system);
// Whether `a` serves a system that both fit better than `b`.
bool IsBetter(const Decoration &a, const Decoration &b);
// The decoration that serves the system best, the first of equal ones; empty when none fits.
std::string_view BestDecoration(const std::vector<std::string_view> &decorations, const System &system);

}  // namespace machine
