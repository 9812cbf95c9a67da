// Loading a hive: clean, clean with logs beside it, and dirty with its newest pages in two logs; and changing it.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <malloc.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "platform/machine/hive/hive.h"
#include "tests/bench/bench_machine.h"
#include "tests/bench/report.h"
#include "tests/support/hive_builder.h"
#include "tests/support/hive_log_builder.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

constexpr std::size_t kPages = 132, kEntries = 23;
fs::path folder;

void Write(const std::string &name, const Bytes &bytes) {
  std::ofstream out(folder / name, std::ios::binary);
  out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// A hive of about a megabyte, as a user's is.
Bytes SampleHive() {
  std::vector<HiveValue> values;
  for (int i = 0; i < 31000; ++i) {
    const std::string key = "Software\\Vendor" + std::to_string(i % 400) + "\\Key" + std::to_string(i);
    values.push_back(NumberValue(key, "Number", static_cast<uint32_t>(i)));
    values.push_back(TextValue(key, "Text", "C:\\Program Files\\Vendor\\Program\\File " + std::to_string(i)));
  }
  return BuildHive(values);
}

// Its pages, evenly taken, in entries as a system writes them. Applying them changes nothing, and costs what it costs.
std::vector<LogEntrySpec> SampleEntries(const Bytes &hive) {
  std::vector<LogEntrySpec> entries(kEntries);
  const std::size_t step = (hive.size() / 4096 - 1) / kPages;
  for (std::size_t i = 0; i < kPages; ++i) {
    const auto page = hive.begin() + static_cast<std::ptrdiff_t>(4096 * (1 + i * step));
    entries[i * kEntries / kPages].pages.push_back({static_cast<uint32_t>(4096 * i * step), Bytes(page, page + 4096)});
  }
  return entries;
}

void MakeHives() {
  folder = MakeBenchFolder();
  const Bytes hive = SampleHive();
  Bytes dirty = hive;
  SetSequence(&dirty, 3, 2);
  const std::vector<LogEntrySpec> entries = SampleEntries(hive);
  const Bytes log1 = BuildNewLog(hive, 2, {entries.begin(), entries.begin() + kEntries / 2});
  const Bytes log2 = BuildNewLog(hive, 2 + kEntries / 2, {entries.begin() + kEntries / 2, entries.end()});
  Write("alone", hive);
  Write("clean", hive);
  Write("dirty", dirty);
  for (const char *name : {"clean", "dirty"}) {
    Write(name + std::string(".LOG1"), log1);
    Write(name + std::string(".LOG2"), log2);
  }
}

// A program loads a hive once. Each load here begins as its first one does, with no memory left of an earlier load:
// libhivex would read a clean hive into that, and save the kernel's work of providing it.
void StartAfresh() { malloc_trim(0); }

void CopyHive(const std::string &name, const std::string &to) {
  for (const char *end : {"", ".LOG1", ".LOG2"}) {
    fs::copy_file(folder / (name + end), folder / (to + end), fs::copy_options::overwrite_existing);
  }
}

bool Load(machine::Hive *hive, const std::string &name, std::size_t entries) {
  hive->directory = machine::Descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  hive->name = name;
  return OpenHive(hive, machine::HiveUse::kChange) && ReadHive(hive) && hive->recovery.entries == entries;
}

std::size_t EntriesOf(const std::string &name) { return name == "dirty" ? kEntries : 0; }

void LoadHive(benchmark::State &state, const char *name) {
  for (auto _ : state) {
    state.PauseTiming();
    StartAfresh();
    state.ResumeTiming();
    machine::Hive hive;
    if (!Load(&hive, name, EntriesOf(name))) state.SkipWithError("the hive was not loaded as it should be");
  }
}

// The same, one value set, and the hive saved.
void ChangeHive(benchmark::State &state, const char *name) {
  const machine::KeyPath key = machine::ParseKeyPathA("Software\\New");
  for (auto _ : state) {
    state.PauseTiming();
    StartAfresh();
    CopyHive(name, "changed");
    state.ResumeTiming();
    machine::Hive hive;
    std::uint64_t size = 0;
    std::string digest;
    if (!Load(&hive, "changed", EntriesOf(name)) || !CreateHiveKey(&hive, key) ||
        !SetHiveValue(&hive, key, {u"Number", REG_DWORD, {1, 0, 0, 0}}) || !SaveHive(&hive, &size, &digest)) {
      state.SkipWithError("the hive was not changed as it should be");
    }
  }
}

}  // namespace

void AddHiveBenchmarks() {
  MakeHives();
  for (const char *name : {"alone", "clean", "dirty"}) {
    benchmark::RegisterBenchmark((std::string("LoadHive_") + name).c_str(), LoadHive, name)
        ->Unit(benchmark::kMicrosecond)
        ->Repetitions(7);
  }
  for (const char *name : {"clean", "dirty"}) {
    benchmark::RegisterBenchmark((std::string("ChangeHive_") + name).c_str(), ChangeHive, name)
        ->Unit(benchmark::kMicrosecond)
        ->Repetitions(7);
  }
}

void PrintHiveRows(const Times &times) {
  const double alone = times.Of("LoadHive_alone/");
  Row("load of a dirty hive with 132 pages in two logs, to a clean one", times.Of("LoadHive_dirty/") / alone, 1.5, "x");
  Row("load of a clean hive with those logs beside it, to one without", times.Of("LoadHive_clean/") / alone, 1.1, "x");
  Row("loading that dirty hive, setting a value, saving, to a clean one",
      times.Of("ChangeHive_dirty/") / times.Of("ChangeHive_clean/"), 2, "x");
  fs::remove_all(folder);
}
