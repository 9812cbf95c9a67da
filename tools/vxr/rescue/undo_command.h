// The command `undo`.
#pragma once

#include <string>

struct UndoOptions {
  std::string folder;  // that an injection made; empty: `root` is listed
  std::string root;
  bool json = false;
};

// Takes an injection back, or lists those that can be. 0; 1 when something has changed since or could not be done; 2
// when neither folder nor root is named.
int UndoCommand(const UndoOptions &options);
