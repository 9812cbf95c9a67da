// The files that the recording of a machine works on, which must be different ones and none of the machine's own.
#pragma once

#include <string>

#include "tools/vxr/extension/create_command.h"

// Where an argument leads on the host, on the open machine. Empty when the argument is, or when it leads nowhere.
std::string HostPath(const std::string &argument);

// Why the recording would spoil a file, one line for people; empty: it would not. On the open machine.
std::string RefuseArguments(const CreateOptions &options);
