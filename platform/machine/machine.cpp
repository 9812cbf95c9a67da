// Opening and closing the described machine, and its observer.
#include "platform/machine/machine.h"

#include <cstdlib>
#include <exception>
#include <functional>
#include <memory>

#include "platform/machine/code_page.h"
#include "platform/machine/fault.h"
#include "platform/machine/rehearsal.h"

namespace {

std::unique_ptr<machine::Description> current;
VXRMachine_Observer observer = nullptr;
void *observerContext = nullptr;

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

void Forget() {
  current.reset();
  machine::SetCodePage(machine::kDefaultCodePage);
}

// Reads a description; false with one line for people.
using Reader = std::function<bool(machine::Description *, std::string *error)>;

bool Open(const Reader &read, const std::string &name, std::string *error) {
  if (current != nullptr) {
    *error = name + ": a machine is open already (" + current->file.string() + "); close it first";
    return false;
  }
  auto description = std::make_unique<machine::Description>();
  if (!read(description.get(), error) || !ReadFaultPlan(error)) return false;
  // The parts below may already ask for the machine and report to its observer.
  current = std::move(description);
  machine::SetCodePage(current->system.codePage);
  if (!machine::OpenRegistry(*current, error)) {
    Forget();
    return false;
  }
  machine::OpenDevices(*current);
  return true;
}

void StoreMessage(const std::string &error, char *message, uint32_t messageSize) {
  if (message != nullptr && messageSize != 0) message[error.copy(message, messageSize - 1)] = '\0';
}

int32_t OpenOrExplain(const Reader &read, const std::string &name, char *message, uint32_t messageSize) {
  std::string error;
  bool opened = false;
  const bool another = current != nullptr;
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

namespace machine {

const Description *Current() { return current.get(); }

const Description *CurrentOrNotReady() {
  if (current == nullptr) platform::SetLastError(ERROR_NOT_READY);
  return current.get();
}

void Report(const VXRMachine_Event &event) {
  if (observer == nullptr) return;
  const DWORD error = platform::GetLastError();
  observer(observerContext, &event);
  platform::SetLastError(error);
}

}  // namespace machine

void platform::ReportDecision(DWORD kind, const char *subject, const char *detail, DWORD type) {
  VXRMachine_Event event = {};
  event.kind = kind;
  event.type = type;
  event.subject = subject;
  event.detail = detail;
  machine::Report(event);
}

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
  if (current == nullptr) return 1;
  machine::EndRehearsal();
  machine::CloseInfFiles();
  machine::CloseDevices();
  machine::CloseWindows();
  machine::ClosePrompts();
  const bool saved = machine::CloseRegistry();
  machine::ClosePaths();
  Forget();
  return saved;
}

void VXRMachine_SetObserver(VXRMachine_Observer newObserver, void *context) {
  observer = newObserver;
  observerContext = context;
}

uint64_t VXRMachine_InfReads() { return machine::InfReads(); }

uint32_t VXRMachine_ProcessorArchitecture() {
  constexpr uint32_t kUnknown = 0xFFFF;
  return current == nullptr ? kUnknown : current->system.processorArchitecture;
}

uint32_t VXRMachine_CodePage() { return current == nullptr ? 0 : current->system.codePage; }
