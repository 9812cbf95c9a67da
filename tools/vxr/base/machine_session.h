// A described machine, open while a command runs on it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "vxrcore/machine.h"

// Opens the machine of a TOML file; from then on `observer` hears what it does. False, after one line on standard
// error, when it cannot be used.
bool OpenMachine(const std::string &file, VXRMachine_Observer observer, void *context);
// The same for a machine made by a command: its text, and what a message is about.
bool OpenMachineText(const std::string &toml, const std::string &subject, VXRMachine_Observer observer, void *context);
// Ends the log and closes the machine, which may report still more. False when a registry hive could not be saved.
bool CloseMachine();

// A window for a run's status lines, without which it tells none; they come to the observer.
void *OpenStatusWindow();

// Text of the open machine, given in its code page, as UTF-8. Null becomes empty.
std::string MachineText(const char *text);

// An error that the log tells, as VXRMACHINE_ERROR_LOGGED reports it.
struct LoggedError {
  std::string function, call;  // `call`: the one that failed; empty for another error
  std::uint32_t code = 0;      // the system's, of the call
  std::string line;            // behind the function's name, without its line end
  bool empty() const { return function.empty(); }
  std::string ForPeople() const { return empty() ? "" : "ERROR:" + function + ":" + line; }  // as they find it there
};
LoggedError ReadError(const VXRMachine_Event &event);

// A file argument as the library takes it: a path of the machine, in its code page, when it begins with a drive letter,
// else the host's, made absolute; on Windows, where they are the same, absolute and in the system's code page. Empty
// stays empty. What the code page lacks becomes '?': see PathInCodePage.
std::string MachinePath(const std::string &argument);
// Whether the open machine's code page has every character of a text that is to go to the machine, or of a file
// argument's MachinePath; false after one line on standard error.
bool InCodePage(const std::string &text);
bool PathInCodePage(const std::string &argument);
bool IsMachinePath(const std::string &argument);
// Where a path of the open machine, in its code page, leads on the host; empty when nowhere.
std::string HostPathOf(const std::string &machinePath);
// The same of a path in UTF-8.
std::filesystem::path HostOf(const std::string &path);
