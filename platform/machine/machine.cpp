// Opening and closing the described machine, and its observer.
#include "vxrcore/machine.h"

#include <cstdlib>
#include <exception>
#include <functional>
#include <memory>

#include "platform/machine/base/fault.h"
#include "platform/machine/description/current.h"
#include "platform/machine/description/description.h"
#include "platform/machine/files/disk_index.h"
#include "platform/machine/files/paths.h"
#include "platform/machine/host/rehearsal.h"
#include "platform/machine/registry/registry.h"
#include "platform/machine/setup/device_tree.h"
#include "platform/machine/setup/inf_cache.h"
#include "platform/machine/system/prompts.h"
#include "platform/machine/system/windows.h"
#include "platform/text/code_page.h"

namespace {

// Takes the plan of VXR_FAULTS. A plan that does not parse would make a fault test pass without a fault.
bool ReadFaultPlan([[maybe_unused]] std::string *error) {
#ifdef VXR_FAULT_POINTS
  const char *text = std::getenv("VXR_FAULTS");
  if (text != nullptr && *text != '\0' && !machine::SetFaultPlanFromText(text)) {
    *error = std::string("VXR_FAULTS: \"") + text + "\" is not of the form NAME:N[:once|on][:ERROR]";
    return false;
  }
#endif
  return true;
}

// Reads a description; false with one line for people.
using Reader = std::function<bool(machine::Description *, std::string *error)>;

bool Open(const Reader &read, const std::string &name, std::string *error) {
  if (machine::Current() != nullptr) {
    *error = name + ": a machine is open already (" + machine::Current()->file.string() + "); close it first";
    return false;
  }
  auto description = std::make_unique<machine::Description>();
  if (!read(description.get(), error) || !ReadFaultPlan(error)) return false;
  // Before the rooms open, since they ask for the open machine; after they have closed it is none again.
  machine::SetCurrent(std::move(description));
  if (const machine::Status opened = machine::OpenRegistry(*machine::Current()); !opened) {
    *error = Words(opened);
    machine::SetCurrent(nullptr);
    return false;
  }
  machine::IndexDisks(*machine::Current());
  machine::OpenDevices(*machine::Current());
  return true;
}

void EndRehearsal() {
  if (!machine::Rehearsing()) return;
  machine::SetRehearsing(false);
  machine::EndRegistryRehearsal();
  machine::EndPromptRehearsal();
}

void StoreMessage(const std::string &error, char *message, uint32_t messageSize) {
  if (message != nullptr && messageSize != 0) message[error.copy(message, messageSize - 1)] = '\0';
}

int32_t OpenOrExplain(const Reader &read, const std::string &name, char *message, uint32_t messageSize) {
  std::string error;
  bool opened = false;
  const bool another = machine::Current() != nullptr;
  try {
    opened = Open(read, name, &error);
  } catch (const std::exception &exception) {
    error = name + ": " + exception.what();
    if (!another) VXRMachine_Close();
  }
  StoreMessage(error, message, messageSize);
  return opened;
}

}  // namespace

int32_t VXRMachine_Open(const char *file, char *message, uint32_t messageSize) {
  if (file == nullptr || *file == '\0') {
    StoreMessage("no machine file is named; give the path of its TOML file", message, messageSize);
    return 0;
  }
  const auto read = [file](machine::Description *description, std::string *error) {
    return machine::ReadDescription(file, description, error);
  };
  return OpenOrExplain(read, file, message, messageSize);
}

int32_t VXRMachine_OpenText(const char *text, const char *directory, char *message, uint32_t messageSize) {
  const auto read = [=](machine::Description *description, std::string *error) {
    return machine::ReadDescriptionText(text == nullptr ? "" : text, directory == nullptr ? "" : directory, description,
                                        error);
  };
  return OpenOrExplain(read, "machine", message, messageSize);
}

int32_t VXRMachine_Close() {
  if (machine::Current() == nullptr) return 1;
  EndRehearsal();
  machine::CloseInfFiles();
  machine::CloseDevices();
  machine::ForgetDisks();
  machine::CloseWindows();
  machine::ClosePrompts();
  const bool saved = machine::CloseRegistry();
  machine::ClosePaths();
  machine::SetCurrent(nullptr);
  return saved;
}

uint64_t VXRMachine_InfReads() { return machine::InfReads(); }

uint32_t VXRMachine_ProcessorArchitecture() {
  constexpr uint32_t kUnknown = 0xFFFF;
  return machine::Current() == nullptr ? kUnknown : machine::Current()->system.processorArchitecture;
}

uint32_t VXRMachine_CodePage() { return machine::Current() == nullptr ? 0 : machine::Current()->system.codePage; }

int32_t VXRMachine_Rehearse(int32_t on) {
  if (on == 0) {
    EndRehearsal();
    return 1;
  }
  if (machine::Rehearsing()) return 1;
  if (machine::CurrentOrNotReady() == nullptr || !machine::BeginRegistryRehearsal()) return 0;
  machine::BeginPromptRehearsal();
  machine::SetRehearsing(true);
  return 1;
}
