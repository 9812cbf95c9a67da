// vxr: runs the library on a described machine, and shows the files it reads.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>
#include <string_view>

#include "tools/vxr/commands.h"
#include "tools/vxr/output.h"

namespace {

const char *const kVersion = "vxr " VXR_VERSION;

CLI::App *AddCommand(CLI::App *app, const char *name, const char *description) {
  CLI::App *command = app->add_subcommand(name, description);
  command->set_version_flag("--version", kVersion, "Show the version");
  return command;
}

CLI::App *AddRun(CLI::App *app, RunOptions *options) {
  CLI::App *run = AddCommand(app, "run", "Put drivers into a restored system, or check that they would be found");
  run->add_option("--machine", options->machine, "TOML file that describes the machine")->required()->type_name("FILE");
  run->add_option("--job", options->job, "Number of the restore job in the machine's registry")
      ->required()
      ->type_name("NUMBER");
  run->add_flag("--verify", options->verify, "Check only; leave the restored system as it is");
  run->add_flag("--json", options->json, "Print one JSON document instead of text");
  run->footer(
      "Exit status: the run's result code (0 success, 3 4 7 8 9 11 13 14 15 58 failures, see docs/results.md);\n"
      "4 also when the restored hive could not be saved; 2 for wrong usage or a machine that cannot be opened.");
  return run;
}

CLI::App *AddInf(CLI::App *app, InfOptions *options) {
  CLI::App *inf = AddCommand(app, "inf", "Show an INF file as its reader sees it");
  inf->add_option("file", options->file, "INF file")->required()->type_name("FILE");
  inf->add_option("--code-page", options->codePage, "ANSI code page of 8-bit files")
      ->type_name("NUMBER")
      ->capture_default_str();
  inf->add_option("--language", options->language, "Language of the strings, such as 0x0409 for [Strings.0409]")
      ->type_name("NUMBER")
      ->default_str("0x0409");
  inf->add_flag("--json", options->json, "Print one JSON document instead of text");
  inf->footer("Exit status: 0; 1 when the file is missing or is not an INF file; 2 for wrong usage.");
  return inf;
}

// Help and version go to standard output; anything else is one line saying what to do. `wrong` is the first argument,
// which is to blame when no command was recognised; null when there is none.
int ReportParse(const CLI::App &app, const char *wrong, const CLI::ParseError &error) {
  if (error.get_exit_code() == 0) {
    app.exit(error);
    return FinishOutput() ? 0 : 1;
  }
  std::string command = "vxr", what = error.what();
  for (const CLI::App *used : app.get_subcommands()) command += " " + used->get_name();
  if (app.get_subcommands().empty()) what = wrong == nullptr ? "name a command" : std::string(wrong) + ": unknown";
  if (const std::string_view bad = "Could not convert: "; what.compare(0, bad.size(), bad) == 0) {
    what = what.substr(bad.size()) + " is not a number of 32 bits";
  }
  while (!what.empty() && (what.back() == '\n' || what.back() == '.')) what.pop_back();
  PrintError(what + "; see " + command + " --help");
  return kExitUsage;
}

}  // namespace

int main(int argc, char **argv) {
  CLI::App app("Makes a restored Windows system start on different disk hardware, by injecting drivers offline.",
               "vxr");
  app.set_version_flag("--version", kVersion, "Show the version");
  app.require_subcommand(1);
  RunOptions runOptions;
  InfOptions infOptions;
  const CLI::App *run = AddRun(&app, &runOptions);
  AddInf(&app, &infOptions);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &error) {
    return ReportParse(app, argc > 1 ? argv[1] : nullptr, error);
  }
  return run->parsed() ? RunCommand(runOptions) : InfCommand(infOptions);
}
