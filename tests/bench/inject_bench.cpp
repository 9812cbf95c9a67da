// `vxr inject` as a person waits for it, from the start of the program to the end of its last screen, over a pack of
// 1,000 INF files and a large hive. What it finds first, and what it rehearses, are measured by its modes that end
// there.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

#include "tests/bench/bench_machine.h"
#include "tests/bench/inf_directory.h"
#include "tests/bench/report.h"

namespace fs = std::filesystem;

namespace {

constexpr unsigned kFiles = 1000;
fs::path folder, corpusHive;

// The system of an example, with another hive, and a pack that holds its controller's driver among others.
void MakeRestored() {
  const fs::path examples = VXR_EXAMPLES_DIR, restored = folder / "restored";
  fs::remove_all(restored);
  fs::copy(examples / "scsi-6.1-x64/restored", restored, fs::copy_options::recursive);
  fs::copy_file(corpusHive, restored / "Windows/System32/config/SYSTEM", fs::copy_options::overwrite_existing);
}

void MakeInjection() {
  folder = MakeBenchFolder();
  MakeInfDirectory(folder / "pack", kFiles - 1);
  fs::copy(fs::path(VXR_EXAMPLES_DIR) / "raid-10.0-x64/ram/drivers/raid/w7", folder / "pack/raid");
}

// Whether the program came to its end with 0.
bool RunVxr(const std::vector<const char *> &more) {
  const std::string root = folder / "restored", drivers = folder / "pack";
  std::vector<const char *> words = {VXR_PROGRAM, "inject",        "--root",       root.c_str(),
                                     "--drivers", drivers.c_str(), "--controller", "1DEA:0A42 0104"};
  words.insert(words.end(), more.begin(), more.end());
  words.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t process = 0;
  int status = -1;
  const int failed =
      posix_spawn(&process, VXR_PROGRAM, &actions, nullptr, const_cast<char *const *>(words.data()), environ);
  posix_spawn_file_actions_destroy(&actions);
  return failed == 0 && waitpid(process, &status, 0) == process && status == 0;
}

void Inject(benchmark::State &state, const std::vector<const char *> &more) {
  for (auto _ : state) {
    state.PauseTiming();
    MakeRestored();
    state.ResumeTiming();
    if (!RunVxr(more)) state.SkipWithError("vxr inject failed");
  }
}

}  // namespace

void AddInjectBenchmarks(const char *hive) {
  if (hive == nullptr) return;
  corpusHive = hive;
  MakeInjection();
  const std::pair<const char *, std::vector<const char *>> modes[] = {
      {"InjectList", {"--list"}}, {"InjectDry", {"--dry-run"}}, {"Inject", {}}};
  for (const auto &[name, more] : modes) {
    benchmark::RegisterBenchmark(name, Inject, more)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(5);
  }
}

void PrintInjectRows(const Times &times) {
  if (corpusHive.empty()) return;
  const double list = times.Of("InjectList/real_time"), dry = times.Of("InjectDry/real_time");
  Row("vxr inject over 1,000 INF files, from start to last screen", times.Of("Inject/real_time") / 1e6, 1000, "ms");
  Row("of it, what is there", list / 1e6, 100, "ms");
  Row("of it, the rehearsal", (dry - list) / 1e6, 500, "ms");
  fs::remove_all(folder);
}
