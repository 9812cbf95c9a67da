// `vxr inject` as a person waits for it, from the start of the program to the end of its last screen, over a pack of
// 1,000 INF files and a large hive. What it finds first, and what it rehearses, are measured by its modes that end
// there.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <vector>

#include "tests/bench/bench_machine.h"
#include "tests/bench/inf_directory.h"
#include "tests/bench/report.h"
#include "tests/support/hive_builder.h"

namespace fs = std::filesystem;

namespace {

constexpr unsigned kFiles = 1000;
fs::path folder, corpusHive;

// The system of an example, with another hive, and a pack that holds its controller's driver among others.
void MakeRestored() {
  const fs::path examples = VXR_EXAMPLES_DIR, restored = folder / "restored";
  fs::remove_all(restored);
  fs::copy(examples / "scsi-6.1-x64/restored", restored, fs::copy_options::recursive);
  const fs::path config = restored / "Windows/System32/config";
  fs::copy_file(corpusHive, config / "SYSTEM", fs::copy_options::overwrite_existing);
  const std::string version = "Microsoft\\Windows NT\\CurrentVersion";
  WriteHive(config / "SOFTWARE",
            {TextValue(version, "CurrentVersion", "6.1"), TextValue(version, "CurrentBuild", "7601")});
}

void MakeInjection() {
  folder = MakeBenchFolder();
  MakeInfDirectory(folder / "pack", kFiles - 1);
  const fs::path driver = fs::path(VXR_EXAMPLES_DIR) / "raid-10.0-x64/ram/drivers/raid/x86";
  fs::copy(driver, folder / "pack/raid");
  std::ifstream in(driver / "twraid.inf");
  std::string text{std::istreambuf_iterator<char>(in), {}};
  const std::string_view later = "NTx86.10.0";  // than the hive's system
  for (std::size_t at = 0; (at = text.find(later, at)) != std::string::npos;)
    text.replace(at, later.size(), "NTx86.6.1");
  std::ofstream(folder / "pack/raid/twraid.inf") << text;
}

// Whether the program came to its end with 0.
bool RunVxr(const std::vector<const char *> &more) {
  const std::string root = folder / "restored";
  std::vector<const char *> words = {VXR_PROGRAM, "inject", "--root", root.c_str(), "--controller", "1DEA:0A42 0104"};
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
  static const std::string pack = folder / "pack";
  const std::pair<const char *, std::vector<const char *>> modes[] = {
      {"InjectList", {"--list"}},
      {"InjectDry", {"--drivers", pack.c_str(), "--dry-run"}},
      {"Inject", {"--drivers", pack.c_str()}}};
  for (const auto &[name, more] : modes) {
    benchmark::RegisterBenchmark(name, Inject, more)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(5);
  }
}

void PrintInjectRows(const Times &times) {
  if (corpusHive.empty()) return;
  const double list = times.Of("InjectList/") / 1e6, dry = times.Of("InjectDry/") / 1e6,
               all = times.Of("Inject/") / 1e6;
  Row("vxr inject over 1,000 INF files, from start to last screen", all, 1000, "ms");
  Row("of it, finding what is there", list, 100, "ms");
  Row("of it, the rehearsal", dry - list, 400, "ms");
  Row("of it, keeping what is replaced, and the run", all - dry, 500, "ms");
  fs::remove_all(folder);
}
