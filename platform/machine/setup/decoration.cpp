#include "platform/machine/setup/decoration.h"

#include <charconv>
#include <tuple>

#include "platform/architecture.h"
#include "platform/inf/inf_file.h"

namespace machine {
namespace {

bool ParseArchitecture(std::string_view text, std::optional<DWORD> *architecture) {
  if (text.empty()) return true;
  for (const NamedArchitecture &known : kArchitectures) {
    if (!SameName(text, known.name)) continue;
    *architecture = known.architecture;
    return true;
  }
  return false;
}

// An empty part leaves the number open.
bool ParsePart(std::string_view text, std::optional<DWORD> *number) {
  if (text.empty()) return true;
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    text.remove_prefix(2);
    base = 16;
  }
  DWORD value = 0;
  const std::from_chars_result read = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (read.ec != std::errc() || read.ptr != text.data() + text.size()) return false;
  *number = value;
  return true;
}

auto VersionOf(const Decoration &decoration) {
  return std::tuple(decoration.major.value_or(0), decoration.minor.value_or(0), decoration.build.value_or(0));
}

// From 5.2 with service pack 1 on, a decoration without architecture means x86.
bool NeutralMeansX86(const System &system) {
  return std::tuple(system.osMajor, system.osMinor, system.servicePackMajor) >= std::tuple(5u, 2u, 1u);
}

}  // namespace

bool ParseDecoration(std::string_view text, Decoration *decoration) {
  *decoration = {};
  if (text.size() < 2 || !SameName(text.substr(0, 2), "nt")) return false;
  text.remove_prefix(2);
  std::size_t dot = text.find('.');
  if (!ParseArchitecture(text.substr(0, dot), &decoration->architecture)) return false;
  for (std::optional<DWORD> *part :
       {&decoration->major, &decoration->minor, &decoration->product, &decoration->suite, &decoration->build}) {
    if (dot == std::string_view::npos) return true;
    text.remove_prefix(dot + 1);
    dot = text.find('.');
    if (!ParsePart(text.substr(0, dot), part)) return false;
  }
  return dot == std::string_view::npos;
}

bool Fits(const Decoration &decoration, const System &system) {
  const bool architecture = decoration.architecture ? *decoration.architecture == system.processorArchitecture
                                                    : !NeutralMeansX86(system) || system.processorArchitecture == kX86;
  if (!architecture || VersionOf(decoration) > std::tuple(system.osMajor, system.osMinor, system.osBuild)) return false;
  if (decoration.product && *decoration.product != system.product) return false;
  return !decoration.suite || (system.suite & *decoration.suite) == *decoration.suite;
}

// The version comes first; what the decoration says beyond it, and of two that say the same much the one that names the
// architecture, in the order in which the restored system's own decorations go from special to general.
bool IsBetter(const Decoration &a, const Decoration &b) {
  const auto rank = [](const Decoration &decoration) {
    return std::tuple(VersionOf(decoration), decoration.product.has_value(), decoration.suite.has_value(),
                      decoration.architecture.has_value());
  };
  return rank(a) > rank(b);
}

std::string_view BestDecoration(const std::vector<std::string_view> &decorations, const System &system) {
  std::string_view best;
  Decoration bestParsed;
  for (const std::string_view text : decorations) {
    Decoration parsed;
    if (!ParseDecoration(text, &parsed) || !Fits(parsed, system)) continue;
    if (!best.empty() && !IsBetter(parsed, bestParsed)) continue;
    best = text;
    bestParsed = parsed;
  }
  return best;
}

}  // namespace machine
