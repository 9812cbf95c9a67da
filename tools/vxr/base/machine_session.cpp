#include "tools/vxr/base/machine_session.h"

#include <array>
#include <cstdio>

#include "platform/text/code_page.h"
#include "tools/vxr/base/host_file.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/base/program.h"

namespace {

constexpr unsigned kUsualCodePage = 1252;

// Whether an argument names a file of the host, whose names the machine takes as they are.
bool IsHostPath(const std::string &argument) { return kDescribedMachines && !IsMachinePath(argument); }

// An argument as the machine's text, still in UTF-8.
std::string PathText(const std::string &argument) {
  if (argument.empty() || (kDescribedMachines && IsMachinePath(argument))) return argument;
  return HostName(std::filesystem::absolute(HostFile(argument)));
}

}  // namespace

bool OpenMachine(const std::string &file, VXRMachine_Observer observer, void *context) {
  std::array<char, 2048> message{};
  VXRMachine_SetObserver(observer, context);
  if (VXRMachine_Open(file.c_str(), message.data(), static_cast<std::uint32_t>(message.size()))) return true;
  VXRMachine_SetObserver(nullptr, nullptr);
  PrintError(message.data());
  return false;
}

bool OpenMachineText(const std::string &toml, const std::string &subject, VXRMachine_Observer observer, void *context) {
  std::array<char, 2048> message{};
  VXRMachine_SetObserver(observer, context);
  if (VXRMachine_OpenText(toml.c_str(), nullptr, message.data(), static_cast<std::uint32_t>(message.size())))
    return true;
  VXRMachine_SetObserver(nullptr, nullptr);
  PrintError(subject + ": " + message.data());
  return false;
}

bool CloseMachine() {
  VXRDbg_Cleanup();
  const bool saved = VXRMachine_Close() != 0;
  VXRMachine_SetObserver(nullptr, nullptr);
  return saved;
}

void *OpenStatusWindow() {
  return VXRMachine_CreateWindow([](void *, const char *) {}, nullptr);
}

std::string MachineText(const char *text) {
  if (text == nullptr) return "";
  const std::uint32_t codePage = VXRMachine_CodePage();
  return machine::AnsiToUtf8(text, codePage == 0 ? kUsualCodePage : codePage);
}

LoggedError ReadError(const VXRMachine_Event &event) {
  LoggedError error = {MachineText(event.subject), MachineText(event.text), event.type, MachineText(event.detail)};
  while (!error.line.empty() && (error.line.back() == '\n' || error.line.back() == '\r')) error.line.pop_back();
  return error;
}

bool IsMachinePath(const std::string &argument) {
  const auto isLetter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); };
  return argument.size() >= 2 && isLetter(argument[0]) && argument[1] == ':';
}

std::string MachinePath(const std::string &argument) {
  const std::string path = PathText(argument);
  return IsHostPath(argument) ? path : machine::Utf8ToAnsi(path, VXRMachine_CodePage());
}

bool InCodePage(const std::string &text) {
  const std::uint32_t codePage = VXRMachine_CodePage();
  if (machine::AnsiToUtf8(machine::Utf8ToAnsi(text, codePage), codePage) == text) return true;
  PrintError(text + ": holds a character that the machine's code page " + std::to_string(codePage) +
             " lacks; use another name");
  return false;
}

bool PathInCodePage(const std::string &argument) { return IsHostPath(argument) || InCodePage(PathText(argument)); }

std::string HostPathOf(const std::string &machinePath) {
  std::array<char, 4096> place{};
  VXRMachine_HostPath(machinePath.c_str(), place.data(), place.size());
  return place.data();
}

std::filesystem::path HostOf(const std::string &path) {
  return HostFile(HostPathOf(machine::Utf8ToAnsi(path, VXRMachine_CodePage())));
}
