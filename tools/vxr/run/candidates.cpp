#include "tools/vxr/run/candidates.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>

#include "platform/inf/inf_file.h"
#include "platform/text/code_page.h"
#include "tools/vxr/base/host_file.h"
#include "tools/vxr/base/machine_session.h"
#include "tools/vxr/base/refusal_text.h"
#include "tools/vxr/inf/inf_text.h"

namespace {

constexpr int kDepthMax = 8;              // folders below a searched one
constexpr std::size_t kFilesMax = 50000;  // INF files looked into for one device

constexpr unsigned kAnyLanguage = 0x0409;  // ids and names of sections are hardly ever translated

using IdOrder = machine::NameTable<std::size_t>;  // a device's ids, by the machine's code page; best is 0

// --- The files at hand -----------------------------------------------------------------------------------------------

struct FoundFile {
  std::string path;  // as the run would name it
  std::filesystem::path host;
  bool below = false;  // in a folder below the searched one
};

bool IsInfName(const std::string &name) {
  constexpr std::string_view kEnding = ".inf";
  return name.size() > kEnding.size() &&
         machine::SameName(std::string_view(name).substr(name.size() - kEnding.size()), kEnding);
}

// Links are not followed: they may lead anywhere, and back.
void ListInfFiles(const std::filesystem::path &host, const std::string &path, int depth,
                  std::vector<FoundFile> *files) {
  std::error_code error;
  std::vector<std::filesystem::directory_entry> entries;
  for (std::filesystem::directory_iterator at(host, error), end; !error && at != end; at.increment(error)) {
    entries.push_back(*at);
  }
  std::sort(entries.begin(), entries.end());
  for (const auto &entry : entries) {
    if (files->size() == kFilesMax) return;
    const std::string name = HostName(entry.path().filename());
    const std::filesystem::file_status status = entry.symlink_status(error);
    if (std::filesystem::is_regular_file(status) && IsInfName(name)) {
      files->push_back({path + "\\" + name, entry.path(), depth > 0});
    } else if (std::filesystem::is_directory(status) && depth < kDepthMax) {
      ListInfFiles(entry.path(), path + "\\" + name, depth + 1, files);
    }
  }
}

// --- What a file lists -----------------------------------------------------------------------------------------------

struct Listing {
  std::size_t best = SIZE_MAX;           // the device's best id that the file lists
  std::vector<std::string> decorations;  // of the models sections that list one; empty text: undecorated
  bool modern = false;
};

bool ListsAny(machine::InfFile *inf, const machine::InfSection &models, const IdOrder &ids, Listing *listing) {
  bool any = false;
  for (const machine::InfLine &line : models.lines) {
    for (std::uint32_t field = 2; field <= line.valueCount; ++field) {
      const auto id = ids.find(machine::FieldText(inf, models, line, field));
      if (id == ids.end()) continue;
      listing->best = std::min(listing->best, id->second);
      any = true;
    }
  }
  return any;
}

// All models sections of one name, whatever system each is for.
void LookThrough(machine::InfFile *inf, const std::string &name, const IdOrder &ids, Listing *listing) {
  const std::string dotted = name + ".";
  for (std::uint32_t i = 0; i < inf->sections.size(); ++i) {
    const std::string section(machine::SectionName(*inf, inf->sections[i]));
    const bool plain = machine::SameName(section, name);
    if (!plain && !machine::SameName(section.substr(0, dotted.size()), dotted)) continue;
    if (ListsAny(inf, machine::ParsedSection(inf, i), ids, listing)) {
      listing->decorations.push_back(plain ? "" : section.substr(dotted.size()));
    }
  }
}

// Nothing when the file cannot be read or lists no id of the device.
std::optional<Listing> ReadListing(const std::filesystem::path &file,
                                   const std::shared_ptr<const machine::InfSettings> &settings, const IdOrder &ids) {
  std::string reason;
  const std::shared_ptr<machine::InfFile> inf = ReadInfText(HostName(file), settings, &reason);
  const machine::InfSection *makers = inf == nullptr ? nullptr : machine::FindSection(inf.get(), "Manufacturer");
  if (makers == nullptr) return std::nullopt;
  Listing listing;
  listing.modern = machine::IsModernInf(inf.get());
  for (const machine::InfLine &maker : makers->lines) {
    if (maker.valueCount != 0) LookThrough(inf.get(), machine::FieldText(inf.get(), *makers, maker, 1), ids, &listing);
  }
  return listing.best == SIZE_MAX ? std::nullopt : std::optional<Listing>(std::move(listing));
}

// --- Decorations in plain words --------------------------------------------------------------------------------------

// Of "NTamd64.6.1...": the processor and the version, each empty where the decoration leaves it open.
struct System {
  std::string processor, version;
};

System SystemOf(std::string_view decoration) {
  System system;
  if (decoration.size() < 2) return system;
  decoration.remove_prefix(2);  // NT
  const std::size_t dot = decoration.find('.');
  system.processor = machine::ToUpper(decoration.substr(0, dot));
  if (dot == std::string_view::npos) return system;
  decoration.remove_prefix(dot + 1);
  const std::size_t minor = decoration.find('.');
  system.version = decoration.substr(0, minor == std::string_view::npos ? minor : decoration.find('.', minor + 1));
  return system;
}

std::string ProcessorName(const std::string &processor) {
  return processor == "AMD64" ? "x64" : processor == "IA64" ? "Itanium" : processor == "X86" ? "x86" : processor;
}

template <typename Function>
std::string Several(const std::vector<std::string> &decorations, Function name) {
  std::vector<std::string> names;
  for (const std::string &decoration : decorations) {
    const std::string text = name(SystemOf(decoration));
    if (!text.empty() && std::find(names.begin(), names.end(), text) == names.end()) names.push_back(text);
  }
  std::string list;
  for (std::size_t i = 0; i < names.size(); ++i)
    list += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
  return list;
}

// Why sections with these decorations are not for the restored system.
std::string NotForRestored(const Listing &listing, const std::vector<std::string> &targets) {
  if (targets.empty()) return "the restored system's version is not known or not supported";
  const System restored = SystemOf(targets.front());
  std::vector<std::string> rightProcessor;
  for (const std::string &decoration : listing.decorations) {
    const std::string processor = SystemOf(decoration).processor;
    if (processor.empty() || processor == restored.processor) rightProcessor.push_back(decoration);
  }
  if (rightProcessor.empty()) {
    return "for " + Several(listing.decorations, [](const System &s) { return ProcessorName(s.processor); }) +
           "; the restored system is " + ProcessorName(restored.processor);
  }
  const std::string versions = Several(rightProcessor, [](const System &s) { return s.version; });
  if (!versions.empty() && versions != restored.version) {
    return "needs " + versions + " exactly; the restored system is " + restored.version;
  }
  return "lists it for " + (rightProcessor.front().empty() ? "no named system" : rightProcessor.front()) +
         " alone; for the restored system " + targets.front() + " is the most that is looked for";
}

bool IsForRestored(const Listing &listing, const std::vector<std::string> &targets) {
  if (targets.empty()) return false;
  return std::any_of(listing.decorations.begin(), listing.decorations.end(), [&](const std::string &decoration) {
    const auto same = [&](const std::string &target) { return machine::SameName(target, decoration); };
    return decoration.empty() || std::any_of(targets.begin(), targets.end(), same);
  });
}

std::string NotForRunning(const Listing &listing) {
  constexpr const char *kNames[] = {"x86", "", "", "", "", "", "Itanium", "", "", "x64"};
  const std::uint32_t processor = VXRMachine_ProcessorArchitecture();
  std::string list;
  for (const std::string &decoration : listing.decorations) {
    list += (list.empty() ? "" : ", ") + (decoration.empty() ? "no named system" : decoration);
  }
  return "lists it for " + list + " alone, which its [Manufacturer] line does not choose for the running system" +
         (processor < std::size(kNames) ? std::string(" (") + kNames[processor] + ")" : "");
}

// --- Reasons ---------------------------------------------------------------------------------------------------------

std::string FileName(const std::string &path) { return path.substr(path.rfind('\\') + 1); }
std::string Folder(const std::string &path) { return path.substr(0, path.rfind('\\') + 1); }

std::string ReasonText(const std::string &inf, const Refusal &refusal, const Listing &listing,
                       const std::vector<std::string> &targets) {
  if (refusal.reason == VXRMACHINE_REFUSED_RUNNING_SYSTEM) return NotForRunning(listing);
  if (refusal.reason == VXRMACHINE_REFUSED_RESTORED_SYSTEM) return NotForRestored(listing, targets);
  if (refusal.reason == VXRMACHINE_REFUSED_FILE_MISSING && machine::SameName(Folder(refusal.detail), Folder(inf))) {
    return FileName(refusal.detail) + " is not beside it";
  }
  return RefusalText(refusal.reason, refusal.detail);
}

Candidate Explain(const FoundFile &file, const Listing &listing, const std::vector<std::string> &ids,
                  const DeviceRecord &device) {
  Candidate candidate{file.path, ids[listing.best], "", ""};
  const auto tried = std::find_if(device.refusals.begin(), device.refusals.end(),
                                  [&](const auto &entry) { return machine::SameName(entry.first, file.path); });
  if (file.below) {
    candidate.reason = "in_folder_below";
    candidate.text = "lies in a folder below the one that is searched";
  } else if (tried == device.refusals.end()) {
    constexpr std::uint32_t kUnreadable = VXRMACHINE_REFUSED_UNREADABLE;
    candidate.reason = listing.modern ? "not_reached" : RefusalWord(kUnreadable);
    candidate.text = listing.modern ? "the search ended before it" : RefusalText(kUnreadable, "");
  } else {
    Refusal refusal = tried->second;
    // The running system looked first; that the file is not for the restored one either is what people can mend.
    if (refusal.reason == VXRMACHINE_REFUSED_RUNNING_SYSTEM && !IsForRestored(listing, device.targets)) {
      refusal.reason = VXRMACHINE_REFUSED_RESTORED_SYSTEM;
    } else if (refusal.reason == VXRMACHINE_REFUSED_RESTORED_SYSTEM && IsForRestored(listing, device.targets)) {
      refusal.reason = 0;  // memory ran out on the way
    }
    if (!refusal.id.empty() && refusal.reason > VXRMACHINE_REFUSED_RESTORED_SYSTEM) candidate.id = refusal.id;
    candidate.reason = RefusalWord(refusal.reason);
    candidate.text = ReasonText(file.path, refusal, listing, device.targets);
  }
  return candidate;
}

// What is wrong with a directory that was searched for a device, `deep` by rules that look below it as well; empty when
// there are INF files where they are sought.
std::string DirectoryProblem(const std::string &directory, const std::filesystem::path &host,
                             const std::vector<FoundFile> &files, bool deep) {
  std::error_code error;
  const auto own =
      std::find_if(files.begin(), files.end(), [deep](const FoundFile &file) { return deep || !file.below; });
  if (own != files.end()) return "";
  if (!IsMachinePath(directory)) {
    const bool ofHost = !directory.empty() && directory.front() == '/';
    return directory + (ofHost ? " is a path of this computer, not of the machine" : " names no drive of the machine") +
           ": name it by a drive of the machine, such as X:\\drivers";
  }
  if (host.empty() || !std::filesystem::exists(host, error)) {
    return directory + " does not exist on the machine: correct InfDir, or make the directory";
  }
  if (!std::filesystem::is_directory(host, error)) {
    return directory + " is no directory: without HardwareID, InfDir is the directory that holds the INF files";
  }
  if (files.empty()) return directory + " holds no INF file: put the driver's INF and files there";
  return directory +
         " itself holds no INF file, and the exact rules read no folders below it: let DriverRules be windows, or name "
         "the folder of the driver, such as " +
         files.front().path.substr(0, files.front().path.rfind('\\'));
}

void AddDirectoryProblem(std::string problem, RunRecord *record) {
  std::vector<std::string> &problems = record->problems;
  record->badDirectory = true;
  if (std::find(problems.begin(), problems.end(), problem) == problems.end()) problems.push_back(std::move(problem));
}

// The files in and below the directories searched; for an id that is looked for in one file alone, that file.
std::vector<FoundFile> FilesAtHand(const DeviceRecord &device, RunRecord *record) {
  std::vector<FoundFile> all;
  for (const std::string &directory : device.directories) {
    std::vector<FoundFile> files;
    const std::filesystem::path host = HostOf(directory);
    if (!host.empty()) ListInfFiles(host, directory, 0, &files);
    if (std::string problem = DirectoryProblem(directory, host, files, record->infFiles != 0); !problem.empty()) {
      AddDirectoryProblem(std::move(problem), record);
    }
    const auto alsoSearched = [&](const FoundFile &file) {
      return file.below && std::any_of(device.directories.begin(), device.directories.end(), [&](const auto &other) {
               return machine::SameName(other + "\\", Folder(file.path));
             });
    };
    std::remove_copy_if(files.begin(), files.end(), std::back_inserter(all), alsoSearched);
  }
  if (!device.directories.empty()) return all;
  for (const auto &[path, refusal] : device.refusals) {
    std::error_code error;
    const std::filesystem::path host = HostOf(path);
    if (std::filesystem::is_regular_file(host, error)) {
      all.push_back({path, host, false});
    } else {
      AddDirectoryProblem(path + " is no file of the machine: with HardwareID, InfDir is the path of one INF file",
                          record);
    }
  }
  return all;
}

void ExplainDevice(DeviceRecord *device, RunRecord *record) {
  const std::uint32_t codePage = VXRMachine_CodePage();
  machine::SetCodePage(codePage);
  const auto settings = machine::MakeInfSettings(codePage, kAnyLanguage);
  IdOrder ids;
  std::vector<std::string> names;
  for (const std::string &id : device->ids) {
    if (ids.try_emplace(machine::Utf8ToAnsi(id, codePage), names.size()).second) names.push_back(id);
  }
  for (const FoundFile &file : FilesAtHand(*device, record)) {
    const std::optional<Listing> listing = ReadListing(file.host, settings, ids);
    if (listing) device->candidates.push_back(Explain(file, *listing, names, *device));
  }
}

}  // namespace

void ExplainFailures(RunRecord *record) {
  for (DeviceRecord &device : record->devices) {
    if (!device.failed) continue;
    if (!device.choice) ExplainDevice(&device, record);
    if (!device.choice) continue;
    // The choice has said of each file why it was not taken; one that was has failed in its installation.
    for (const DriverCandidate &refused : device.choice->candidates) {
      if (refused.reason.empty()) continue;
      device.candidates.push_back({refused.inf, refused.id, refused.reason, refused.text});
    }
  }
}
