// The services of a package: their keys, and what their sections write below them.
#include <algorithm>

#include "package/plan/plan_parts.h"
#include "package/plan/registry_lines.h"
#include "registry/boot_record.h"

namespace package {
namespace {

// Flags of an AddService line that keep what an existing service has.
constexpr DWORD kKeepDisplayName = 0x8, kKeepStart = 0x10, kKeepErrorControl = 0x20, kKeepGroup = 0x40;
constexpr DWORD kKeepDependencies = 0x80, kKeepDescription = 0x100, kKeepBootFlags = 0x40000;
constexpr DWORD kTagToFront = 0x1;

constexpr DWORD kBootStart = 0, kSystemStart = 1, kDemandStart = 3;
constexpr DWORD kNormalError = 1;

// A service's key while its values are written.
struct ServiceWriter {
  const ServiceLines &service;
  std::string key;
  RegistryEdits *edits;
};

void Put(const ServiceWriter &writer, const char *name, const RegistryData &data, DWORD keepFlag = 0) {
  RegistryData old;
  if ((writer.service.flags & keepFlag) != 0 && ReadValue(*writer.edits, writer.key, name, &old)) return;
  SetValue(writer.edits, writer.key, name, data);
}

void PutText(const ServiceWriter &writer, const char *name, const std::string &text, DWORD keepFlag = 0) {
  if (!text.empty()) Put(writer, name, TextData(text), keepFlag);
}

void PutList(const ServiceWriter &writer, const char *name, const std::vector<std::string> &texts, DWORD keepFlag) {
  if (!texts.empty()) Put(writer, name, ListData(texts), keepFlag);
}

// The tags that each load order group uses, of all services. One that cannot be read is passed over: a tag that is
// taken twice does no harm.
void ReadGroupTags(Work *work) {
  if (work->groupTagsRead) return;
  work->groupTagsRead = true;
  const std::string services = work->context.controlSet + "\\Services", unread = work->edits.unread;
  for (const std::string &name : SubKeys(work->edits, services)) {
    const std::string key = services + '\\' + name;
    std::string group;
    DWORD tag = 0;
    if (ReadNumber(work->edits, key, "Tag", &tag) && ReadText(work->edits, key, "Group", &group)) {
      work->groupTags[machine::FoldAnsiName(group)].insert(tag);
    }
  }
  work->edits.unread = unread;
}

// A driver that the system starts by itself gets a tag, without which it would be loaded behind all others of its
// group. One that it has in that group stays.
void PutTag(const ServiceWriter &writer, const std::string &oldGroup, Work *work) {
  std::string group;
  DWORD tag = 0;
  if (!ReadText(work->edits, writer.key, "Group", &group) || group.empty()) return;
  if (ReadNumber(work->edits, writer.key, "Tag", &tag) && machine::SameName(group, oldGroup)) return;
  ReadGroupTags(work);
  std::set<DWORD> &used = work->groupTags[machine::FoldAnsiName(group)];
  tag = 1;
  for (const DWORD other : used) {
    if (other > tag) break;
    if (other == tag) ++tag;
  }
  used.insert(tag);
  Put(writer, "Tag", NumberData(tag));
}

// Has the service's tag come first in the order of its group: the number of tags, then the tags, 32 bits each. A list
// of another form is begun anew, as one that is missing.
void PutTagInFront(const ServiceWriter &writer, Work *work) {
  std::string group;
  DWORD tag = 0;
  if (!ReadText(work->edits, writer.key, "Group", &group) || !ReadNumber(work->edits, writer.key, "Tag", &tag)) return;
  const std::string key = work->context.controlSet + "\\Control\\GroupOrderList", first = NumberData(tag).bytes;
  RegistryData old;
  std::string tags = first;
  if (ReadValue(work->edits, key, group, &old) && old.type == REG_BINARY && old.bytes.size() % sizeof tag == 0) {
    for (std::size_t at = sizeof tag; at < old.bytes.size(); at += sizeof tag) {
      if (old.bytes.compare(at, sizeof tag, first) != 0) tags += old.bytes.substr(at, sizeof tag);
    }
  }
  const auto count = static_cast<DWORD>(tags.size() / sizeof tag);
  SetValue(&work->edits, key, group, BytesData(NumberData(count).bytes + tags));
}

void PutValues(const ServiceWriter &writer, const std::string &binary, DWORD start, Work *work) {
  const ServiceLines &service = writer.service;
  const bool function = IsFunctionDriver(*work, service);
  std::string oldGroup;
  ReadText(work->edits, writer.key, "Group", &oldGroup);
  Put(writer, "Type", NumberData(service.type.value_or(kUsualType)));
  Put(writer, "Start", NumberData(start), function ? 0 : kKeepStart);
  Put(writer, "ErrorControl", NumberData(service.errorControl.value_or(kNormalError)), kKeepErrorControl);
  Put(writer, "ImagePath", TextData("System32\\drivers\\" + binary, REG_EXPAND_SZ));
  PutText(writer, "Group", service.group, kKeepGroup);
  if (start == kBootStart || start == kSystemStart) PutTag(writer, oldGroup, work);
  PutList(writer, "DependOnService", service.dependOnServices, kKeepDependencies);
  PutList(writer, "DependOnGroup", service.dependOnGroups, kKeepDependencies);
  PutText(writer, "DisplayName", OwnText(*work, service.displayName), kKeepDisplayName);
  PutText(writer, "Description", OwnText(*work, service.description), kKeepDescription);
  PutText(writer, "ObjectName", service.startName);
  if (service.bootFlags) Put(writer, "BootFlags", NumberData(*service.bootFlags), kKeepBootFlags);
}

void PlanService(const ServiceLines &service, const std::string &binary, Work *work) {
  const bool function = IsFunctionDriver(*work, service);
  const DWORD asked = service.start.value_or(function ? kBootStart : kDemandStart);
  const ServiceWriter writer = {service, ServiceKey(*work, service.name), &work->edits};
  if (function && asked != kBootStart) {
    Warn(work, "The service " + service.name + " is set to start with the system (0), not as its package asks (" +
                   std::to_string(asked) + ").");
  }
  PutValues(writer, binary, function ? kBootStart : asked, work);
  PlanServiceLines(service, work);
  if (function) Put(writer, "Start", NumberData(kBootStart));
  if ((service.flags & kTagToFront) != 0) PutTagInFront(writer, work);
  DWORD start = 0;
  // What held an old service of that name back would hold this one back too.
  if (ReadNumber(work->edits, writer.key, "Start", &start) && start == kBootStart) {
    PlanServiceStart(service.name, &work->edits);
  }
}

bool PlainServiceName(const std::string &name) {
  std::vector<std::string> components;
  return KeyComponents(name, &components) && components.size() == 1 && components[0] == name &&
         name.find('/') == std::string::npos;
}

}  // namespace

std::string ServiceKey(const Work &work, const std::string &service) {
  return work.context.controlSet + "\\Services\\" + service;
}

std::string DriverPath(const RestoredPlaces &places, const std::string &name) {
  return places.system + "\\drivers\\" + name;
}

bool HasService(const Work &work, const std::string &service) {
  constexpr DWORD kDisabled = 4;
  if (work.services.contains(machine::FoldAnsiName(service))) return true;
  const PlanContext &context = work.context;
  OwnService own;
  DWORD start = kDisabled;
  return FindOwnService(work.edits, context.controlSet, service, {}, context.places, context.target, &own) &&
         ReadNumber(work.edits, ServiceKey(work, service), "Start", &start) && start < kDisabled;
}

bool StartsAtBoot(const Work &work, const std::string &service) {
  for (const ServiceLines &planned : work.installation.services) {
    if (!machine::SameName(planned.name, service)) continue;
    return IsFunctionDriver(work, planned) || planned.start.value_or(kDemandStart) == kBootStart;
  }
  return !HeldBack(work.edits, work.context.controlSet, service);
}

bool PlanServices(Work *work, PlanRefusal *refusal) {
  std::string binary;
  for (const ServiceLines &service : work->installation.services) {
    if (DriverName(service, &binary)) {
      PlanService(service, binary, work);
    } else if (!IsFunctionDriver(*work, service)) {
      Note(work, "The service " + service.name + " is passed over, since it is no driver that starts with the system.");
    } else {
      return Refuse(refusal, Refusal::kNoBinary,
                    "The service " + service.name + " names no driver that can start with the system.");
    }
  }
  return true;
}

bool CheckServices(Work *work, PlanRefusal *refusal) {
  const std::vector<ServiceLines> &services = work->installation.services;
  if (services.size() > kPlannedServices) {
    return Refuse(refusal, Refusal::kNoBinary, "The package has more services than a driver can need.");
  }
  std::string binary;
  for (const ServiceLines &service : services) {
    if (!PlainServiceName(service.name)) {
      return Refuse(refusal, Refusal::kNoBinary, "The package names a service as none can be named: " + service.name);
    }
    if (DriverName(service, &binary)) work->services.insert(machine::FoldAnsiName(service.name));
  }
  return true;
}

}  // namespace package
