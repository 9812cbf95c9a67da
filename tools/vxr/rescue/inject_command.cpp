#include "tools/vxr/rescue/inject_command.h"

#include "rescue/describe.h"
#include "rescue/undo.h"
#include "tools/vxr/base/json_values.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/base/program.h"
#include "tools/vxr/rescue/facts_text.h"
#include "tools/vxr/rescue/inject_text.h"
#include "tools/vxr/rescue/injection.h"

namespace {

// What is missing, or means nothing where nothing is injected; empty: nothing.
std::string WrongOptions(const RescueOptions &options) {
  if (!options.list) return options.root.empty() ? "--root is required" : "";
  const char *idle = options.dryRun             ? "--dry-run"
                     : options.force            ? "--force"
                     : !options.drivers.empty() ? "--drivers"
                                                : nullptr;
  return idle == nullptr ? "" : std::string("--list excludes ") + idle;
}

int List(const RescueOptions &options, const RescueFacts &facts) {
  if (options.json) {
    PrintDocument(FactsJson(facts));
  } else {
    PrintFacts(facts, options.controllers.empty() && options.disks.empty());
    if (!facts.disks.empty() && facts.system && options.controllers.empty() && options.disks.empty()) {
      std::string names;
      for (const rescue::Disk &disk : facts.disks) names += " " + disk.name;
      PrintLine("  The restored system lies on:" + names);
    }
    for (const rescue::Obstacle &obstacle : facts.obstacles) PrintLine("  " + obstacle.text, Style::kBad);
  }
  return 0;
}

// Whether something forbids the injection; each reason is told.
bool IsForbidden(const RescueOptions &options, const RescueFacts &facts) {
  bool forbidden = false;
  for (const rescue::Obstacle &obstacle : facts.obstacles) {
    if (obstacle.forcible && options.force) continue;
    PrintError(obstacle.text + (obstacle.forcible ? "; or use --force: " + obstacle.loss + " is lost." : ""));
    forbidden = true;
  }
  if (facts.disks.empty()) PrintError(facts.diskProblem);
  return forbidden || facts.disks.empty();
}

// What the risk that was taken has cost, or would.
void TellLosses(const RescueOptions &options, const RescueFacts &facts, const Injection &injection) {
  const bool would = options.dryRun && injection.exitStatus == 0 && !injection.needless;
  if (!injection.done && !would) return;
  for (const rescue::Obstacle &obstacle : facts.obstacles) {
    PrintError("--force: " + obstacle.loss + (would ? " would be lost." : " is lost."));
  }
}

// What another run has left meanwhile is seen under the lock alone.
bool Lock(const RescueFacts &facts, machine::Descriptor *lock) {
  if (const machine::Status locked = rescue::LockWindows(facts.system->windows, lock); !locked) {
    PrintError(facts.system->windows.string() + " " + Words(locked));
    return false;
  }
  const std::string stopped = rescue::StoppedInjection(*facts.system);
  if (!stopped.empty()) PrintError(stopped);
  return stopped.empty();
}

}  // namespace

int InjectCommand(const RescueOptions &options) {
  if (!options.list) BeginWork();
  if (const std::string wrong = WrongOptions(options); !wrong.empty()) {
    PrintError(wrong + "; see vxr inject --help");
    return kExitUsage;
  }
  RescueFacts facts;
  if (const int failed = GatherFacts(options, &facts); failed != 0) return failed;
  if (options.list) return List(options, facts);
  if (IsForbidden(options, facts) || !CheckCount(facts)) return 1;
  machine::Descriptor lock;
  if (!options.dryRun && !Lock(facts, &lock)) return 1;
  Injection injection;
  if (!Inject(facts, options.dryRun, &injection)) return kExitUsage;
  TellLosses(options, facts, injection);
  if (options.json) {
    PrintInjectJson(options, facts, injection);
  } else {
    PrintInjectText(options, facts, injection);
  }
  return injection.exitStatus;
}
