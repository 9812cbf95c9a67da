// The machine that a search for drivers runs on: nothing but the directories that are searched.
#pragma once

#include <string>

#include "tools/vxr/base/given_directories.h"
#include "tools/vxr/drivers/drivers_command.h"

inline GivenDirectories Given(const DriversOptions &options) { return {options.directories}; }

// Drops what is named twice, and by Windows' rules what lies below another; then each must be a directory. False, after
// a message.
bool CheckDirectories(DriversOptions *options);
// False, after a message.
bool OpenSearchMachine(const DriversOptions &options);
// The key of the job that exact rules are tried with.
inline constexpr char kSearchJobKey[] = "SOFTWARE\\Varnelt\\Relmar\\1";
