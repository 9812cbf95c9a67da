// Opening and closing the described machine, and its observer.
#include "vxrcore/machine.h"

#include <exception>
#include <functional>
#include <memory>

#include "platform/machine/base/answer.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/description/current.h"
#include "platform/machine/description/description.h"
#include "platform/machine/files/disk_index.h"
#include "platform/machine/files/paths.h"
#include "platform/machine/hive/hive.h"
#include "platform/machine/host/rehearsal.h"
#include "platform/machine/registry/registry.h"
#include "platform/machine/setup/device_tree.h"
#include "platform/machine/setup/inf_cache.h"
#include "platform/machine/system/prompts.h"
#include "platform/machine/system/windows.h"
#include "platform/text/code_page.h"

namespace {

using Reader = std::function<machine::Status(machine::Description *)>;

machine::Status Open(const Reader &read, const std::string &name) {
  if (machine::Current() != nullptr) {
    return machine::Status::Refused(name + ": a machine is open already (" + machine::Current()->file.string() +
                                    "); close it first");
  }
  auto description = std::make_unique<machine::Description>();
  if (machine::Status done = read(description.get()); !done) return done;
  if (machine::Status planned = machine::TakeFaultsOfEnvironment(); !planned) return planned;
  // Before the rooms open, since they ask for the open machine; after they have closed it is none again.
  machine::SetCurrent(std::move(description));
  if (machine::Status opened = machine::OpenRegistry(*machine::Current()); !opened) {
    machine::SetCurrent(nullptr);
    return opened;
  }
  machine::IndexDisks(*machine::Current());
  machine::OpenDevices(*machine::Current());
  return {};
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
  machine::Status opened;
  const bool another = machine::Current() != nullptr;
  try {
    opened = Open(read, name);
  } catch (const std::exception &exception) {
    opened = machine::Status::Refused(name + ": " + exception.what());
    if (!another) VXRMachine_Close();
  }
  StoreMessage(Words(opened), message, messageSize);
  return static_cast<bool>(opened);
}

}  // namespace

int32_t VXRMachine_Open(const char *file, char *message, uint32_t messageSize) {
  if (file == nullptr || *file == '\0') {
    StoreMessage("no machine file is named; give the path of its TOML file", message, messageSize);
    return 0;
  }
  const auto read = [file](machine::Description *description) { return machine::ReadDescription(file, description); };
  return OpenOrExplain(read, file, message, messageSize);
}

int32_t VXRMachine_OpenText(const char *text, const char *directory, char *message, uint32_t messageSize) {
  const auto read = [=](machine::Description *description) {
    return machine::ReadDescriptionText(text == nullptr ? "" : text, directory == nullptr ? "" : directory,
                                        description);
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
  machine::SaveOnly("");
  return saved;
}

uint64_t VXRMachine_InfReads() { return machine::InfReads(); }

uint32_t VXRMachine_ProcessorArchitecture() {
  constexpr uint32_t kUnknown = 0xFFFF;
  return machine::Current() == nullptr ? kUnknown : machine::Current()->system.processorArchitecture;
}

uint32_t VXRMachine_CodePage() { return machine::Current() == nullptr ? 0 : machine::Current()->system.codePage; }

void VXRMachine_SaveOnly(const char *digest) { machine::SaveOnly(digest == nullptr ? "" : digest); }

int32_t VXRMachine_Rehearse(int32_t on) {
  if (on == 0) {
    EndRehearsal();
    return 1;
  }
  if (machine::Rehearsing()) return 1;
  if (machine::Current() == nullptr) return machine::FailWith(ERROR_NOT_READY);
  if (!machine::BeginRegistryRehearsal()) return 0;
  machine::BeginPromptRehearsal();
  machine::SetRehearsing(true);
  return 1;
}
