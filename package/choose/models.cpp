#include "package/choose/models.h"

#include <bit>
#include <charconv>
#include <string_view>
#include <tuple>

#include "platform/inf/inf_file.h"

namespace package {
namespace {

constexpr DWORD kFirstWithBuilds = 14310;  // build of 10.0 from which on decorations may name one

bool ParseArchitecture(std::string_view text, Decoration *decoration) {
  if (text.empty()) return true;
  for (const NamedArchitecture &known : kArchitectures) {
    if (!machine::SameName(text, known.name)) continue;
    decoration->architecture = known.architecture;
    decoration->hasArchitecture = true;
    return true;
  }
  return false;
}

// An empty part leaves the number open.
bool ParsePart(std::string_view text, DWORD *number, bool *given) {
  if (text.empty()) return true;
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    text.remove_prefix(2);
    base = 16;
  }
  const std::from_chars_result read = std::from_chars(text.data(), text.data() + text.size(), *number, base);
  *given = true;
  return read.ec == std::errc() && read.ptr == text.data() + text.size();
}

// Whether what names no architecture is for every one: so it was until 64-bit Windows for AMD64 came.
bool NeutralFits(const Target &target) {
  if (target.architecture == kX86) return true;
  return target.architecture == kIa64 && !AtLeast(target, 5, 2);
}

bool VersionFits(const Decoration &decoration, const Target &target) {
  const bool knowsBuilds = AtLeast(target, 10, 1) || (AtLeast(target, 10, 0) && target.build >= kFirstWithBuilds);
  if (decoration.hasBuild && !knowsBuilds) return false;
  if (!decoration.hasVersion) return true;
  if (!AtLeast(target, decoration.major, decoration.minor)) return false;
  // An older version fits whatever build it names.
  if (decoration.major != target.major || decoration.minor != target.minor) return true;
  return decoration.build <= target.build;
}

// Of two that fit, the greater is taken.
auto Preference(const Decoration &decoration) {
  return std::tuple(decoration.hasVersion, decoration.major, decoration.minor, decoration.build, decoration.hasProduct,
                    std::popcount(decoration.suite), decoration.hasArchitecture);
}

}  // namespace

bool ParseDecoration(const std::string &text, Decoration *decoration) {
  *decoration = {};
  decoration->text = text;
  std::string_view rest = text;
  if (!machine::SameName(rest.substr(0, 2), "nt")) return false;
  rest.remove_prefix(2);
  std::size_t dot = rest.find('.');
  if (!ParseArchitecture(rest.substr(0, dot), decoration)) return false;
  Decoration &d = *decoration;
  bool hasMajor = false, hasMinor = false, hasSuite = false;
  const std::pair<DWORD *, bool *> parts[] = {{&d.major, &hasMajor},
                                              {&d.minor, &hasMinor},
                                              {&d.product, &d.hasProduct},
                                              {&d.suite, &hasSuite},
                                              {&d.build, &d.hasBuild}};
  for (const auto &[number, given] : parts) {
    if (dot == rest.npos) break;
    rest.remove_prefix(dot + 1);
    dot = rest.find('.');
    if (!ParsePart(rest.substr(0, dot), number, given)) return false;
  }
  d.hasVersion = hasMajor || hasMinor;
  return dot == rest.npos;
}

bool FitsTarget(const Decoration &decoration, const Target &target) {
  if (decoration.hasArchitecture ? decoration.architecture != target.architecture : !NeutralFits(target)) return false;
  if (!VersionFits(decoration, target)) return false;
  if (decoration.hasProduct && decoration.product != target.product) return false;
  return (target.suite & decoration.suite) == decoration.suite;
}

std::vector<ManufacturerLine> ReadManufacturers(machine::InfFile *file) {
  std::vector<ManufacturerLine> manufacturers;
  const machine::InfSection *section = machine::FindSection(file, "Manufacturer");
  if (section == nullptr) return manufacturers;
  std::size_t left = kModelsSections;
  for (const machine::InfLine &line : section->lines) {
    if (!line.hasKey) continue;
    if (left-- == 0) break;
    ManufacturerLine manufacturer;
    manufacturer.name = machine::RawField(*section, line, 0);
    // Without a value the name is the section's as well.
    manufacturer.base = machine::FieldText(file, *section, line, line.valueCount == 0 ? 0 : 1);
    for (std::uint32_t field = 2; field <= line.valueCount && left > 0; ++field, --left) {
      manufacturer.decorations.push_back(machine::FieldText(file, *section, line, field));
    }
    manufacturers.push_back(std::move(manufacturer));
  }
  return manufacturers;
}

bool ChooseModels(const std::string &base, const std::vector<std::string> &decorations, const Target &target,
                  std::string *section) {
  Decoration best, parsed;
  bool found = false;
  for (const std::string &text : decorations) {
    if (!ParseDecoration(text, &parsed) || !FitsTarget(parsed, target)) continue;
    if (found && Preference(parsed) <= Preference(best)) continue;
    best = parsed;
    found = true;
  }
  *section = found ? base + "." + best.text : base;
  return found || NeutralFits(target);
}

}  // namespace package
