// The command `create`.
#pragma once

#include <string>

struct CreateOptions {
  std::string machine;    // TOML file
  std::string extension;  // host path, or a path of the machine when it begins with a drive letter; the others too
  std::string includes;   // empty: none
  std::string map;        // empty: none
};

// Writes the described machine's extension file. 0, 9 on failure, or 2 when the machine cannot be opened.
int CreateCommand(const CreateOptions &options);
