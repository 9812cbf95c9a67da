#include "tools/vxr/rescue/describe_command.h"

#include <cstdio>

#include "tools/vxr/base/output.h"
#include "tools/vxr/rescue/rescue_facts.h"

int DescribeCommand(const RescueOptions &options) {
  RescueFacts facts;
  if (const int failed = GatherFacts(options, &facts); failed != 0) return failed;
  if (facts.disks.empty()) {
    PrintError(facts.diskProblem);
    return 1;
  }
  if (!CheckCount(facts)) return 1;
  std::printf(
      "# A restored system and the hardware that it is to start on. vxr run --machine FILE --job 1 [--verify] "
      "works on it.\n%s",
      MachineFile(facts, "/").c_str());
  for (const rescue::Obstacle &obstacle : facts.obstacles) std::printf("# %s\n", obstacle.text.c_str());
  return 0;
}
