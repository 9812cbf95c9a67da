// The services of an install section.
#include "package/read/numbers.h"
#include "package/read/reading.h"

namespace package {
namespace {

// Fields of "AddService = name, flags, section".
enum ServiceField : std::uint32_t { kName = 1, kServiceFlags, kSection };

// Machine.inf's sections for devices that need no service begin so; a system without that file needs none either.
constexpr std::string_view kNoDriver = "NO_DRV";

// A service-install section while it is read.
struct ServiceReader {
  Reading *reading;
  ServiceLines *service;
  RegistryReader registry;
};

struct NumberValue {
  const char *key;
  std::optional<DWORD> ServiceLines::*number;
};
constexpr NumberValue kNumbers[] = {{"ServiceType", &ServiceLines::type},
                                    {"StartType", &ServiceLines::start},
                                    {"ErrorControl", &ServiceLines::errorControl},
                                    {"BootFlags", &ServiceLines::bootFlags}};

struct TextValue {
  const char *key;
  std::string ServiceLines::*text;
};
constexpr TextValue kTexts[] = {{"ServiceBinary", &ServiceLines::binary},
                                {"LoadOrderGroup", &ServiceLines::group},
                                {"DisplayName", &ServiceLines::displayName},
                                {"Description", &ServiceLines::description},
                                {"StartName", &ServiceLines::startName}};

// For programs of the running system, or for who may change the service.
constexpr const char *kIgnored[] = {"Security",   "RequiredPrivileges", "ServiceSidType", "DelayedAutoStart",
                                    "AddTrigger", "FailureActions",     "DelService"};

template <typename Values>
const auto *FindKnown(const Values &values, const std::string &key) {
  for (const auto &value : values) {
    if (machine::SameName(key, value.key)) return &value;
  }
  return static_cast<decltype(&values[0])>(nullptr);
}

bool IsIgnored(const std::string &key) {
  for (const char *ignored : kIgnored) {
    if (machine::SameName(key, ignored)) return true;
  }
  return false;
}

void ReadDependencies(const Directive &directive, ServiceReader *in) {
  for (std::uint32_t field = 1; field <= directive.line.line->valueCount && !TooMuch(*in->reading); ++field) {
    std::string name = Field(in->reading, directive.line, field);
    const bool group = name.starts_with('+');
    if (group) name.erase(0, 1);
    if (!name.empty()) (group ? in->service->dependOnGroups : in->service->dependOnServices).push_back(std::move(name));
  }
}

// Of several lines for one value the first counts.
void ReadServiceValue(const Directive &directive, ServiceReader *in) {
  Reading *reading = in->reading;
  if (ReadRegistryDirective(reading, directive, &in->registry)) return;
  if (const NumberValue *known = FindKnown(kNumbers, directive.key)) {
    DWORD number = 0;
    const std::string text = Field(reading, directive.line, 1);
    if (!ParseNumber(text, &number)) {
      Note(reading,
           std::string(known->key) + " of the service " + in->service->name + " is no number: \"" + text + "\".");
    } else if (!(in->service->*known->number)) {
      in->service->*known->number = number;
    }
  } else if (const TextValue *text = FindKnown(kTexts, directive.key)) {
    std::string &value = in->service->*text->text;
    if (value.empty()) value = Field(reading, directive.line, 1);
  } else if (machine::SameName(directive.key, "Dependencies")) {
    ReadDependencies(directive, in);
  } else if (!IsIgnored(directive.key)) {
    Note(reading, "The directive " + directive.key + " of the service " + in->service->name + " is passed over.");
  }
}

void ReadServiceSection(Reading *reading, std::size_t inf, ServiceLines *service) {
  const FoundSection section = FindAnywhere(*reading, inf, service->section);
  service->inf = inf;
  if (section.section == nullptr) {
    return Note(reading, "The section [" + service->section + "] of the service " + service->name + " is not found.");
  }
  service->inf = section.inf;
  ServiceReader in{reading, service, {&service->registry}};
  for (const Directive &directive : DirectivesOf(reading, section)) ReadServiceValue(directive, &in);
  OrderRegistry(&service->registry);
}

void ReadAddService(Reading *reading, const Directive &directive) {
  ServiceLines service;
  service.name = Field(reading, directive.line, kName);
  const std::string flags = Field(reading, directive.line, kServiceFlags);
  if (!flags.empty() && !ParseNumber(flags, &service.flags)) {
    Note(reading, "The flags \"" + flags + "\" of the service " + service.name + " are no number.");
  }
  if (service.name.empty()) {
    if ((service.flags & kFunctionDriver) != 0) reading->installation->noService = true;
    return;
  }
  service.section = Field(reading, directive.line, kSection);
  ReadServiceSection(reading, directive.inf, &service);
  reading->installation->services.push_back(std::move(service));
}

}  // namespace

void ReadServices(Reading *reading, const FoundSection &section) {
  if (section.section == nullptr) return;
  std::vector<std::string> missing;
  for (const Directive &directive : DirectivesOf(reading, section, &missing)) {
    if (TooMuch(*reading)) return;
    if (machine::SameName(directive.key, "AddService")) {
      ReadAddService(reading, directive);
    } else if (!IsIgnored(directive.key)) {
      Note(reading, "The directive " + directive.key + " of a services section is passed over.");
    }
  }
  Installation *installation = reading->installation;
  for (const std::string &name : missing) {
    if (machine::SameName(std::string_view(name).substr(0, kNoDriver.size()), kNoDriver))
      installation->noService = true;
  }
  if (FunctionDriver(*installation) != nullptr) installation->noService = false;
}

}  // namespace package
