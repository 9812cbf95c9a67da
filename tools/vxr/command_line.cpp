#include "tools/vxr/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "tools/vxr/base/json_values.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/base/program.h"
#include "tools/vxr/boot/fix_boot_command.h"
#include "tools/vxr/drivers/drivers_command.h"
#include "tools/vxr/extension/create_command.h"
#include "tools/vxr/extension/query_command.h"
#include "tools/vxr/extension/show_command.h"
#include "tools/vxr/hive/hive_command.h"
#include "tools/vxr/inf/inf_command.h"
#ifndef _WIN32
#include "tools/vxr/rescue/rescue_commands.h"
#endif
#include "tools/vxr/run/run_command.h"
#ifdef _WIN32
#include "tools/vxr/base/running_machine.h"
#endif

namespace {

const std::string kRehearsalStatus =
    kDescribedMachines ? "1 when a verification succeeds but an injection would not (see Problems);\n" : "";
const std::string kUsageStatus =
    kDescribedMachines ? "2 for wrong usage or a machine that cannot be opened." : "2 for wrong usage.";

// The option that names the machine to work on; null when that is always this one.
CLI::Option *AddMachine(CLI::App *command, std::string *file) {
  if (!kDescribedMachines) return nullptr;
  return command->add_option("--machine", *file, "TOML file that describes the machine")->type_name("FILE");
}

void RequireMachine(CLI::App *command, std::string *file) {
  if (CLI::Option *machine = AddMachine(command, file)) machine->required();
}

CLI::App *AddRun(CLI::App *app, RunOptions *options) {
  CLI::App *run = app->add_subcommand("run", "Put drivers into a restored system, or check that they would be found");
  RequireMachine(run, &options->machine);
  run->add_option("--job", options->job, "Number of the restore job in the machine's registry")
      ->required()
      ->type_name("NUMBER");
  run->add_flag("--verify", options->verify,
                kDescribedMachines ? "Check only, and rehearse the injection; leave the restored system as it is"
                                   : "Check only; leave the restored system as it is");
  run->add_option("--rules", options->rules,
                  "How drivers are chosen: exact, the narrow reading of one directory, or windows, as Windows itself\n"
                  "would, sub-directories too. Without it as the job says (DriverRules), else exact")
      ->check(CLI::IsMember({"exact", "windows"}))
      ->type_name("RULES");
  run->add_option("--record", options->record,
                  "What names a driver for its device: exact, a critical-device entry, or auto, what the restored\n"
                  "system reads. Without it as the job says (BootRecord), else exact")
      ->check(CLI::IsMember({"exact", "auto"}))
      ->type_name("RECORD");
  run->add_flag("--json", options->json, "Print one JSON document instead of text");
  run->footer(
      "Exit status: the run's result code (0 success, 3 4 7 8 9 11 13 14 15 58 failures, see docs/results.md);\n" +
      kRehearsalStatus + "3 also when no controller of the boot disk was found;\n" +
      "4 also when the restored hive could not be saved, or one of its values not be written;\n" + kUsageStatus);
  return run;
}

// How INF files are read.
void AddInfReading(CLI::App *command, unsigned *codePage, unsigned *language) {
  command->add_option("--code-page", *codePage, "ANSI code page of 8-bit files")
      ->type_name("NUMBER")
      ->capture_default_str();
  command->add_option("--language", *language, "Language of the strings, such as 0x0409 for [Strings.0409]")
      ->type_name("NUMBER")
      ->default_str("0x0409");
}

CLI::App *AddInf(CLI::App *app, InfOptions *options) {
  CLI::App *inf = app->add_subcommand("inf", "Show an INF file as its reader sees it");
  inf->add_option("file", options->file, "INF file")->required()->type_name("FILE");
  AddInfReading(inf, &options->codePage, &options->language);
  inf->add_flag("--json", options->json, "Print one JSON document instead of text");
  inf->footer("Exit status: 0; 1 when the file is missing or is not an INF file; 2 for wrong usage.");
  return inf;
}

CLI::App *AddDrivers(CLI::App *app, DriversOptions *options) {
  CLI::App *drivers =
      app->add_subcommand("drivers", "Say which INF file would be installed for a device, and why not others");
  drivers->add_option("directory", options->directories, "Directories of driver packages, searched with all below them")
      ->required()
      ->type_name("DIR");
  drivers
      ->add_option("--target", options->target,
                   "The Windows that the driver is for: MAJOR.MINOR[.BUILD]-ARCH[-PRODUCT[-SUITE]],\n"
                   "such as 10.0.19045-amd64 or 5.2.3790-amd64-3-0x112; PRODUCT 1 workstation (the default),\n"
                   "2 domain controller, 3 server; ARCH x86, amd64, arm64, ia64")
      ->required()
      ->type_name("VERSION");
  drivers
      ->add_option("--id", options->ids,
                   "The device's hardware ids, most specific first; or its PCI function by numbers,\n"
                   "8086:2822[:SUBVENDOR:SUBDEVICE[:REVISION]] and its class, such as 010400. Name directories first")
      ->required()
      ->type_name("ID");
  drivers->add_option("--compatible-id", options->compatibleIds, "Its compatible ids, most specific first")
      ->type_name("ID");
  drivers->add_option("--rules", options->rules, "windows, as Windows itself would, or exact, as a run does by default")
      ->check(CLI::IsMember({"exact", "windows"}))
      ->type_name("RULES")
      ->capture_default_str();
  AddInfReading(drivers, &options->codePage, &options->language);
  drivers->add_flag("--json", options->json, "Print one JSON document instead of text");
  drivers->footer(
      "The driver that would be taken comes first: that of the lowest rank, of equal ones the later date, then the\n"
      "higher version. Those that cannot be installed come last, with the reason.\n"
      "Nothing is changed. Exit status: 0 when one can be installed; 1 when none; 2 for wrong usage.");
  return drivers;
}

CLI::App *AddCreate(CLI::App *app, CreateOptions *options) {
  CLI::App *create = app->add_subcommand("create", "Record a machine in an extension file, as at backup time");
  RequireMachine(create, &options->machine);
  create->add_option("file", options->extension, "Extension file to write")->required()->type_name("FILE");
  create->add_option("--includes", options->includes, "Includes file of the backup, which is to list the file")
      ->type_name("FILE");
  create->add_option("--map", options->map, "Map file that gives each volume's name in the backup")->type_name("FILE");
  create->footer(
      std::string(kDescribedMachines ? "A file name that begins with a drive letter is a path of the machine.\n" : "") +
      "Exit status: 0; 9 when the machine cannot be recorded, or the extension or the includes file not be written,\n"
      "or the extension file not be read back;\n" +
      kUsageStatus);
  return create;
}

#ifndef _WIN32
CLI::App *AddHive(CLI::App *app, HiveOptions *options) {
  CLI::App *hive = app->add_subcommand("hive", "Show what a registry hive is, and what its transaction logs would do");
  hive->add_option("file", options->file, "Hive file; its .LOG, .LOG1 and .LOG2 lie beside it")
      ->required()
      ->type_name("FILE");
  hive->add_option("--replay", options->replay, "Write the hive, brought up to date from its logs, to a new file")
      ->type_name("OUT");
  hive->add_flag("--json", options->json, "Print one JSON document instead of text");
  hive->footer(
      "The hive and its logs are not changed. Exit status: 0; 1 when a run would refuse the hive, or OUT cannot be\n"
      "written; 2 for wrong usage. What to do about a refused hive: docs/hives.md.");
  return hive;
}

#endif

void AddCodePage(CLI::App *command, unsigned *codePage) {
  command->add_option("--code-page", *codePage, "ANSI code page of the recorded machine")
      ->type_name("NUMBER")
      ->capture_default_str();
}

CLI::App *AddShow(CLI::App *app, ShowOptions *options) {
  CLI::App *show = app->add_subcommand("show", "Show what extension files recorded");
  show->add_option("file", options->files, "Extension files")->required()->type_name("FILE");
  AddCodePage(show, &options->codePage);
  show->add_flag("--json", options->json, "Print everything as one JSON document, an array for several files");
  show->footer("Exit status: 0; 1 when a file is missing or is not an extension file; 2 for wrong usage.");
  return show;
}

CLI::App *AddQuery(CLI::App *app, QueryOptions *options) {
  CLI::App *query = app->add_subcommand("query", "Ask one question about an extension file");
  query->add_option("file", options->file, "Extension file")->required()->type_name("FILE");
  query->add_option("class", options->queryClass, "Class: volume, system, network, architect, or its number")
      ->required()
      ->type_name("CLASS");
  query
      ->add_option("item", options->item,
                   "Item: its name, such as Label or VXREQV_Label, or its number, such as 7 or 0x2000000F")
      ->required()
      ->type_name("ITEM");
  query->add_option("--volume", options->volume, "Volume, from 0")->type_name("NUMBER")->capture_default_str();
  query->add_option("--disk", options->disk, "Disk of the volume, from 0")->type_name("NUMBER")->capture_default_str();
  query
      ->add_option("--driver", options->driver,
                   "Whose driver, for the items of a disk: disk (the default), bus or controller")
      ->type_name("NAME")
      ->check(CLI::IsMember({"disk", "bus", "controller"}, CLI::ignore_case));
  query->add_option("--letter", options->letter, "Drive letter, for VolIndex")->type_name("LETTER");
  AddCodePage(query, &options->codePage);
  query->footer("Exit status: 0; 1 when there is no answer; 2 for wrong usage. All items: docs/extension-file.md.");
  return query;
}

CLI::App *AddFixBoot(CLI::App *app, FixBootOptions *options) {
  CLI::App *fix = app->add_subcommand("fix-boot", "Make the boot sector of the active partition agree with its disk");
  fix->add_option("disk", options->disk,
                  kDescribedMachines ? "With --machine a device name such as \\\\.\\PhysicalDrive0, "
                                       "with --geometry an image or a block device"
                                     : "Device name, such as \\\\.\\PhysicalDrive0")
      ->required()
      ->type_name("DISK");
  if (CLI::Option *machine = AddMachine(fix, &options->machine)) {
    fix->add_option("--geometry", options->geometry,
                    "Of an image: cylinders, heads, sectors a track, bytes a sector, such as 1044,255,63,512")
        ->type_name("C,H,S,B")
        ->excludes(machine);
  }
  fix->footer("Exit status: 0 when the sector agrees now; 1 when not; " + kUsageStatus);
  return fix;
}

// An argument that no command takes; empty when there is none. It is what to name first, whatever is missing beside it:
// it may be that very thing, misspelt.
std::string UnknownArgument(const CLI::App &app) {
  std::vector<std::string> unknown = app.remaining();
  for (const CLI::App *used : app.get_subcommands()) {
    for (std::string &argument : used->remaining()) unknown.push_back(std::move(argument));
  }
  const auto option = std::find_if(unknown.begin(), unknown.end(), [](const auto &a) { return a.starts_with('-'); });
  if (option != unknown.end()) return option->substr(0, option->find('=')) + ": unknown option";
  if (unknown.empty()) return "";
  return (unknown.front().empty() ? "an empty text" : unknown.front()) + ": one argument too many";
}

// An option or argument that was given as an empty text, which is no name and no id; empty when there is none.
std::string EmptyArgument(const CLI::App &app) {
  for (const CLI::App *used : app.get_subcommands()) {
    for (const CLI::Option *option : used->get_options()) {
      const std::vector<std::string> &given = option->results();
      if (std::find(given.begin(), given.end(), "") == given.end()) continue;
      return option->get_name() + ": an empty text; see vxr " + used->get_name() + " --help";
    }
  }
  return "";
}

// The parser's complaint as a sentence.
std::string InWords(std::string what) {
  constexpr std::string_view kNumber = "Could not convert: ", kOne = ": 1 required ", kMissing = " missing";
  while (!what.empty() && (what.back() == '\n' || what.back() == '.')) what.pop_back();
  if (what.starts_with(kNumber)) return what.substr(kNumber.size()) + " is not a number of 32 bits";
  const std::size_t several = what.find(": At Most 1 required"), one = what.find(kOne);
  if (several != std::string::npos) return what.substr(0, several) + ": given more than once";
  if (one == std::string::npos || !what.ends_with(kMissing)) return what;
  return what.substr(0, one) + ": needs a " +
         what.substr(one + kOne.size(), what.size() - one - kOne.size() - kMissing.size());
}

// Help and version go to standard output; anything else is one line saying what to do. `wrong` is the first argument,
// which is to blame when no command was recognised; null when there is none.
int ReportParse(const CLI::App &app, const char *wrong, const CLI::ParseError &error) {
  if (error.get_exit_code() == 0) {
    app.exit(error);
    return 0;
  }
  std::string command = "vxr", what = error.what();
  if (app.remaining().empty()) {
    for (const CLI::App *used : app.get_subcommands()) command += " " + used->get_name();
  }
  if (const std::string unknown = UnknownArgument(app); !unknown.empty()) what = unknown;
  if (app.get_subcommands().empty())
    what = wrong == nullptr ? "name a command" : (*wrong == '\0' ? "an empty text" : std::string(wrong)) + ": unknown";
  PrintError(InWords(std::move(what)) + "; see " + command + " --help");
  return kExitUsage;
}

// Whoever asks for a document gets one: of errors that no document tells, it is the last, all, and the exit status.
void PrintErrorDocument(int exitStatus) {
  const std::vector<std::string> errors = TakeErrors();
  if (errors.empty() || std::ferror(stdout) != 0) return;
  nlohmann::ordered_json document;
  AddEnd(errors, exitStatus, &document);
  PrintDocument(document);
}

int Run(int argc, char **argv, const char *version) {
  CLI::App app("Makes a restored Windows system start on different disk hardware, by injecting drivers offline.",
               "vxr");
  app.set_version_flag("--version", version, "Show the version");
  app.require_subcommand(1);
  RunOptions runOptions;
  CreateOptions createOptions;
  ShowOptions showOptions;
  QueryOptions queryOptions;
  FixBootOptions fixBootOptions;
  InfOptions infOptions;
  DriversOptions driversOptions;
#ifndef _WIN32
  RescueCommands rescue;
  AddRescueCommands(&app, &rescue);
#endif
  const CLI::App *run = AddRun(&app, &runOptions);
  const CLI::App *create = AddCreate(&app, &createOptions);
  const CLI::App *show = AddShow(&app, &showOptions);
  const CLI::App *query = AddQuery(&app, &queryOptions);
  const CLI::App *fixBoot = AddFixBoot(&app, &fixBootOptions);
  const CLI::App *drivers = AddDrivers(&app, &driversOptions);
  AddInf(&app, &infOptions);
#ifndef _WIN32
  HiveOptions hiveOptions;
  const CLI::App *hive = AddHive(&app, &hiveOptions);
#endif
  for (CLI::App *command : app.get_subcommands({})) {
    command->set_version_flag("--version", version, "Show the version");
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &error) {
    return ReportParse(app, argc > 1 ? argv[1] : nullptr, error);
  }
  if (const std::string empty = EmptyArgument(app); !empty.empty()) {
    PrintError(empty);
    return kExitUsage;
  }
#ifndef _WIN32
  if (hive->parsed()) return HiveCommand(hiveOptions);
  if (const auto status = RunRescueCommand(rescue)) return *status;
#endif
  if (run->parsed()) return RunCommand(runOptions);
  if (drivers->parsed()) return DriversCommand(driversOptions);
  if (create->parsed()) return CreateCommand(createOptions);
  if (show->parsed()) return ShowCommand(showOptions);
  if (query->parsed()) return QueryCommand(queryOptions);
  if (fixBoot->parsed()) return FixBootCommand(fixBootOptions);
  return InfCommand(infOptions);
}

}  // namespace

int CommandLine(int argc, char **argv, const char *version) {
#ifdef _WIN32
  UseUtf8(&argc, &argv);
#endif
  const int exitStatus = Run(argc, argv, version);
  const auto is = [](const char *text) { return [text](std::string_view argument) { return argument == text; }; };
  char **end = std::find_if(argv, argv + argc, is("--"));  // file names follow
  const bool document = std::any_of(argv, end, is("--json"));
  if (document) PrintErrorDocument(exitStatus);
  return FinishCommand(exitStatus, document);
}
