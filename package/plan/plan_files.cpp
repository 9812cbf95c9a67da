// The files of a package: which are copied where, and what a service's own must be.
#include <algorithm>

#include "engine/base/strings.h"
#include "package/plan/file_bytes.h"
#include "package/plan/plan_parts.h"

namespace package {
namespace {

// Flags of a line of a copy list.
constexpr DWORD kNoSkip = 0x2, kNoOverwrite = 0x10, kNoVersionDialog = 0x20, kOverwriteOlderOnly = 0x40;
constexpr DWORD kReplaceOnly = 0x400;

const char *StateText(SourceState state) {
  switch (state) {
    case SourceState::kCompressed:
      return "is compressed, which is not unpacked";
    case SourceState::kInCabinet:
      return "is in a cabinet, which is not unpacked";
    default:
      return "is missing";
  }
}

bool IsServiceFile(const Work &work, const std::string &target) {
  for (const ServiceLines &service : work.installation.services) {
    std::string name;
    if (DriverName(service, &name) && machine::SameName(DriverPath(work.context.places, name), target)) {
      return true;
    }
  }
  return false;
}

// What will be at the target before this plan is carried out: the file that an earlier one puts there, else its own.
const std::string &ContentOf(const std::string &target, const PlanContext &context) {
  const std::vector<PlannedFile> &files = context.earlierFiles;
  const auto same = [&](const PlannedFile &file) { return machine::SameName(file.target, target); };
  const auto found = std::find_if(files.rbegin(), files.rend(), same);
  return found != files.rend() ? found->source : target;
}

bool Exists(const std::string &path) { return platform::GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

// Whether the line's flags leave an existing, or a missing, target alone.
bool LeftAlone(const FileLine &file, const std::string &source, const std::string &target) {
  if (!Exists(target)) return (file.flags & kReplaceOnly) != 0;
  if ((file.flags & kNoOverwrite) != 0) return true;
  return (file.flags & (kNoVersionDialog | kOverwriteOlderOnly)) != 0 && FileVersion(target) > FileVersion(source);
}

void PlanListedFile(const FileLine &file, Work *work) {
  const InfSource &inf = work->installation.infs[file.inf];
  std::string target, reason;
  if (!ResolveTarget(inf, file, work->context.places, &target, &reason)) {
    return Note(work, "The file " + file.target + " is not copied: " + reason);
  }
  const bool serves = IsServiceFile(*work, target);
  const SourceFile source = FindSource(inf, file.source, work->context.target);
  if (source.state != SourceState::kFound) {
    // What a service lacks is found out with the service; the files of inbox INF files are in the system.
    if (!serves && !inf.inbox) Warn(work, "The file " + source.path + " " + StateText(source.state) + ".");
    return;
  }
  if (LeftAlone(file, source.path, ContentOf(target, work->context))) {
    if (!serves) return Note(work, "The file " + target + " stays as it is, as the package asks.");
    if ((file.flags & kReplaceOnly) == 0) {
      Warn(work, "The file " + target + " may be newer, and is replaced by the package's: the service needs that.");
    }
  }
  if (source.elsewhere) Note(work, "The file " + source.path + " is not where the package says.");
  PlanFile(source.path, target, source.size, serves || (file.flags & kNoSkip) != 0, work);
}

// The number of the planned file with that target; none when there is none.
std::optional<std::size_t> PlannedTarget(const Work &work, const std::string &target) {
  const auto found = work.targets.find(machine::FoldAnsiName(target));
  return found == work.targets.end() ? std::nullopt : std::optional(found->second);
}

std::string VersionText(DWORD major, DWORD minor) { return std::to_string(major) + "." + std::to_string(minor); }

// Judges the image of a service by its headers. False when it is for another processor.
bool CheckImage(const ServiceLines &service, const std::string &path, bool bootStart, Work *work,
                PlanRefusal *refusal) {
  const Target &target = work->context.target;
  ImageFacts facts;
  if (!ReadImageFacts(path, &facts)) {
    Warn(work, "The file " + path + " of the service " + service.name + " is no driver that can be looked at.");
    return true;
  }
  if (facts.machine != ImageMachine(target)) {
    return Refuse(refusal, Refusal::kArchitecture,
                  "The file " + path + " of the service " + service.name + " is for another processor.");
  }
  if (facts.subsystemMajor > target.major ||
      (facts.subsystemMajor == target.major && facts.subsystemMinor > target.minor)) {
    Warn(work, "The file " + path + " is made for Windows " + VersionText(facts.subsystemMajor, facts.subsystemMinor) +
                   ", the restored system is " + VersionText(target.major, target.minor) + ".");
  }
  if (IsFunctionDriver(*work, service)) work->plan->signedInside = facts.signedInside;
  const bool checked = target.architecture != kX86 && AtLeast(target, 6, 0);
  if (bootStart && checked && !facts.signedInside) {
    Warn(work, "The file " + path + " holds no signature: the restored system may refuse to start with it.");
  }
  return true;
}

// A service's file comes from a copy list, else from where the package has it, else it is in the system already.
bool PlanServiceFile(const ServiceLines &service, Work *work, PlanRefusal *refusal) {
  std::string name;
  if (!DriverName(service, &name)) return true;
  const std::string target = DriverPath(work->context.places, name);
  std::string image = ContentOf(target, work->context);
  if (const std::optional<std::size_t> planned = PlannedTarget(*work, target)) {
    PlannedFile &file = work->plan->files[*planned];
    file.needed = true;
    image = file.source;
  } else {
    const SourceFile source = FindServiceFile(work->installation, service, name, work->context.target);
    if (source.state == SourceState::kFound) {
      PlanFile(source.path, target, source.size, true, work);
      image = source.path;
    } else if (!Exists(image)) {
      return Refuse(
          refusal, source.state == SourceState::kMissing ? Refusal::kFileMissing : Refusal::kCompressed,
          "The file " + source.path + " of the service " + service.name + " " + StateText(source.state) + ".");
    } else if (!work->installation.infs[service.inf].inbox) {
      Note(work, "The package brings no " + name + ": the one in the restored system is used.");
    }
  }
  const bool bootStart = IsFunctionDriver(*work, service) || service.start.value_or(0) == 0;
  return CheckImage(service, image, bootStart, work, refusal);
}

void CheckStoreFiles(Work *work) {
  for (const FileLine &file : work->installation.files) {
    const InfSource &inf = work->installation.infs[file.inf];
    std::string target, reason;
    if (!GoesToStore(inf, file) || !ResolveTarget(inf, file, work->context.places, &target, &reason) ||
        IsServiceFile(*work, target)) {
      continue;
    }
    return Warn(work, "The package is made to run from the driver store and has more files than its drivers, such as " +
                          file.target + ", which may not be found beside them.");
  }
}

// The directories above the target that are missing, the topmost first.
void PlanDirectories(const std::string &target, const std::string &root, std::set<std::string> *known, Plan *plan) {
  std::vector<std::string> missing;
  std::string directory = target;
  for (;;) {
    const char *end = LastBackslash(directory.c_str());
    const auto length = static_cast<std::size_t>(end != nullptr ? end - directory.c_str() : 0);
    if (length <= root.size()) break;
    directory.resize(length);
    if (!known->insert(machine::FoldAnsiName(directory)).second || Exists(directory)) break;
    missing.push_back(directory);
  }
  plan->directories.insert(plan->directories.end(), missing.rbegin(), missing.rend());
}

}  // namespace

std::set<std::string> PlannedDirectories(const PlanContext &context, const Plan &plan) {
  std::set<std::string> planned;
  for (const std::string &directory : context.earlierDirectories) planned.insert(machine::FoldAnsiName(directory));
  for (const std::string &directory : plan.directories) planned.insert(machine::FoldAnsiName(directory));
  return planned;
}

void AddFile(const PlannedFile &file, const PlanContext &context, Plan *plan) {
  const auto same = [&](const PlannedFile &other) { return machine::SameName(other.target, file.target); };
  if (std::any_of(plan->files.begin(), plan->files.end(), same) ||
      SameBytes(file.source, ContentOf(file.target, context))) {
    return;
  }
  std::set<std::string> known = PlannedDirectories(context, *plan);
  PlanDirectories(file.target, context.places.root, &known, plan);
  plan->files.push_back(file);
}

void PlanFile(const std::string &source, const std::string &target, DWORD64 size, bool needed, Work *work) {
  if (target.size() >= MAX_PATH || source.size() >= MAX_PATH) {
    return Warn(work, "The file " + target + " is not copied, since its path is too long.");
  }
  const PlannedFile file = {source, target, size, needed};
  if (const std::optional<std::size_t> planned = PlannedTarget(*work, target)) {
    work->plan->files[*planned] = file;  // the later of two files of one name holds
    return;
  }
  if (SameBytes(source, ContentOf(target, work->context))) return;
  PlanDirectories(target, work->context.places.root, &work->directories, work->plan);
  work->targets.emplace(machine::FoldAnsiName(target), work->plan->files.size());
  work->plan->files.push_back(file);
}

bool PlanFiles(Work *work, PlanRefusal *refusal) {
  if (work->installation.files.size() > kPlannedLines) {
    return Refuse(refusal, Refusal::kNoBinary, "The package copies more files than a driver can need.");
  }
  for (const FileLine &file : work->installation.files) PlanListedFile(file, work);
  for (const ServiceLines &service : work->installation.services) {
    if (!PlanServiceFile(service, work, refusal)) return false;
  }
  CheckStoreFiles(work);
  return true;
}

}  // namespace package
