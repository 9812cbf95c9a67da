// The commands of a rescue system: inject, undo, system, describe.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "tools/vxr/rescue/rescue_options.h"
#include "tools/vxr/rescue/system_command.h"
#include "tools/vxr/rescue/undo_command.h"

struct RescueCommands {
  RescueOptions injectOptions, describeOptions;
  UndoOptions undoOptions;
  SystemOptions systemOptions;
  const CLI::App *inject = nullptr, *undo = nullptr, *system = nullptr, *describe = nullptr;
};

// The commands keep pointers to the record.
void AddRescueCommands(CLI::App *app, RescueCommands *commands);
// Runs the one that was parsed, and gives its exit status; nothing when it was another command.
std::optional<int> RunRescueCommand(const RescueCommands &commands);
