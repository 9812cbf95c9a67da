// Where the registry lines of a package go: below a service's key, elsewhere in the mounted hive, into the record of
// the device, or nowhere.
#include <algorithm>

#include "log/characters.h"
#include "package/plan/plan_parts.h"
#include "package/plan/registry_lines.h"
#include "package/read/numbers.h"

namespace package {
namespace {

// Components of a key that may be deleted: a service, but not a control set or what all drivers share, such as its
// Control\Class.
constexpr std::size_t kServiceLevel = 3, kDeletableLevel = 4;
constexpr std::size_t kLongestId = 16;  // characters of a directory id with a percent sign

// Where a line's key is.
struct LineKey {
  enum class Place { kHive, kRecord, kElsewhere, kWrong };
  Place place = Place::kWrong;
  std::vector<std::string> components;  // below the hive's root, or the device's part of the record
  std::string what;                     // elsewhere or wrong: why, to end a sentence
};

// The key that HKR means for a list of lines.
struct RelativeRoot {
  std::string key;       // in the hive; empty: it is not there
  std::string record;    // below the record's configuration; empty: it has no part
  std::string notThere;  // what is said of lines below a key that is neither
};

std::string LineText(const RegistryLine &line) {
  return "the line for \"" + line.root + "\\" + line.key + "\" \"" + line.name + "\" in section " + line.section;
}

LineKey InSystem(std::vector<std::string> components, const PlanContext &context) {
  components.erase(components.begin());
  if (components.empty()) return {LineKey::Place::kWrong, {}, "the root of the hive is no place for it"};
  if (machine::SameName(components[0], "CurrentControlSet")) components[0] = context.controlSet;
  return {LineKey::Place::kHive, std::move(components), {}};
}

LineKey FindKey(const RegistryLine &line, const std::string &key, const RelativeRoot &relative,
                const PlanContext &context) {
  LineKey found;
  if (!KeyComponents(key, &found.components)) {
    found.what = "its key cannot be named so";
    return found;
  }
  if (machine::SameName(line.root, "HKLM")) {
    if (!found.components.empty() && machine::SameName(found.components[0], "SYSTEM")) {
      return InSystem(std::move(found.components), context);
    }
    return {LineKey::Place::kElsewhere, {}, "it is not for the system's hive"};
  }
  if (machine::SameName(line.root, "HKR")) {
    if (!relative.key.empty()) {
      std::vector<std::string> whole;
      KeyComponents(relative.key, &whole);
      whole.insert(whole.end(), found.components.begin(), found.components.end());
      return {LineKey::Place::kHive, std::move(whole), {}};
    }
    if (!relative.record.empty()) return {LineKey::Place::kRecord, std::move(found.components), {}};
    return {LineKey::Place::kElsewhere, {}, relative.notThere};
  }
  for (const char *root : {"HKCR", "HKCU", "HKU"}) {
    if (machine::SameName(line.root, root)) return {LineKey::Place::kElsewhere, {}, "it is not for the system's hive"};
  }
  found.what = "\"" + line.root + "\" is no root of the registry";
  return found;
}

// "ControlSet001\Control\Class\{...}".
bool IsClassKey(const std::vector<std::string> &components) {
  return components.size() == 4 && machine::SameName(components[1], "Control") &&
         machine::SameName(components[2], "Class") && components[3].front() == '{';
}

bool IsFilterList(const std::string &name) {
  return machine::SameName(name, "UpperFilters") || machine::SameName(name, "LowerFilters");
}

// The filters whose services will be there; a class or device whose filter cannot be loaded does not start.
std::vector<std::string> UsableFilters(const std::vector<std::string> &filters, const RegistryLine &line, Work *work) {
  std::vector<std::string> usable;
  for (const std::string &filter : filters) {
    if (HasService(*work, filter)) {
      usable.push_back(filter);
    } else {
      Warn(work, "The filter " + filter + " has no service: it is left out of " + LineText(line) + ".");
    }
  }
  return usable;
}

// False when nothing is left to write.
bool CheckClassFilter(const RegistryLine &line, RegistryChange *change, Work *work) {
  const bool sets = change->kind == RegistryChange::Kind::kSetValue;
  if (!sets && change->kind != RegistryChange::Kind::kAppendTexts) return true;
  std::vector<std::string> filters = change->texts;
  if (sets && change->data.type != REG_MULTI_SZ) {
    Warn(work, "A list of class filters is given as another type: " + LineText(line) + " is left out.");
    return false;
  }
  filters = UsableFilters(filters, line, work);
  if (filters.empty()) return false;
  if (sets) Warn(work, "The class filters that are there already are replaced by " + LineText(line) + ".");
  change->texts = filters;
  change->data = ListData(filters);
  return true;
}

bool MayDelete(const LineKey &key, const RelativeRoot &relative) {
  const std::size_t levels = key.components.size();
  const bool service = levels == kServiceLevel && machine::SameName(key.components[1], "Services");
  return (service || levels >= kDeletableLevel) && !machine::SameName(JoinComponents(key.components), relative.key);
}

void PlanInHive(const RegistryLine &line, const LineKey &key, const RelativeRoot &relative, RegistryChange *change,
                Work *work) {
  if (change->kind == RegistryChange::Kind::kDeleteKey && !MayDelete(key, relative)) {
    return Warn(work, "A key that others need is not deleted: " + LineText(line) + " is left out.");
  }
  if (IsClassKey(key.components) && IsFilterList(line.name) && !CheckClassFilter(line, change, work)) return;
  if (!PlanChange(*change, JoinComponents(key.components), line.name, &work->edits)) {
    Warn(work, "A value would be too large: " + LineText(line) + " is left out.");
  }
}

// A value of the record, which the lines alone make: what the hive has does not count.
void PlanInRecord(const RegistryChange &change, const std::string &key, const std::string &name, Work *work) {
  const auto same = [&](const RegistryEdit &edit) {
    return machine::SameName(edit.name, name) && machine::SameName(edit.key, key);
  };
  const auto found = std::find_if(work->configuration.begin(), work->configuration.end(), same);
  const bool present = found != work->configuration.end();
  RegistryEdit edit{RegistryEdit::Kind::kSetValue, key, name, {}};
  if (!ChangedValue(change, present, present ? found->data : edit.data, &edit.data)) return;
  if (edit.data.bytes.size() > kValueBytesMax / 2) return;
  if (present) {
    found->data = edit.data;
  } else {
    work->configuration.push_back(edit);
  }
}

void PlanDeviceFilters(const RegistryLine &line, const RegistryChange &change, Work *work) {
  std::vector<std::string> &filters =
      machine::SameName(line.name, "UpperFilters") ? work->upperFilters : work->lowerFilters;
  if (change.data.type != REG_MULTI_SZ && change.data.type != REG_SZ) return;
  const std::vector<std::string> given =
      change.data.type == REG_MULTI_SZ ? change.texts : ListTexts({REG_MULTI_SZ, change.data.bytes});
  for (const std::string &filter : UsableFilters(given, line, work)) {
    if (!Lists(filters, filter)) filters.push_back(filter);
    if (!StartsAtBoot(*work, filter)) {
      Warn(work, "The filter " + filter + " of " + LineText(line) +
                     " does not start with the system: the disk may then not be found at the start.");
    }
  }
}

void PlanOnDevice(const RegistryLine &line, const LineKey &key, const RelativeRoot &relative,
                  const RegistryChange &change, Work *work) {
  const bool sets = change.kind == RegistryChange::Kind::kSetValue || change.kind == RegistryChange::Kind::kAppendTexts;
  if (sets && key.components.empty() && IsFilterList(line.name)) return PlanDeviceFilters(line, change, work);
  if (key.components.empty()) return Note(work, relative.notThere);
  PlanInRecord(change, relative.record + '\\' + JoinComponents(key.components), line.name, work);
}

void PlanLine(RegistryLine line, const RelativeRoot &relative, Work *work) {
  if (++work->lines > kPlannedLines) {
    return Warn(work, "The package has more registry lines than a driver needs; the rest of them is left out.");
  }
  for (std::string *text : {&line.key, &line.name}) *text = OwnText(*work, *text);
  for (std::string &text : line.data) text = OwnText(*work, text);
  LineKey key = FindKey(line, line.key, relative, work->context);
  if (key.place == LineKey::Place::kElsewhere) {
    return Note(work, "Lines of section " + line.section + " are passed over, since " + key.what + ".");
  }
  RegistryChange change;
  std::string problem = key.what;
  const bool usable = key.place != LineKey::Place::kWrong && ReadRegistryLine(line, &change, &problem);
  if (!problem.empty()) {
    Warn(work, "In " + LineText(line) + " " + problem + (usable ? "." : "; it is left out."));
  }
  if (!usable) return;
  if (key.place == LineKey::Place::kRecord) return PlanOnDevice(line, key, relative, change, work);
  PlanInHive(line, key, relative, &change, work);
  if (!relative.record.empty() && machine::SameName(line.root, "HKR")) {
    std::vector<std::string> below;
    KeyComponents(line.key, &below);
    const std::string inRecord = below.empty() ? relative.record : relative.record + '\\' + JoinComponents(below);
    PlanInRecord(change, inRecord, line.name, work);
  }
}

}  // namespace

std::string OwnText(const Work &work, const std::string &text) {
  std::string replaced;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = text[at] == '%' ? text.find('%', at + 1) : std::string::npos;
    DWORD id = 0;
    if (end != std::string::npos && end - at <= kLongestId && ParseNumber(text.substr(at + 1, end - at - 1), &id) &&
        !PlaceOf(static_cast<long>(id), work.own).empty()) {
      replaced += PlaceOf(static_cast<long>(id), work.own);
      at = end + 1;
      continue;
    }
    const std::size_t length = CharacterLength(text.c_str() + at);
    replaced.append(text, at, length);
    at += length;
  }
  return replaced;
}

void PlanInstallLines(Work *work) {
  const RelativeRoot relative = {{}, {}, "the device's software key is made when Windows installs it"};
  for (const RegistryLine &line : work->installation.registry) PlanLine(line, relative, work);
}

void PlanHardwareLines(Work *work) {
  const RelativeRoot relative = {
      {}, "Device", "Values of the device's own key are passed over, since the key is made when Windows installs it."};
  for (const RegistryLine &line : work->installation.hardware) PlanLine(line, relative, work);
}

void PlanServiceLines(const ServiceLines &service, Work *work) {
  const RelativeRoot relative = {ServiceKey(*work, service.name), "Services\\" + service.name, {}};
  for (const RegistryLine &line : service.registry) PlanLine(line, relative, work);
}

}  // namespace package
