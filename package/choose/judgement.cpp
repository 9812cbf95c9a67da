#include "package/choose/judgement.h"

#include "package/read/sources.h"

namespace package {
namespace {

constexpr std::size_t kJudgedServices = 64;  // of one section; more than any driver has

void Refuse(Refusal refusal, const std::string &text, Judgement *judgement) {
  judgement->refusal = refusal;
  judgement->refusalText = text;
}

// The id of the device that the section excludes; empty when there is none.
std::string ExcludedId(const Installation &installation, const DeviceIds &device) {
  for (const std::string &id : installation.excludedIds) {
    if (HasId(device, id)) return id;
  }
  return {};
}

// Why DriverName gives none.
std::string NoDriverName(const ServiceLines &service) {
  const std::string own = " of the service " + service.name;
  if (!IsDriver(service)) return "The section [" + service.section + "]" + own + " makes it a program, no driver.";
  if (service.binary.empty()) return "The section [" + service.section + "]" + own + " names no ServiceBinary.";
  return "The ServiceBinary \"" + service.binary + "\"" + own + " is no file below the Windows directory.";
}

// The restored system may have a file that the package does not bring.
bool IsInSystem(const InfSource &inf, const IncludePlaces &places, const std::string &name) {
  if (places.infDirectory.empty()) return false;
  const std::string windows = ParentOf(places.infDirectory, *inf.file->settings);
  return platform::GetFileAttributesA((windows + "\\System32\\drivers\\" + name).c_str()) != INVALID_FILE_ATTRIBUTES;
}

void JudgeDriver(const Installation &installation, const ServiceLines &service, const std::string &name,
                 const Target &target, const IncludePlaces &places, Judgement *judgement) {
  bool listed = false;
  const SourceFile source = FindServiceFile(installation, service, name, target, &listed);
  const InfSource &inf = installation.infs[service.inf];
  const auto told = [&inf](const std::string &path) {
    const std::string folder = inf.directory + '\\';
    return machine::SameName(path.substr(0, folder.size()), folder) ? path.substr(folder.size()) : path;
  };
  const std::string of = " of the service " + service.name;
  const std::string file = "The file " + told(source.path) + of;
  ImageFacts facts;
  switch (source.state) {
    case SourceState::kFound:
      if (!ReadImageFacts(source.path, &facts)) {
        return Refuse(Refusal::kNoBinary, file + " is no driver, or cannot be read.", judgement);
      }
      if (facts.machine == ImageMachine(target)) return;
      return Refuse(Refusal::kArchitecture, file + " is for another processor.", judgement);
    case SourceState::kCompressed:
      return Refuse(Refusal::kCompressed, file + " is compressed, which is not unpacked.", judgement);
    case SourceState::kInCabinet:
      return Refuse(Refusal::kCompressed,
                    "The file " + name + of + " is in the cabinet " + told(source.path) + ", which is not unpacked.",
                    judgement);
    case SourceState::kMissing:
      if (listed || !IsInSystem(inf, places, name)) Refuse(Refusal::kFileMissing, file + " is missing.", judgement);
  }
}

void JudgeServices(const Installation &installation, const Target &target, const IncludePlaces &places,
                   Judgement *judgement) {
  const std::string section = "The section [" + installation.section + "]";
  const ServiceLines *function = FunctionDriver(installation);
  if (function == nullptr) {
    if (installation.noService) return;
    std::string text = section + " names no service for the device.";
    for (const std::string &sentence : installation.absent) text += " " + sentence;
    return Refuse(Refusal::kNoBinary, text, judgement);
  }
  judgement->service = function->name;
  std::string name;
  if (!DriverName(*function, &name)) {
    return Refuse(Refusal::kNoBinary, NoDriverName(*function), judgement);
  }
  if (installation.services.size() > kJudgedServices) {
    return Refuse(Refusal::kNoBinary, section + " has more services than a driver can need.", judgement);
  }
  for (const ServiceLines &service : installation.services) {
    if (judgement->refusal != Refusal::kNone) return;
    if (DriverName(service, &name)) JudgeDriver(installation, service, name, target, places, judgement);
  }
}

// A reason of the readers as a sentence.
std::string Sentence(std::string reason) {
  if (!reason.empty()) reason[0] = machine::UpperAscii(reason[0]);
  return reason + ".";
}

}  // namespace

Judgement JudgeSection(const InfSource &inf, const std::string &written, const DeviceIds &device, const Target &target,
                       const IncludePlaces &places) {
  Judgement judgement;
  judgement.section = written;
  Installation installation;
  std::string reason;
  const bool read = ReadInstallation(inf, written, target, places, &installation, &reason);
  if (!installation.section.empty()) judgement.section = installation.section;
  judgement.version = installation.version;
  judgement.date = ParseDriverDate(installation.date);
  judgement.featureScore = installation.featureScore;
  const std::string excluded = read ? ExcludedId(installation, device) : std::string();
  if (!read) {
    Refuse(installation.section.empty() ? Refusal::kSectionMissing : Refusal::kNoBinary, Sentence(reason), &judgement);
  } else if (!excluded.empty()) {
    Refuse(Refusal::kExcluded,
           "The section [" + judgement.section + "] excludes the device by its id " + excluded + ".", &judgement);
  } else {
    JudgeServices(installation, target, places, &judgement);
  }
  return judgement;
}

}  // namespace package
