// The machine that a search for drivers runs on: nothing but the directories that are searched.
#pragma once

#include <string>
#include <vector>

#include "tools/vxr/drivers/drivers_command.h"

// Drops what is named twice, and by Windows' rules what lies below another; then each must be a directory. False, after
// a message.
bool CheckDirectories(DriversOptions *options);
// Where directories are the host's, each becomes a drive of a machine made for the search, so that names are found
// without regard to case and no link leads out of them. False, after a message.
bool OpenSearchMachine(const DriversOptions &options);
// The directories as that machine names them.
std::vector<std::string> SearchedDirectories(const DriversOptions &options);
// A path of that machine as the user knows it: the directory as it was named, then the rest.
std::string GivenPath(const DriversOptions &options, const std::string &path);
// A sentence with such a path in it; the path begins at a drive letter.
std::string GivenText(const DriversOptions &options, const std::string &text);
// The key of the job that exact rules are tried with.
inline constexpr char kSearchJobKey[] = "SOFTWARE\\Varnelt\\Relmar\\1";
