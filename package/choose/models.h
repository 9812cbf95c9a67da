// Which Models section of a Manufacturer line Windows takes for a system.
#pragma once

#include <string>
#include <vector>

#include "package/read/inf_source.h"

namespace package {

// A decoration of a Manufacturer line, such as "NTamd64.10.0...17763".
struct Decoration {
  std::string text;
  WORD architecture = 0;
  DWORD major = 0, minor = 0, build = 0, product = 0, suite = 0;
  bool hasArchitecture = false, hasVersion = false, hasBuild = false, hasProduct = false;
};

// False for a text that is no decoration.
bool ParseDecoration(const std::string &text, Decoration *decoration);
// Whether the system takes a section with that decoration, beside others that it may prefer. Systems before 10.0.14310
// take a build number for an error.
bool FitsTarget(const Decoration &decoration, const Target &target);

// A line of [Manufacturer]: its name as written, and the Models sections that it announces.
struct ManufacturerLine {
  std::string name, base;
  std::vector<std::string> decorations;
};
inline constexpr std::size_t kModelsSections = 4096;  // that a file may announce; what more it names is not looked at

std::vector<ManufacturerLine> ReadManufacturers(machine::InfFile *file);

// The name of the section that the target takes of a Manufacturer line with that base name and those decorations; false
// when none is for it. Whether a section of that name is there is another question: another is not taken instead.
bool ChooseModels(const std::string &base, const std::vector<std::string> &decorations, const Target &target,
                  std::string *section);

}  // namespace package
