// What the parts of reading an install section share: single lines, and the directives of a section with those of the
// sections that it needs.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "package/read/installation.h"

namespace package {

// A line of an INF file.
struct FoundLine {
  machine::InfFile *file = nullptr;
  const machine::InfSection *section = nullptr;
  const machine::InfLine *line = nullptr;
};

// The first line of the section with that key. False when there is none.
bool FindLine(machine::InfFile *file, const std::string &section, const std::string &key, FoundLine *line);
// A field with its tokens replaced; empty when the line has none of that number.
std::string TextOf(const FoundLine &line, std::uint32_t field);

inline constexpr std::size_t kIncludedInfs = 16;
inline constexpr std::size_t kNeededSections = 64;  // of one section
inline constexpr std::size_t kReadBytes = 4 << 20;  // of all that is read of one install section
inline constexpr std::size_t kNoInf = ~std::size_t{0};

// One install section while it is read.
struct Reading {
  const Target &target;
  const IncludePlaces &places;
  Installation *installation;
  std::size_t spent = 0;                             // bytes
  std::set<std::string> said = {};                   // notes
  std::map<std::string, std::size_t> included = {};  // by name in upper case: of Installation::infs, or kNoInf
};

// What one file asks for may be read again and again, by each of its services: whether that is more than any driver
// has.
bool TooMuch(const Reading &reading);
// TextOf, counted.
std::string Field(Reading *reading, const FoundLine &line, std::uint32_t field);
// Each sentence once.
void Note(Reading *reading, const std::string &sentence);
void NoteAbsent(Reading *reading, const std::string &sentence);

// The forms of a section's name in the order in which the target looks for them.
std::vector<std::string> NameForms(const std::string &name, const Target &target);

// A section of one of the files.
struct FoundSection {
  std::size_t inf = 0;  // of Installation::infs
  const machine::InfSection *section = nullptr;
};
// The section of that name, of the file itself or else of another one; null when there is none.
FoundSection FindAnywhere(const Reading &reading, std::size_t inf, const std::string &name);
FoundLine LineOf(const Reading &reading, const FoundSection &section, std::size_t line);

// A line with a key.
struct Directive {
  std::size_t inf = 0;
  std::string key;
  FoundLine line;
};
// The directives of a section, with those of the sections that it needs where it does. What cannot be found is noted;
// `missing`, when given, gets the names of such sections.
std::vector<Directive> DirectivesOf(Reading *reading, const FoundSection &section,
                                    std::vector<std::string> *missing = nullptr);

// Registry lines of one section while they are gathered.
struct RegistryReader {
  std::vector<RegistryLine> *lines;
  std::set<std::pair<const machine::InfSection *, RegistryVerb>> sections = {};  // that are read, and what for
};
// Reads what an AddReg, DelReg or BitReg directive names; false for another one.
bool ReadRegistryDirective(Reading *reading, const Directive &directive, RegistryReader *registry);
// Deletions come first, then additions, then bits.
void OrderRegistry(std::vector<RegistryLine> *lines);

// Reads a section's services; null: there is none.
void ReadServices(Reading *reading, const FoundSection &section);

}  // namespace package
