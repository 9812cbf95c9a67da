#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>

#include "tests/bench/report.h"

namespace {

struct SmallestTimes : benchmark::ConsoleReporter {
  Times times;
  void ReportRuns(const std::vector<Run> &runs) override {
    for (const Run &run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      const double time = run.real_accumulated_time / static_cast<double>(run.iterations) * 1e9;
      const auto [entry, fresh] = times.nanoseconds.emplace(run.run_name.function_name + "/" + run.run_name.args, time);
      if (!fresh) entry->second = std::min(entry->second, time);
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

bool failed = false;

}  // namespace

void Row(const char *what, double measured, double budget, const char *unit) {
  const bool within = measured > 0 && measured <= budget;  // 0: the benchmark itself failed
  failed |= !within;
  std::printf("| %-70s | %8.2f%s | %6.2f%s | %s |\n", what, measured, unit, budget, unit, within ? "yes" : "NO");
}

// vxr_bench [HIVE]: HIVE is a large SYSTEM hive; without one its row is left out.
int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  AddRestoreBenchmarks(argc > 1 ? argv[1] : nullptr);
  AddInjectBenchmarks(argc > 1 ? argv[1] : nullptr);
  AddHiveBenchmarks();
  AddExtensionBenchmarks();
  SmallestTimes reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\n| figure | measured | budget | within |\n|---|---|---|---|\n");
  PrintRestoreRows(reporter.times);
  PrintInjectRows(reporter.times);
  PrintHiveRows(reporter.times);
  PrintExtensionRows(reporter.times);
  return failed ? 1 : 0;
}
