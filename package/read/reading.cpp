#include "package/read/reading.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "package/read/driver_store.h"
#include "package/read/plain_names.h"

namespace package {
namespace {

// What a field takes up beside its characters.
constexpr std::size_t kFieldCost = 8;

constexpr std::size_t kToldAbsent = 4;  // sentences

// Sections below an install section that Needs names in full.
constexpr std::string_view kSubSections[] = {".Services", ".HW"};

bool ReadIncluded(Reading *reading, const std::string &name, InfSource *source) {
  const std::shared_ptr<const machine::InfSettings> &settings = reading->installation->infs[0].file->settings;
  const IncludePlaces &places = reading->places;
  std::string reason;
  if (!places.infDirectory.empty() && ReadInfSource(places.infDirectory + "\\" + name, settings, source, &reason)) {
    source->inbox = true;
    return true;
  }
  if (places.driverStore.empty()) return false;
  for (const std::string &folder : StoreFolders(places.driverStore, name, reading->target)) {
    if (ReadInfSource(folder + "\\" + name, settings, source, &reason)) return true;
  }
  return false;
}

// The number of an INF file that Include names; kNoInf when it is not to be had.
std::size_t IncludedInf(Reading *reading, const std::string &name) {
  const auto [entry, isNew] = reading->included.try_emplace(machine::FoldAnsiName(name), kNoInf);
  if (!isNew) return entry->second;
  Installation *installation = reading->installation;
  installation->includes.push_back(name);
  InfSource source;
  if (reading->included.size() > kIncludedInfs || !PlainName(name) || !ReadIncluded(reading, name, &source)) {
    NoteAbsent(reading, "The INF file " + name + " that is included is not found.");
    return kNoInf;
  }
  installation->infs.push_back(std::move(source));
  return entry->second = installation->infs.size() - 1;
}

// The section that Needs names, in one file: as written, else in the forms of an install section.
const machine::InfSection *FindNeeded(machine::InfFile *file, const std::string &name, const Target &target) {
  if (const machine::InfSection *section = machine::FindSection(file, name)) return section;
  std::string base = name, below;
  for (const std::string_view ending : kSubSections) {
    if (name.size() <= ending.size()) continue;
    const std::size_t length = name.size() - ending.size();
    if (!machine::SameName(std::string_view(name).substr(length), ending)) continue;
    base = name.substr(0, length);
    below = ending;
  }
  for (const std::string &form : NameForms(base, target)) {
    if (const machine::InfSection *section = machine::FindSection(file, form + below)) return section;
  }
  return nullptr;
}

bool IsKey(const Directive &directive, std::string_view key) { return machine::SameName(directive.key, key); }

// Appends a section's own directives.
void AppendDirectives(Reading *reading, const FoundSection &section, std::vector<Directive> *directives) {
  for (std::size_t i = 0; i < section.section->lines.size() && !TooMuch(*reading); ++i) {
    const FoundLine line = LineOf(*reading, section, i);
    ++reading->spent;
    if (line.line->hasKey) directives->push_back({section.inf, Field(reading, line, 0), line});
  }
}

// The sections that one directory of directives draws in.
struct Needs {
  std::vector<std::size_t> infs;  // where they are sought
  std::set<const machine::InfSection *> taken;
};

void AppendNeeded(Reading *reading, const Directive &directive, Needs *needs, std::vector<Directive> *directives,
                  std::vector<std::string> *missing) {
  for (std::uint32_t field = 1; field <= directive.line.line->valueCount && !TooMuch(*reading); ++field) {
    const std::string name = Field(reading, directive.line, field);
    if (name.empty()) continue;
    FoundSection needed;
    for (const std::size_t inf : needs->infs) {
      needed = {inf, FindNeeded(reading->installation->infs[inf].file.get(), name, reading->target)};
      if (needed.section != nullptr) break;
    }
    if (needed.section == nullptr) {
      NoteAbsent(reading, "The section [" + name + "] that is needed is not found.");
      if (missing != nullptr) missing->push_back(name);
    } else if (needs->taken.size() < kNeededSections && needs->taken.insert(needed.section).second) {
      const std::size_t first = directives->size();
      AppendDirectives(reading, needed, directives);
      const auto nested = [](const Directive &d) { return IsKey(d, "Include") || IsKey(d, "Needs"); };
      directives->erase(
          std::remove_if(directives->begin() + static_cast<std::ptrdiff_t>(first), directives->end(), nested),
          directives->end());
    }
  }
}

}  // namespace

bool FindLine(machine::InfFile *file, const std::string &section, const std::string &key, FoundLine *line) {
  const machine::InfSection *found = machine::FindSection(file, section);
  if (found == nullptr) return false;
  const std::uint32_t index = machine::FindKey(file, *found, key);
  if (index == machine::kInfNone) return false;
  *line = {file, found, &found->lines[index]};
  return true;
}

std::string TextOf(const FoundLine &line, std::uint32_t field) {
  return machine::HasField(*line.line, field) ? machine::FieldText(line.file, *line.section, *line.line, field)
                                              : std::string();
}

bool TooMuch(const Reading &reading) { return reading.spent > kReadBytes; }

std::string Field(Reading *reading, const FoundLine &line, std::uint32_t field) {
  std::string text = TextOf(line, field);
  reading->spent += text.size() + kFieldCost;
  return text;
}

void Note(Reading *reading, const std::string &sentence) {
  reading->spent += sentence.size();
  if (reading->said.insert(sentence).second) reading->installation->notes.push_back(sentence);
}

void NoteAbsent(Reading *reading, const std::string &sentence) {
  std::vector<std::string> &absent = reading->installation->absent;
  if (absent.size() < kToldAbsent && !reading->said.contains(sentence)) absent.push_back(sentence);
  Note(reading, sentence);
}

std::vector<std::string> NameForms(const std::string &name, const Target &target) {
  std::vector<std::string> forms;
  if (const char *architecture = ArchitectureName(target.architecture)) forms.push_back(name + ".nt" + architecture);
  forms.push_back(name + ".nt");
  forms.push_back(name);
  return forms;
}

FoundSection FindAnywhere(const Reading &reading, std::size_t inf, const std::string &name) {
  const std::vector<InfSource> &infs = reading.installation->infs;
  FoundSection found = {inf, machine::FindSection(infs[inf].file.get(), name)};
  for (std::size_t other = 0; other < infs.size() && found.section == nullptr; ++other) {
    found = {other, machine::FindSection(infs[other].file.get(), name)};
  }
  return found;
}

FoundLine LineOf(const Reading &reading, const FoundSection &section, std::size_t line) {
  return {reading.installation->infs[section.inf].file.get(), section.section, &section.section->lines[line]};
}

std::vector<Directive> DirectivesOf(Reading *reading, const FoundSection &section, std::vector<std::string> *missing) {
  std::vector<Directive> own;
  AppendDirectives(reading, section, &own);
  Needs needs{{section.inf}, {section.section}};
  for (const Directive &directive : own) {
    if (!IsKey(directive, "Include")) continue;
    for (std::uint32_t field = 1; field <= directive.line.line->valueCount && !TooMuch(*reading); ++field) {
      const std::string name = Field(reading, directive.line, field);
      const std::size_t inf = name.empty() ? kNoInf : IncludedInf(reading, name);
      if (inf != kNoInf) needs.infs.push_back(inf);
    }
  }
  std::vector<Directive> all;
  for (Directive &directive : own) {
    if (IsKey(directive, "Needs")) {
      AppendNeeded(reading, directive, &needs, &all, missing);
    } else if (!IsKey(directive, "Include")) {
      all.push_back(std::move(directive));
    }
  }
  return all;
}

bool ReadRegistryDirective(Reading *reading, const Directive &directive, RegistryReader *registry) {
  constexpr std::pair<std::string_view, RegistryVerb> kVerbs[] = {
      {"AddReg", RegistryVerb::kAdd}, {"DelReg", RegistryVerb::kDelete}, {"BitReg", RegistryVerb::kBits}};
  const auto *verb = std::find_if(std::begin(kVerbs), std::end(kVerbs),
                                  [&directive](const auto &known) { return IsKey(directive, known.first); });
  if (verb == std::end(kVerbs)) return false;
  for (std::uint32_t field = 1; field <= directive.line.line->valueCount && !TooMuch(*reading); ++field) {
    const std::string name = Field(reading, directive.line, field);
    if (name.empty()) continue;
    const FoundSection found = FindAnywhere(*reading, directive.inf, name);
    if (found.section == nullptr) Note(reading, "The section [" + name + "] of registry lines is not found.");
    if (found.section == nullptr || !registry->sections.emplace(found.section, verb->second).second) continue;
    for (std::size_t i = 0; i < found.section->lines.size() && !TooMuch(*reading); ++i) {
      const FoundLine line = LineOf(*reading, found, i);
      RegistryLine entry = {verb->second,
                            name,
                            Field(reading, line, 1),
                            Field(reading, line, 2),
                            Field(reading, line, 3),
                            Field(reading, line, 4),
                            {}};
      for (std::uint32_t value = 5; value <= line.line->valueCount && !TooMuch(*reading); ++value) {
        entry.data.push_back(Field(reading, line, value));
      }
      registry->lines->push_back(std::move(entry));
    }
  }
  return true;
}

void OrderRegistry(std::vector<RegistryLine> *lines) {
  constexpr auto kTurn = [](const RegistryLine &line) {
    return line.verb == RegistryVerb::kDelete ? 0 : line.verb == RegistryVerb::kAdd ? 1 : 2;
  };
  std::stable_sort(lines->begin(), lines->end(),
                   [kTurn](const RegistryLine &a, const RegistryLine &b) { return kTurn(a) < kTurn(b); });
}

}  // namespace package
