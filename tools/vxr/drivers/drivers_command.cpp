#include "tools/vxr/drivers/drivers_command.h"

#include "platform/text/code_page.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/base/program.h"
#include "tools/vxr/drivers/device_ids.h"
#include "tools/vxr/drivers/driver_report.h"
#include "tools/vxr/drivers/search_machine.h"
#include "tools/vxr/drivers/target_text.h"

namespace {

bool CheckOptions(DriversOptions *given, DriverQuery *query) {
  const DriversOptions &options = *given;
  std::string problem;
  if (!ParseTarget(options.target, &query->target, &problem)) {
    PrintError("--target " + options.target + ": " + problem + "; see vxr drivers --help");
    return false;
  }
  query->target.language = options.language;
  if (!machine::KnownCodePage(options.codePage)) {
    PrintError("code page " + std::to_string(options.codePage) + " is not known; use one such as 1252 or 932");
    return false;
  }
  if (!kDescribedMachines && options.rules == "exact") {
    PrintError("--rules exact can only be tried where machines are described, not on Windows; use windows");
    return false;
  }
  return ReadDeviceIds(options, query) && CheckDirectories(given);
}

}  // namespace

int DriversCommand(const DriversOptions &given) {
  DriversOptions options = given;
  DriverQuery query;
  query.options = &options;
  DriverList list;
  if (!CheckOptions(&options, &query) || !FindDrivers(query, &list)) return kExitUsage;
  if (options.json) {
    PrintDriversJson(query, list);
  } else {
    PrintDriversText(query, list);
  }
  return IsChosen(list) ? 0 : 1;
}
