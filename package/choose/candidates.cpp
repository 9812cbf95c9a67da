#include "package/choose/candidates.h"

#include <algorithm>
#include <cstdio>
#include <map>

#include "package/choose/judgement.h"
#include "package/choose/models.h"

namespace package {
namespace {

constexpr std::uint32_t kSectionField = 1, kHardwareIdField = 2;  // of a model line
constexpr std::size_t kLineIds = 256;                             // of one line that are kept
constexpr std::size_t kToldDecorations = 8;                       // in a refusal

// A model line that lists the device.
struct Match {
  std::uint32_t section = 0, line = 0;  // of the file
  std::uint32_t field = 0;              // of its best id
  DWORD score = kNoMatch;
  std::size_t manufacturer = 0;  // line of [Manufacturer]
  Refusal refusal = Refusal::kNone;
};

// One INF file while it is looked through.
struct FileSearch {
  const Index &index;
  const DeviceIds &device;
  const IncludePlaces &places;
  InfSource inf = {};
  std::vector<ManufacturerLine> manufacturers = {};
  std::map<std::uint32_t, std::vector<Match>> bySection = {};  // each section is looked through once
  std::vector<bool> taken = {};                                // sections whose lines are candidates already
  std::vector<Match> matches = {};
  std::map<std::string, Judgement> judgements = {};  // by the install section as written, in upper case
};

// The id of the line that ranks best.
Match BestId(FileSearch *search, std::uint32_t number, const machine::InfSection &section, std::uint32_t line) {
  Match best{.section = number, .line = line};
  const machine::InfLine &fields = section.lines[line];
  for (std::uint32_t field = kHardwareIdField; fields.hasKey && field <= fields.valueCount; ++field) {
    const std::string id = machine::FieldText(search->inf.file.get(), section, fields, field);
    const DWORD score = IdentifierScore(search->device, id, field - kHardwareIdField);
    if (score >= best.score) continue;
    best.score = score;
    best.field = field;
  }
  return best;
}

// Those of a section, the best first and of equal ones the first in the file; one more than is looked at.
const std::vector<Match> &MatchesOf(FileSearch *search, std::uint32_t number) {
  const auto [entry, isNew] = search->bySection.try_emplace(number);
  if (!isNew) return entry->second;
  const machine::InfSection &section = machine::ParsedSection(search->inf.file.get(), number);
  for (std::uint32_t line = 0; line < section.lines.size(); ++line) {
    const Match match = BestId(search, number, section, line);
    if (match.score == kNoMatch) continue;
    std::vector<Match> &matches = entry->second;
    matches.insert(std::upper_bound(matches.begin(), matches.end(), match,
                                    [](const Match &a, const Match &b) { return a.score < b.score; }),
                   match);
    if (matches.size() > kFileCandidates + 1) matches.pop_back();
  }
  return entry->second;
}

// The best line for the device in any section that the Manufacturer line announces.
Match BestAnnounced(FileSearch *search, const ManufacturerLine &manufacturer) {
  Match best;
  const auto look = [&](const std::string &name) {
    const std::uint32_t number = machine::FindSectionIndex(*search->inf.file, name);
    if (number == machine::kInfNone) return;
    const std::vector<Match> &matches = MatchesOf(search, number);
    if (!matches.empty() && matches.front().score < best.score) best = matches.front();
  };
  look(manufacturer.base);
  for (const std::string &decoration : manufacturer.decorations) look(manufacturer.base + "." + decoration);
  return best;
}

void SearchManufacturer(FileSearch *search, std::size_t number) {
  const ManufacturerLine &manufacturer = search->manufacturers[number];
  std::string name;
  const bool chosen = ChooseModels(manufacturer.base, manufacturer.decorations, search->index.target, &name);
  const std::uint32_t section = chosen ? machine::FindSectionIndex(*search->inf.file, name) : machine::kInfNone;
  if (section != machine::kInfNone) {
    const std::vector<Match> &matches = MatchesOf(search, section);
    if (!search->taken[section]) {
      for (Match match : matches) {
        match.manufacturer = number;
        search->matches.push_back(match);
      }
    }
    search->taken[section] = true;
    if (!matches.empty()) return;
  }
  Match other = BestAnnounced(search, manufacturer);
  if (other.score == kNoMatch) return;
  other.manufacturer = number;
  // An undecorated section that is not there was announced for nobody in particular.
  const bool missing = chosen && section == machine::kInfNone && name != manufacturer.base;
  other.refusal = missing ? Refusal::kSectionMissing : Refusal::kDecoration;
  search->matches.push_back(other);
}

const Judgement &JudgementOf(FileSearch *search, const std::string &written) {
  const auto [entry, isNew] = search->judgements.try_emplace(machine::FoldAnsiName(written));
  if (isNew) entry->second = JudgeSection(search->inf, written, search->device, search->index.target, search->places);
  return entry->second;
}

// The device's own spelling of an id that it has.
std::string DevicesId(const DeviceIds &device, const std::string &id) {
  for (const std::vector<std::string> *ids : {&device.hardware, &device.compatible}) {
    for (const std::string &own : *ids) {
      if (machine::SameName(own, id)) return own;
    }
  }
  return id;
}

std::string VersionField(machine::InfFile *file, const char *key) {
  std::string value;
  const machine::InfSection *version = machine::FindSection(file, "Version");
  if (version != nullptr) machine::FindValue(file, *version, key, &value);
  return value;
}

// What the model line itself says of the driver.
Candidate DescribeLine(FileSearch *search, const Match &match) {
  machine::InfFile *file = search->inf.file.get();
  const machine::InfSection &section = machine::ParsedSection(file, match.section);
  const machine::InfLine &line = section.lines[match.line];
  Candidate candidate;
  candidate.rawDescription = machine::RawField(section, line, 0);
  candidate.description = machine::FieldText(file, section, line, 0);
  candidate.rawManufacturer = search->manufacturers[match.manufacturer].name;
  candidate.manufacturer = machine::ReplaceTokens(file, candidate.rawManufacturer);
  candidate.provider = VersionField(file, "Provider");
  candidate.classGuid = VersionField(file, "ClassGuid");
  candidate.models = machine::SectionName(*file, section);
  candidate.writtenSection = machine::FieldText(file, section, line, kSectionField);
  candidate.position = match.field - kHardwareIdField;
  candidate.id = DevicesId(search->device, machine::FieldText(file, section, line, match.field));
  for (std::uint32_t field = kHardwareIdField; field <= line.valueCount; ++field) {
    if (candidate.lineIds.size() == kLineIds) break;
    candidate.lineIds.push_back(machine::FieldText(file, section, line, field));
  }
  candidate.inbox = search->inf.inbox;
  return candidate;
}

std::string TargetText(const Target &target) {
  const char *architecture = ArchitectureName(target.architecture);
  char suite[16];
  std::snprintf(suite, sizeof suite, "0x%X", static_cast<unsigned>(target.suite));
  return "Windows " + std::to_string(target.major) + "." + std::to_string(target.minor) + "." +
         std::to_string(target.build) + " for " + (architecture != nullptr ? architecture : "an unknown processor") +
         ", product type " + std::to_string(target.product) + ", suite " + suite;
}

// What a Manufacturer line is for.
std::string Announcement(const ManufacturerLine &manufacturer) {
  const std::string text = "The models [" + manufacturer.base + "] are announced ";
  const std::vector<std::string> &decorations = manufacturer.decorations;
  if (decorations.empty()) return text + "without a decoration, which is not for ";
  const std::size_t told = std::min(decorations.size(), kToldDecorations);
  std::string list;
  for (std::size_t i = 0; i < told; ++i) list += (i == 0 ? "for " : ", ") + decorations[i];
  if (told < decorations.size()) list += " and " + std::to_string(decorations.size() - told) + " more";
  return text + list + ", of which none is for ";
}

// Why a line that lists the device is not for the target.
std::string OtherSystems(FileSearch *search, const Match &match) {
  const ManufacturerLine &manufacturer = search->manufacturers[match.manufacturer];
  const machine::InfFile &file = *search->inf.file;
  const std::string target = TargetText(search->index.target);
  const std::string listing =
      "[" + std::string(machine::SectionName(file, file.sections[match.section])) + "] lists the device.";
  std::string name;
  const bool chosen = ChooseModels(manufacturer.base, manufacturer.decorations, search->index.target, &name);
  const bool missing = chosen && machine::FindSectionIndex(file, name) == machine::kInfNone;
  if (!chosen || (missing && name == manufacturer.base)) {
    return Announcement(manufacturer) + target + "; " + listing;
  }
  return "The models section [" + name + "] for " + target +
         (missing ? " is not there; " : " does not list the device; ") + listing;
}

Candidate MakeCandidate(FileSearch *search, const Match &match) {
  Candidate candidate = DescribeLine(search, match);
  const Judgement &judgement = JudgementOf(search, candidate.writtenSection);
  candidate.section = judgement.section;
  candidate.service = judgement.service;
  candidate.version = judgement.version;
  candidate.rank = {RankValue(match.score, judgement.featureScore, search->index.target), judgement.date,
                    ParseDriverVersion(judgement.version), search->inf.path};
  candidate.refusal = judgement.refusal;
  candidate.refusalText = judgement.refusalText;
  if (match.refusal == Refusal::kNone) return candidate;
  candidate.models = search->manufacturers[match.manufacturer].base;
  candidate.refusal = match.refusal;
  candidate.refusalText = OtherSystems(search, match);
  return candidate;
}

// Adds the candidates of a file. False when it has more lines for the device than are looked at.
bool SearchFile(FileSearch *search, std::vector<Candidate> *candidates) {
  search->manufacturers = ReadManufacturers(search->inf.file.get());
  search->taken.resize(search->inf.file->sections.size());
  for (std::size_t i = 0; i < search->manufacturers.size(); ++i) SearchManufacturer(search, i);
  std::vector<Match> &matches = search->matches;
  std::stable_sort(matches.begin(), matches.end(), [](const Match &a, const Match &b) {
    const bool refusedA = a.refusal != Refusal::kNone, refusedB = b.refusal != Refusal::kNone;
    return refusedA != refusedB ? refusedB : a.score < b.score;
  });
  const std::size_t count = std::min(matches.size(), kFileCandidates);
  for (std::size_t i = 0; i < count; ++i) candidates->push_back(MakeCandidate(search, matches[i]));
  return count == matches.size();
}

bool ReadIndexed(const Index &index, const std::string &path, bool inbox, InfSource *inf, std::string *reason) {
  if (!ReadInfSource(path, index.settings, inf, reason)) return false;
  inf->inbox = inbox;
  return true;
}

}  // namespace

const char *RefusalWord(Refusal refusal) {
  switch (refusal) {
    case Refusal::kNone:
      return nullptr;
    case Refusal::kDecoration:
      return "decoration";
    case Refusal::kSectionMissing:
      return "section-missing";
    case Refusal::kFileMissing:
      return "file-missing";
    case Refusal::kArchitecture:
      return "architecture";
    case Refusal::kExcluded:
      return "excluded";
    case Refusal::kDirective:
      return "directive";
    case Refusal::kCompressed:
      return "compressed";
    case Refusal::kNoBinary:
      return "no-binary";
  }
  return nullptr;
}

std::vector<Candidate> FindCandidates(const Index &index, const DeviceIds &device, const IncludePlaces &places,
                                      std::vector<UnreadFile> *unread) {
  std::vector<std::string> ids = device.hardware;
  ids.insert(ids.end(), device.compatible.begin(), device.compatible.end());
  std::vector<Candidate> candidates;
  for (const std::uint32_t number : FilesListing(index, ids)) {
    const IndexedFile &indexed = index.files[number];
    FileSearch search{.index = index, .device = device, .places = places};
    std::string reason;
    if (!ReadIndexed(index, indexed.path, indexed.inbox, &search.inf, &reason)) {
      unread->push_back({indexed.path, reason});
    } else if (!SearchFile(&search, &candidates)) {
      unread->push_back({indexed.path, "it has more lines for the device than are looked at"});
    }
  }
  // The running system's own drivers are made for another Windows, whatever their date; the restored one's are not.
  const auto turn = [&](const Candidate &candidate) {
    if (!candidate.inbox) return 0;
    return machine::SameName(ParentOf(candidate.rank.path, *index.settings), places.infDirectory) ? 1 : 2;
  };
  std::stable_sort(candidates.begin(), candidates.end(), [&turn](const Candidate &a, const Candidate &b) {
    const bool refusedA = a.refusal != Refusal::kNone, refusedB = b.refusal != Refusal::kNone;
    if (refusedA != refusedB) return refusedB;
    if (a.rank.value == b.rank.value && turn(a) != turn(b)) return turn(a) < turn(b);
    return Better(a.rank, b.rank);
  });
  return candidates;
}

bool ReadCandidate(const Candidate &candidate, const Index &index, const IncludePlaces &places,
                   Installation *installation, std::string *reason) {
  InfSource inf;
  return ReadIndexed(index, candidate.rank.path, candidate.inbox, &inf, reason) &&
         ReadInstallation(inf, candidate.writtenSection, index.target, places, installation, reason);
}

}  // namespace package
