// Directories of driver packages as the user names them. Where machines are described each becomes a drive of the
// machine that works on them, so that names are found without regard to case and no link leads out of them.
#pragma once

#include <string>
#include <vector>

struct GivenDirectories {
  std::vector<std::string> names;
  std::string letters = "DEFGHIJKLMNOPQRSTUVWYZ";  // of the drives
};

// Drops what is named twice and, where folders are searched with all `below` them, what lies below another; then each
// must be a directory, and there must be a letter for it. False, after a message.
bool CheckDirectories(GivenDirectories *directories, bool below);
// The drives, as a machine file has them.
std::string DrivesToml(const GivenDirectories &directories);
// The directories as the machine names them.
std::vector<std::string> MachineDirectories(const GivenDirectories &directories);
// A path of the machine as the user knows it: the directory as it was named, then the rest.
std::string GivenPath(const GivenDirectories &directories, const std::string &path);
// Why a file or directory, a path as the user knows it, could not be read: `reason`, in words where it is a number, or
// what the host says of the path.
std::string UnreadText(const std::string &given, const std::string &reason);
// A sentence with such paths in it; the path begins at a drive letter.
std::string GivenText(const GivenDirectories &directories, const std::string &text);
