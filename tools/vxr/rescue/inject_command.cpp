#include "tools/vxr/rescue/inject_command.h"

#include <csignal>
#include <cstdio>

#include "rescue/describe.h"
#include "rescue/undo.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/base/program.h"
#include "tools/vxr/rescue/facts_text.h"
#include "tools/vxr/rescue/inject_text.h"
#include "tools/vxr/rescue/injection.h"

namespace {

int List(const RescueOptions &options, const RescueFacts &facts) {
  if (options.json) {
    std::printf("%s\n", FactsJson(facts).dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
  } else {
    PrintFacts(facts, options.controllers.empty() && options.disks.empty());
    if (!facts.disks.empty() && facts.system && options.controllers.empty() && options.disks.empty()) {
      std::string names;
      for (const rescue::Disk &disk : facts.disks) names += " " + disk.name;
      PrintLine("  The restored system lies on:" + names);
    }
    for (const rescue::Obstacle &obstacle : facts.obstacles) PrintLine("  " + obstacle.text, Style::kBad);
  }
  return FinishOutput() ? 0 : 1;
}

// Whether something forbids the injection; each reason is told.
bool IsForbidden(const RescueOptions &options, const RescueFacts &facts) {
  bool forbidden = false;
  for (const rescue::Obstacle &obstacle : facts.obstacles) {
    const bool risked = obstacle.forcible && options.force;
    if (risked) {
      std::fprintf(stderr, "vxr: --force: %s\n", obstacle.loss.c_str());
    } else {
      PrintError(obstacle.text + (obstacle.forcible ? "; or use --force: " + obstacle.loss : ""));
    }
    forbidden = forbidden || !risked;
  }
  if (facts.disks.empty()) PrintError(facts.diskProblem);
  return forbidden || facts.disks.empty();
}

bool Lock(const RescueFacts &facts, machine::Descriptor *lock) {
  const machine::Status locked = rescue::LockWindows(facts.system->windows, lock);
  if (!locked) PrintError(facts.system->windows.string() + " " + Words(locked));
  return static_cast<bool>(locked);
}

}  // namespace

int InjectCommand(const RescueOptions &options) {
  // Neither a reader that goes away nor a limit of file sizes must end a run half-way.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  if (options.root.empty() && !options.list) {
    PrintError("name where the restored system's volume is mounted: --root DIR; see vxr inject --help");
    return kExitUsage;
  }
  RescueFacts facts;
  if (const int failed = GatherFacts(options, "vxr inject --help", &facts); failed != 0) return failed;
  if (options.list) return List(options, facts);
  if (IsForbidden(options, facts) || !CheckCount(facts)) return 1;
  machine::Descriptor lock;
  if (!options.dryRun && !Lock(facts, &lock)) return 1;
  Injection injection;
  if (!Inject(facts, options.dryRun, &injection)) return kExitUsage;
  if (options.json) {
    PrintInjectJson(options, facts, injection);
  } else {
    PrintInjectText(options, facts, injection);
  }
  FinishOutput();
  return injection.exitStatus;
}
