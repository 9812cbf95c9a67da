#include "package/plan/plan.h"

#include <algorithm>

#include "engine/base/strings.h"
#include "package/plan/file_bytes.h"
#include "package/plan/plan_parts.h"
#include "package/plan/registry_lines.h"
#include "package/read/numbers.h"
#include "registry/boot_record.h"

namespace package {
namespace {

constexpr std::size_t kSentences = 1000;  // that are said of a package
constexpr char kOwners[] = "Owners";

void Say(std::set<std::string> *said, const std::string &sentence, std::vector<std::string> *list) {
  if (said->size() < kSentences && said->insert(sentence).second) list->push_back(sentence);
}

// The places as the restored system will name them when it runs.
RestoredPlaces OwnPlaces(const PlanContext &context) {
  const std::string drive = context.systemDrive.empty() ? "C:" : context.systemDrive;
  const auto own = [&](const std::string &path) {
    return machine::SameName(path.substr(0, context.places.root.size()), context.places.root)
               ? drive + path.substr(context.places.root.size())
               : path;
  };
  return {drive, own(context.places.windows), own(context.places.system), own(context.places.inf)};
}

// "{4D36E97B-E325-11CE-BFC1-08002BE10318}"; false for another text.
bool ParseGuid(const std::string &text, GUID *guid) {
  constexpr char kForm[] = "{########-####-####-####-############}";
  if (text.size() != sizeof kForm - 1) return false;
  std::vector<BYTE> digits;
  for (std::size_t i = 0; i < text.size(); ++i) {
    DWORD digit = 0;
    if (kForm[i] != '#' ? text[i] != kForm[i] : !ParseNumber("0x" + text.substr(i, 1), &digit)) return false;
    if (kForm[i] == '#') digits.push_back(static_cast<BYTE>(digit));
  }
  const auto number = [&](std::size_t first, std::size_t count) {
    DWORD value = 0;
    for (std::size_t i = first; i < first + count; ++i) value = value << 4 | digits[i];
    return value;
  };
  guid->Data1 = number(0, 8);
  guid->Data2 = static_cast<WORD>(number(8, 4));
  guid->Data3 = static_cast<WORD>(number(12, 4));
  for (std::size_t i = 0; i < 8; ++i) guid->Data4[i] = static_cast<BYTE>(number(16 + 2 * i, 2));
  return true;
}

// The tokens of the texts and what the file says for them.
void AddStrings(const std::string &text, machine::InfFile *file, BootRecord *record) {
  for (std::size_t at = text.find('%'); at != std::string::npos; at = text.find('%', at + 1)) {
    const std::size_t end = text.find('%', at + 1);
    if (end == std::string::npos) return;
    const std::string name = text.substr(at + 1, end - at - 1);
    const auto same = [&](const auto &known) { return machine::SameName(known.first, name); };
    if (!name.empty() && std::none_of(record->strings.begin(), record->strings.end(), same)) {
      record->strings.emplace_back(name, machine::ReplaceTokens(file, '%' + name + '%'));
    }
    at = end;
  }
}

bool HasCatalog(const Work &work) {
  const std::string &catalog = work.installation.catalog;
  return !catalog.empty() &&
         FindSource(work.installation.infs.front(), catalog, work.context.target).state == SourceState::kFound;
}

// What of the record the model line and the section give.
BootRecord RecordOf(const Work &work) {
  const Candidate &candidate = work.candidate;
  const Installation &installation = work.installation;
  const InfSource &inf = installation.infs.front();
  const Target &target = work.context.target;
  BootRecord record;
  record.service = FunctionDriver(installation)->name;
  if (!ParseGuid(candidate.classGuid, &record.classGuid)) record.classGuid = work.context.classGuid;
  for (std::size_t i = 0; i < candidate.lineIds.size(); ++i) {
    const std::string &id = candidate.lineIds[i];
    if (HasId(work.context.device, id)) record.ids.push_back({id, i});
  }
  record.upperFilters = work.upperFilters;
  record.lowerFilters = work.lowerFilters;
  record.architecture = target.architecture;
  record.configScope = AtLeast(target, 10, 0);
  const char *name = LastBackslash(inf.path.c_str());
  record.infName = name != nullptr ? name + 1 : inf.path;
  record.infPath = inf.directory;
  if (HasCatalog(work)) record.catalog = installation.catalog;
  record.section = candidate.writtenSection;
  record.provider = candidate.provider;
  record.description = candidate.rawDescription;
  record.manufacturer = candidate.rawManufacturer;
  AddStrings(record.description, inf.file.get(), &record);
  AddStrings(record.manufacturer, inf.file.get(), &record);
  record.includes = installation.includes;
  record.featureScore = installation.featureScore;
  record.date = candidate.rank.date;
  record.version = candidate.rank.version;
  record.configuration = work.configuration;
  return record;
}

// Each service names the INF files that it comes from.
void PlanOwners(const std::string &publishedName, Work *work) {
  if (publishedName.empty()) return;
  std::string binary;
  for (const ServiceLines &service : work->installation.services) {
    if (!DriverName(service, &binary)) continue;
    const std::string key = ServiceKey(*work, service.name);
    RegistryData old;
    std::vector<std::string> owners;
    if (ReadValue(work->edits, key, kOwners, &old) && old.type == REG_MULTI_SZ) owners = ListTexts(old);
    if (Lists(owners, publishedName)) continue;
    owners.push_back(publishedName);
    SetValue(&work->edits, key, kOwners, ListData(owners));
  }
}

// What becomes of a key and all below it.
void TakeOverKey(const std::string &top, const RegistryEdits &work, RegistryEdits *edits) {
  std::vector<std::string> keys = {top};
  while (!keys.empty()) {
    const std::string key = std::move(keys.back());
    keys.pop_back();
    if (!KeyExists(*edits, key)) continue;
    if (!KeyExists(work, key)) {
      DeleteKey(edits, key);
      continue;
    }
    RegistryData data;
    for (const std::string &name : ValueNames(*edits, key)) {
      if (!ReadValue(work, key, name, &data)) DeleteValue(edits, key, name);
    }
    for (const std::string &below : SubKeys(*edits, key)) keys.push_back(key + '\\' + below);
  }
}

// Takes over what `work`, which goes on from `*edits`, makes of the hive, without what it changes in between: what a
// package deletes and then writes again is no change when it is there already.
void TakeOver(const RegistryEdits &work, RegistryEdits *edits) {
  const std::size_t before = edits->list.size();
  std::set<std::pair<std::string, std::string>> seen;
  for (std::size_t i = before; i < work.list.size(); ++i) {
    const RegistryEdit &edit = work.list[i];
    if (edit.kind == RegistryEdit::Kind::kDeleteKey) {
      TakeOverKey(edit.key, work, edits);
      continue;
    }
    if (!KeyExists(work, edit.key)) continue;
    if (edit.kind == RegistryEdit::Kind::kCreateKey) {
      CreateKey(edits, edit.key);
      continue;
    }
    if (!seen.emplace(machine::FoldAnsiName(edit.key), machine::FoldAnsiName(edit.name)).second) continue;
    RegistryData data;
    if (ReadValue(work, edit.key, edit.name, &data)) {
      SetValue(edits, edit.key, edit.name, data);
    } else {
      DeleteValue(edits, edit.key, edit.name);
    }
  }
}

void CheckCatalog(Work *work) {
  Plan *plan = work->plan;
  plan->fromPackage = !work->installation.infs.front().inbox;
  plan->hasCatalog = HasCatalog(*work);
  if (!plan->fromPackage || plan->hasCatalog) return;
  const std::string &catalog = work->installation.catalog;
  Warn(work, (catalog.empty() ? "The package names no catalogue"
                              : "The catalogue " + catalog + " of the package is missing") +
                 ", so Windows will count it as unsigned.");
}

// What lets the kernel find the driver for the device. False, with the reason, when it cannot be recorded.
bool PlanRecord(Work *work, PlanRefusal *refusal) {
  const BootRecord record = RecordOf(*work);
  std::string *name = &work->plan->publishedName;
  name->clear();
  if (!work->context.automaticRecord) {
    if (HasDriverDatabase(work->edits)) {
      Warn(work, "The restored system does not read the record that the job asks for: set its BootRecord to auto.");
    }
    PlanCriticalDevices(record, work->context.controlSet, &work->edits);
    return true;
  }
  if (!PlanBootRecord(record, work->context.controlSet, work->context.places.inf, &work->edits, name, &refusal->text)) {
    refusal->kind = Refusal::kSectionMissing;
    return false;
  }
  PlanOwners(*name, work);
  return true;
}

void Begin(Work *work) {
  work->edits = work->plan->edits;
  work->own = OwnPlaces(work->context);
  for (std::size_t i = 0; i < work->plan->files.size(); ++i) {
    work->targets.emplace(machine::FoldAnsiName(work->plan->files[i].target), i);
  }
  work->directories = PlannedDirectories(work->context, *work->plan);
}

bool PlanParts(Work *work, PlanRefusal *refusal) {
  if (!CheckServices(work, refusal) || !PlanFiles(work, refusal)) return false;
  CheckCatalog(work);
  PlanInstallLines(work);
  if (!PlanServices(work, refusal)) return false;
  PlanHardwareLines(work);
  return PlanRecord(work, refusal);
}

// A service that the system has: its file in its place, and nothing that holds it back.
void EnableService(const OwnService &service, const PlanContext &context, Plan *plan) {
  DWORD64 size = 0;
  if (!service.storedBinary.empty()) {
    if (ReadableSize(service.storedBinary, &size)) {
      AddFile({service.storedBinary, service.binary, size, true}, context, plan);
    } else {
      plan->warnings.push_back("The file " + service.storedBinary + " of the service " + service.name +
                               " cannot be read.");
    }
  }
  PlanServiceStart(service.name, &plan->edits);
}

// Whether it is a device that a bus has found, and not one of the board, which the HAL or ACPI itself serves.
bool IsBusDevice(const std::string &id) { return BeginsWith(id.c_str(), "PCI\\") || BeginsWith(id.c_str(), "VMBUS\\"); }

void EnableOwnDriver(const OwnDriver &driver, const PlanContext &context, Plan *plan) {
  if (!driver.service.empty()) {
    EnableService({driver.service, driver.binary, driver.storedBinary, driver.heldBack}, context, plan);
  }
  for (const OwnService &filter : driver.filters) EnableService(filter, context, plan);
}

}  // namespace

bool Refuse(PlanRefusal *refusal, Refusal kind, std::string text) {
  *refusal = {kind, std::move(text)};
  return false;
}

void Warn(Work *work, const std::string &sentence) { Say(&work->said, sentence, &work->plan->warnings); }
void Note(Work *work, const std::string &sentence) { Say(&work->said, sentence, &work->plan->notes); }

bool IsFunctionDriver(const Work &work, const ServiceLines &service) {
  return FunctionDriver(work.installation) == &service;
}

bool PlanPackage(const Candidate &candidate, const Installation &installation, const PlanContext &context, Plan *plan,
                 PlanRefusal *refusal) {
  Work work{.candidate = candidate, .installation = installation, .context = context, .plan = plan};
  for (const std::string &note : installation.notes) Note(&work, note);
  const ServiceLines *function = FunctionDriver(installation);
  if (function == nullptr) {
    if (installation.noService) return true;
    return Refuse(refusal, Refusal::kNoBinary,
                  "The section " + installation.section + " names no service for the device.");
  }
  plan->service = function->name;
  Begin(&work);
  const bool planned = PlanParts(&work, refusal);
  if (planned) TakeOver(work.edits, &plan->edits);
  if (!work.edits.unread.empty()) plan->edits.unread = work.edits.unread;
  if (plan->edits.unread.empty()) return planned;
  return Refuse(refusal, Refusal::kNone, "The restored system's hive could not be read: " + plan->edits.unread);
}

void PlanOwnDriver(const OwnDriver &driver, const PlanContext &context, Plan *plan) {
  plan->service = driver.service;
  EnableOwnDriver(driver, context, plan);
}

void PlanOwnDriverBeside(const OwnDriver &driver, const PlanContext &context, Plan *plan) {
  if (driver.service.empty() || machine::SameName(driver.service, plan->service)) return;
  if (driver.heldBack) {
    plan->notes.push_back("The restored system's own driver " + driver.service +
                          " is let start as well, since Windows may prefer it.");
  }
  EnableOwnDriver(driver, context, plan);
}

void PlanDevicesAbove(const std::vector<DeviceIds> &above, const PlanContext &context, Plan *plan) {
  for (const DeviceIds &device : above) {
    OwnDriver driver;
    if (FindOwnDriver(plan->edits, context.controlSet, device, context.target, context.places, &driver)) {
      EnableOwnDriver(driver, context, plan);
    } else if (!device.hardware.empty() && IsBusDevice(device.hardware.front())) {
      plan->warnings.push_back("The restored system has no driver of its own for " + device.hardware.front() +
                               ", which the disk hangs off: without one the disk is not found at the start.");
    }
  }
}

}  // namespace package
