#include "package/read/installation.h"

#include <charconv>
#include <iterator>

#include "package/read/numbers.h"
#include "package/read/reading.h"
#include "package/read/sources.h"

namespace package {
namespace {

// An install section's directives while they are read.
struct InstallReader {
  Reading *reading;
  const machine::InfSection *own;  // the section itself, which another is not that it needs
  RegistryReader registry;
  std::set<const machine::InfSection *> copyLists = {};  // that are read
  bool hasFeatureScore = false, hasVersion = false;
};

void AddCopyList(const FoundSection &list, const std::string &name, Reading *reading) {
  for (std::size_t i = 0; i < list.section->lines.size() && !TooMuch(*reading); ++i) {
    const FoundLine line = LineOf(*reading, list, i);
    FileLine file = {name, Field(reading, line, 1), Field(reading, line, 2), 0, false, list.inf};
    if (file.source.empty()) file.source = file.target;
    const std::string flags = Field(reading, line, 4);
    if (!flags.empty() && !ParseNumber(flags, &file.flags)) {
      Note(reading, "The flags \"" + flags + "\" of the file " + file.target + " are no number.");
    }
    if (!file.target.empty()) reading->installation->files.push_back(std::move(file));
  }
}

void ReadCopyFiles(const Directive &directive, InstallReader *in) {
  Reading *reading = in->reading;
  for (std::uint32_t field = 1; field <= directive.line.line->valueCount && !TooMuch(*reading); ++field) {
    const std::string name = Field(reading, directive.line, field);
    if (name.starts_with('@')) {
      const std::string file = name.substr(1);
      reading->installation->files.push_back({{}, file, file, 0, false, directive.inf});
      continue;
    }
    if (name.empty()) continue;
    const FoundSection list = FindAnywhere(*reading, directive.inf, name);
    if (list.section == nullptr) {
      Note(reading, "The section [" + name + "] of files is not found.");
    } else if (in->copyLists.insert(list.section).second) {
      AddCopyList(list, name, reading);
    }
  }
}

// What it needs has no say in how well the device is served.
bool IsOwn(const Directive &directive, const InstallReader &in) { return directive.line.section == in.own; }

void ReadFeatureScore(const Directive &directive, InstallReader *in) {
  if (!IsOwn(directive, *in) || in->hasFeatureScore) return;
  in->hasFeatureScore = true;
  const std::string text = Field(in->reading, directive.line, 1);
  std::string_view digits = text;
  if (digits.starts_with("0x") || digits.starts_with("0X")) digits.remove_prefix(2);
  DWORD score = 0;
  const std::from_chars_result read = std::from_chars(digits.data(), digits.data() + digits.size(), score, 16);
  if (read.ec == std::errc() && read.ptr == digits.data() + digits.size() && score <= 0xFF) {
    in->reading->installation->featureScore = score;
  } else {
    Note(in->reading, "The feature score \"" + text + "\" is none.");
  }
}

void TakeVersion(const FoundLine &line, Reading *reading) {
  reading->installation->date = Field(reading, line, 1);
  reading->installation->version = Field(reading, line, 2);
}

void ReadDriverVersion(const Directive &directive, InstallReader *in) {
  if (!IsOwn(directive, *in) || in->hasVersion) return;
  in->hasVersion = true;
  TakeVersion(directive.line, in->reading);
}

void ReadExcludedIds(const Directive &directive, InstallReader *in) {
  for (std::uint32_t field = 1; field <= directive.line.line->valueCount && !TooMuch(*in->reading); ++field) {
    std::string id = Field(in->reading, directive.line, field);
    if (!id.empty()) in->reading->installation->excludedIds.push_back(std::move(id));
  }
}

void NotePassedOver(const Directive &directive, InstallReader *in) {
  Note(in->reading, "The directive " + directive.key + " is passed over.");
}

// Nothing of it matters to a system that is to start: it cleans up behind earlier installations, sets up what is no
// driver, or asks for the start that comes anyway.
void Ignore(const Directive &, InstallReader *) {}

struct KnownDirective {
  const char *key;
  void (*read)(const Directive &directive, InstallReader *in);
};
constexpr KnownDirective kDirectives[] = {{"CopyFiles", ReadCopyFiles},
                                          {"FeatureScore", ReadFeatureScore},
                                          {"DriverVer", ReadDriverVersion},
                                          {"ExcludeID", ReadExcludedIds},
                                          {"Reboot", Ignore},
                                          {"LogConfig", Ignore},
                                          {"AddPowerSetting", Ignore},
                                          {"DelFiles", Ignore},
                                          {"SysSetupPnPFlags", Ignore},
                                          {"AddProperty", Ignore},
                                          {"DelProperty", Ignore},
                                          {"Security", Ignore}};

void ReadDirective(const Directive &directive, InstallReader *in) {
  if (ReadRegistryDirective(in->reading, directive, &in->registry)) return;
  for (const KnownDirective &known : kDirectives) {
    if (machine::SameName(directive.key, known.key)) return known.read(directive, in);
  }
  NotePassedOver(directive, in);
}

// The catalogue for the target: the form of its own processor first.
std::string CatalogOf(machine::InfFile *file, const Target &target) {
  FoundLine line;
  for (const std::string &form : NameForms("CatalogFile", target)) {
    if (FindLine(file, "Version", form, &line)) return TextOf(line, 1);
  }
  return {};
}

// The services section of the section taken. Windows looks for no other; packages whose author forgot so are served
// with that of the same name's other form.
FoundSection ServicesOf(const std::string &name, Reading *reading) {
  machine::InfFile *file = reading->installation->infs[0].file.get();
  const std::string &taken = reading->installation->section;
  if (const machine::InfSection *own = machine::FindSection(file, taken + ".Services")) return {0, own};
  for (const std::string &form : NameForms(name, reading->target)) {
    const machine::InfSection *sibling = machine::FindSection(file, form + ".Services");
    if (sibling == nullptr) continue;
    Note(reading, "There is no section [" + taken + ".Services]; [" +
                      std::string(machine::SectionName(*file, *sibling)) + "] is taken instead.");
    return {0, sibling};
  }
  return {};
}

void ReadHardware(Reading *reading) {
  machine::InfFile *file = reading->installation->infs[0].file.get();
  const std::string &taken = reading->installation->section;
  if (machine::FindSection(file, taken + ".Filters") != nullptr) {
    Note(reading, "The filters of the section [" + taken + ".Filters] are passed over.");
  }
  const machine::InfSection *section = machine::FindSection(file, taken + ".HW");
  if (section == nullptr) return;
  RegistryReader registry{&reading->installation->hardware};
  for (const Directive &directive : DirectivesOf(reading, {0, section})) {
    ReadRegistryDirective(reading, directive, &registry);
  }
  OrderRegistry(&reading->installation->hardware);
}

void MarkServiceFiles(Installation *installation) {
  std::set<std::string> binaries;
  std::string name;
  for (const ServiceLines &service : installation->services) {
    if (BinaryName(service.binary, &name)) binaries.insert(machine::FoldAnsiName(name));
  }
  for (FileLine &file : installation->files) file.serves = binaries.contains(machine::FoldAnsiName(file.target));
}

}  // namespace

std::string ActualSection(machine::InfFile *file, const std::string &name, const Target &target) {
  for (const std::string &form : NameForms(name, target)) {
    const std::uint32_t index = name.empty() ? machine::kInfNone : machine::FindSectionIndex(*file, form);
    if (index != machine::kInfNone) return std::string(machine::SectionName(*file, file->sections[index]));
  }
  return {};
}

bool ReadInstallation(const InfSource &inf, const std::string &name, const Target &target, const IncludePlaces &places,
                      Installation *installation, std::string *reason) {
  *installation = {};
  machine::InfFile *file = inf.file.get();
  installation->section = ActualSection(file, name, target);
  if (installation->section.empty()) {
    *reason = "no form of the install section [" + name + "] is there for this system";
    return false;
  }
  installation->infs.push_back(inf);
  installation->catalog = CatalogOf(file, target);
  Reading reading{target, places, installation};
  const FoundSection section = {0, machine::FindSection(file, installation->section)};
  InstallReader in{&reading, section.section, {&installation->registry}};
  FoundLine version;
  if (FindLine(file, "Version", "DriverVer", &version)) TakeVersion(version, &reading);
  for (const Directive &directive : DirectivesOf(&reading, section)) ReadDirective(directive, &in);
  OrderRegistry(&installation->registry);
  ReadServices(&reading, ServicesOf(name, &reading));
  ReadHardware(&reading);
  MarkServiceFiles(installation);
  if (!TooMuch(reading)) return true;
  *reason = "the install section [" + installation->section + "] asks for more than any driver needs";
  return false;
}

const ServiceLines *FunctionDriver(const Installation &installation) {
  for (const ServiceLines &service : installation.services) {
    if ((service.flags & kFunctionDriver) != 0) return &service;
  }
  return nullptr;
}

}  // namespace package
