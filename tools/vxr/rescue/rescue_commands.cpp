#include "tools/vxr/rescue/rescue_commands.h"

#include "tools/vxr/base/output.h"
#include "tools/vxr/rescue/describe_command.h"
#include "tools/vxr/rescue/inject_command.h"

namespace {

// What the commands of a rescue system share.
void AddRescueOptions(CLI::App *command, RescueOptions *options) {
  command->add_option("--root", options->root, "Where the restored system's volume is mounted, such as /mnt")
      ->type_name("DIR");
  command
      ->add_option("--drivers", options->drivers,
                   "A directory of driver packages, unpacked; searched with all below it")
      ->type_name("DIR");
  command
      ->add_option("--controller", options->controllers,
                   "Hardware to come, in place of the disk that holds the root: PCI\\VEN_1000&DEV_0054... or\n"
                   "1000:0054[:SUBV:SUBD[:REV]] with the class behind it, such as 0107")
      ->type_name("ID");
  command->add_option("--disk", options->disks, "The disk to start from, such as sda; without it the root's own")
      ->type_name("NAME")
      ->excludes("--controller");
  command->add_option("--sysfs", options->sysfs, "A captured /sys of another machine, in place of this one's")
      ->type_name("DIR");
}

CLI::App *AddDescribe(CLI::App *app, RescueOptions *options) {
  CLI::App *describe = app->add_subcommand("describe", "Print the machine file that inject would use");
  AddRescueOptions(describe, options);
  describe->get_option("--root")->required();
  describe->footer(
      "The file opens with vxr run --machine FILE --job 1. Nothing is changed.\n"
      "Exit status: 0; 1 when the restored system or its disks cannot be told; 2 for wrong usage.");
  return describe;
}

CLI::App *AddSystem(CLI::App *app, SystemOptions *options) {
  CLI::App *system =
      app->add_subcommand("system", "Show a restored Windows: version, state, the drivers it starts with");
  system->add_option("root", options->root, "Where its volume is mounted, such as /mnt")->required()->type_name("ROOT");
  system
      ->add_option("--id", options->ids, "A device's id, to tell which driver it gets: PCI\\VEN_8086&DEV_2922&CC_0106")
      ->type_name("ID");
  system->add_flag("--json", options->json, "Print one JSON document instead of text");
  system->footer("Nothing is changed. Exit status: 0; 1 when the system cannot be told; 2 for wrong usage.");
  return system;
}

CLI::App *AddInject(CLI::App *app, RescueOptions *options) {
  CLI::App *inject =
      app->add_subcommand("inject", "Put the drivers that this machine needs into a restored system that is mounted");
  AddRescueOptions(inject, options);
  inject->add_flag("--list", options->list, "Only show what was found: the system, disks, controllers and their ids");
  inject->add_flag("--dry-run", options->dryRun, "Show what would be done; change nothing");
  inject->add_flag("--force", options->force, "Go on although the system was hibernated, which loses what it saved");
  inject->add_flag("--json", options->json, "Print one JSON document instead of text");
  inject->footer(
      "Drivers are chosen as Windows itself would. What is changed can be taken back: vxr undo.\n"
      "Exit status: 0 when the system has its drivers; 1 when it must not be changed, or cannot be told; 2 for wrong\n"
      "usage; 3 when a controller has no driver; others as of vxr run. Unless it is 0, nothing was changed, or the\n"
      "last lines say what was.");
  return inject;
}

CLI::App *AddUndo(CLI::App *app, UndoOptions *options) {
  CLI::App *undo = app->add_subcommand("undo", "Take an injection into a restored system back");
  CLI::Option *folder =
      undo->add_option("folder", options->folder, "Folder that the injection made, Windows/vxr-undo/DATE-N")
          ->type_name("DIR");
  undo->add_option("--list", options->root, "Show the injections below the root of a restored volume instead")
      ->type_name("ROOT")
      ->excludes(folder);
  undo->add_flag("--json", options->json, "Print one JSON document instead of text");
  undo->footer(
      "Puts back every file that the injection replaced, removes those that it added, then the folder. What has\n"
      "changed since is named and left; when the registry has changed, everything is left. A run that was stopped\n"
      "goes on when it is started again.\n"
      "Exit status: 0, also when nothing is left to take back; 1 when something has changed since or could not be\n"
      "done; 2 for wrong usage.");
  return undo;
}

}  // namespace

void AddRescueCommands(CLI::App *app, RescueCommands *commands) {
  CLI::App *const added[] = {AddInject(app, &commands->injectOptions), AddUndo(app, &commands->undoOptions),
                             AddSystem(app, &commands->systemOptions), AddDescribe(app, &commands->describeOptions)};
  commands->inject = added[0];
  commands->undo = added[1];
  commands->system = added[2];
  commands->describe = added[3];
}

std::optional<int> RunRescueCommand(const RescueCommands &commands) {
  if (commands.inject->parsed()) return InjectCommand(commands.injectOptions);
  if (commands.undo->parsed()) {
    if (commands.undoOptions.root.empty()) BeginWork();
    return UndoCommand(commands.undoOptions);
  }
  if (commands.system->parsed()) return SystemCommand(commands.systemOptions);
  if (commands.describe->parsed()) return DescribeCommand(commands.describeOptions);
  return std::nullopt;
}
