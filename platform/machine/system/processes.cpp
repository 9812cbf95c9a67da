// The two programs that the machine has: the registry tool's LOAD and UNLOAD, and the command interpreter's copy. They
// run to their end while they are started, so a process handle is only its exit code.
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "platform/machine/base/answer.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/base/handles.h"
#include "platform/machine/description/current.h"
#include "platform/machine/files/copy.h"
#include "platform/machine/registry/registry.h"
#include "platform/machine/text/command_line.h"
#include "platform/text/code_page.h"

namespace {

using CommandWords = std::vector<std::string>;

constexpr DWORD kToolFailed = 1;  // exit code of both programs

bool Same(std::string_view a, std::string_view b) { return machine::CompareNoCase(a, b) == 0; }

struct Program {
  std::string directory, name;  // no ending; directory without its last separator
};

Program SplitProgram(std::string_view path) {
  Program program;
  std::size_t cut = 0;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (machine::IsLeadByte(static_cast<unsigned char>(path[i]))) {
      ++i;
    } else if (path[i] == '\\' || path[i] == '/') {
      cut = i + 1;
    }
  }
  program.directory = path.substr(0, cut);
  program.name = path.substr(cut);
  while (program.directory.ends_with('\\') || program.directory.ends_with('/')) program.directory.pop_back();
  std::replace(program.directory.begin(), program.directory.end(), '/', '\\');
  if (program.name.size() > 4 && Same(std::string_view(program.name).substr(program.name.size() - 4), ".exe")) {
    program.name.resize(program.name.size() - 4);
  }
  return program;
}

// Whether the program is looked for where it is: in the system directory, which is also searched when none is given.
bool InSystemDirectory(const Program &program) {
  std::string system = machine::Current()->system.systemDirectory;
  while (system.ends_with('\\')) system.pop_back();
  return program.directory.empty() || Same(program.directory, system);
}

// The key below HKEY_LOCAL_MACHINE; empty when it is none.
std::string LocalMachineKey(std::string_view name) {
  const std::size_t cut = name.find('\\');
  if (cut == std::string_view::npos) return {};
  const std::string_view root = name.substr(0, cut);
  if (!Same(root, "HKLM") && !Same(root, "HKEY_LOCAL_MACHINE")) return {};
  return std::string(name.substr(cut + 1));
}

// reg LOAD key file, reg UNLOAD key. False when it is a verb that the machine does not have.
bool RunRegistryTool(const CommandWords &words, DWORD *exitCode) {
  const bool load = words.size() >= 2 && Same(words[1], "LOAD");
  if (!load && !(words.size() >= 2 && Same(words[1], "UNLOAD"))) return false;
  *exitCode = kToolFailed;
  if (words.size() != (load ? 4U : 3U)) return true;
  const std::string key = LocalMachineKey(words[2]);
  if (key.empty()) return true;
  *exitCode = static_cast<DWORD>(load ? machine::MountHive(key, words[3].c_str()) : machine::UnmountHive(key));
  return true;
}

// cmd /c copy /y source target. The target is a file's name: the copy into a directory of that name is not made. Nor is
// anything else that the command can do.
bool RunCopyCommand(const CommandWords &words, std::string_view commandLine, DWORD *exitCode) {
  if (words.size() < 4 || !Same(words[1], "/c") || !Same(words[2], "copy") || !Same(words[3], "/y")) return false;
  const CommandWords read = machine::SplitInterpreterLine(commandLine);
  const bool copied = read.size() == 6 && !read[4].starts_with('/') && !read[5].starts_with('/') &&
                      machine::CopyWindowsFile(read[4].c_str(), read[5].c_str(), false, machine::CopyCaller::kCommand);
  *exitCode = copied ? 0 : kToolFailed;
  return true;
}

bool RunProgram(const CommandWords &words, std::string_view commandLine, DWORD *exitCode) {
  if (words.empty()) return false;
  const Program program = SplitProgram(words[0]);
  if (!InSystemDirectory(program)) return false;
  if (Same(program.name, "reg")) return RunRegistryTool(words, exitCode);
  return Same(program.name, "cmd") && RunCopyCommand(words, commandLine, exitCode);
}

}  // namespace

namespace platform {

BOOL CreateProcessA(const char *application, char *commandLine, void *, void *, BOOL, DWORD, void *, const char *,
                    STARTUPINFOA *startup, PROCESS_INFORMATION *process) {
  VXR_FAULT(FALSE, ERROR_FILE_NOT_FOUND);
  if (machine::Current() == nullptr) return machine::FailWith(ERROR_NOT_READY);
  if ((application == nullptr && commandLine == nullptr) || startup == nullptr || process == nullptr) {
    return machine::FailWith(ERROR_INVALID_PARAMETER);
  }
  const char *text = commandLine != nullptr ? commandLine : application;
  CommandWords words = machine::SplitCommandLine(text);
  if (application != nullptr && !words.empty()) words[0] = application;
  DWORD exitCode = 0;
  if (!RunProgram(words, text, &exitCode)) return machine::FailWith(ERROR_FILE_NOT_FOUND);
  SetLastError(NO_ERROR);  // what the program met is not its caller's failure
  static DWORD lastId = 0;
  *process = {machine::AddHandle(machine::ProcessHandle{exitCode}), machine::AddHandle(machine::ThreadHandle()), 0, 0};
  process->dwProcessId = lastId += 4;
  process->dwThreadId = lastId += 4;
  return TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD) {
  VXR_FAULT(WAIT_FAILED, ERROR_INVALID_HANDLE);
  const machine::HandleRecord *record = machine::FindHandle(handle);
  const bool waits = record != nullptr && (std::holds_alternative<machine::ProcessHandle>(*record) ||
                                           std::holds_alternative<machine::ThreadHandle>(*record));
  return waits ? WAIT_OBJECT_0 : machine::FailWith(ERROR_INVALID_HANDLE, WAIT_FAILED);
}

BOOL GetExitCodeProcess(HANDLE process, DWORD *exitCode) {
  VXR_FAULT(FALSE, ERROR_INVALID_HANDLE);
  const auto *record = machine::FindHandleOf<machine::ProcessHandle>(process);
  if (record == nullptr) return machine::FailWith(ERROR_INVALID_HANDLE);
  if (exitCode == nullptr) return machine::FailWith(ERROR_INVALID_PARAMETER);
  *exitCode = record->exitCode;
  return TRUE;
}

}  // namespace platform
