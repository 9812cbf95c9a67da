#include "tools/vxr/base/machine_session.h"

#include <array>

#include "platform/text/code_page.h"
#include "tools/vxr/base/host_file.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/base/program.h"

namespace {

constexpr unsigned kUsualCodePage = 1252;

}  // namespace

bool OpenMachine(const std::string &file, VXRMachine_Observer observer, void *context) {
  std::array<char, 2048> message{};
  VXRMachine_SetObserver(observer, context);
  if (VXRMachine_Open(file.c_str(), message.data(), static_cast<std::uint32_t>(message.size()))) return true;
  VXRMachine_SetObserver(nullptr, nullptr);
  PrintError(message.data());
  return false;
}

bool CloseMachine() {
  VXRDbg_Cleanup();
  const bool saved = VXRMachine_Close() != 0;
  VXRMachine_SetObserver(nullptr, nullptr);
  return saved;
}

std::string MachineText(const char *text) {
  if (text == nullptr) return "";
  const std::uint32_t codePage = VXRMachine_CodePage();
  return machine::AnsiToUtf8(text, codePage == 0 ? kUsualCodePage : codePage);
}

bool IsMachinePath(const std::string &argument) {
  const auto isLetter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); };
  return argument.size() >= 2 && isLetter(argument[0]) && argument[1] == ':';
}

std::string MachinePath(const std::string &argument) {
  if (argument.empty() || (kDescribedMachines && IsMachinePath(argument))) return argument;
  const std::string path = HostName(std::filesystem::absolute(HostFile(argument)));
  return kDescribedMachines ? path : machine::Utf8ToAnsi(path, VXRMachine_CodePage());
}
