// How fast the parts of a restore run are, beside the least work that they could be: reading the same INF files, and
// libhivex's own editing of the same hive. Each budget is a ratio of two times taken in this one run.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <hivex.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "inf/field_reader.h"
#include "log/log.h"
#include "package/choose/index.h"
#include "registry/mount/hive.h"
#include "registry/values.h"
#include "tests/bench/bench_machine.h"
#include "tests/bench/report.h"
#include "vxrcore/machine.h"
#include "vxrcore/vxrcore.h"

namespace fs = std::filesystem;

namespace {

constexpr unsigned kMany = 10000, kFew = 1250;
constexpr std::uint32_t kExactJob = 1, kWindowsJob = 2;
constexpr const char *kHive = "D:\\Windows\\system32\\config\\SYSTEM";

std::map<unsigned, BenchMachine> machines;  // by count of INF files; 0 holds the corpus hive
fs::path corpusHive;

// The least a search can do: every file once into memory.
void ReadFiles(benchmark::State &state) {
  const fs::path directory = machines.at(static_cast<unsigned>(state.range(0))).folder / "ram/drivers";
  std::vector<std::string> names;
  for (const auto &entry : fs::directory_iterator(directory)) names.push_back(entry.path().string());
  std::sort(names.begin(), names.end());
  for (auto _ : state) {
    for (const std::string &name : names) {
      const int file = open(name.c_str(), O_RDONLY | O_CLOEXEC);
      std::string bytes(static_cast<std::size_t>(lseek(file, 0, SEEK_END)), '\0');
      benchmark::DoNotOptimize(pread(file, bytes.data(), bytes.size(), 0));
      close(file);
    }
  }
}

// Whether the file's ClassGUID is the one that one in five of the files has.
bool IsOfScsiClass(const std::string &name) {
  const InfFile inf = OpenInfFile(name.c_str());
  DWORD size = 0;
  std::string information, classGuid(64, '\0');
  if (!inf || !platform::SetupGetInfInformationA(inf.get(), INFINFO_INF_SPEC_IS_HINF, nullptr, 0, &size)) return false;
  information.resize(size);
  auto *record = reinterpret_cast<SP_INF_INFORMATION *>(information.data());
  return platform::SetupGetInfInformationA(inf.get(), INFINFO_INF_SPEC_IS_HINF, record, size, &size) &&
         platform::SetupQueryInfVersionInformationA(record, 0, "ClassGUID", classGuid.data(),
                                                    static_cast<DWORD>(classGuid.size()), &size) &&
         classGuid.starts_with("{4D36E97B");
}

void OpenAndReadClass(benchmark::State &state) {
  const BenchMachine &machine = machines.at(static_cast<unsigned>(state.range(0)));
  std::vector<std::string> names;
  for (const auto &entry : fs::directory_iterator(machine.folder / "ram/drivers"))
    names.push_back("X:\\drivers\\" + entry.path().filename().string());
  std::sort(names.begin(), names.end());
  for (auto _ : state) {
    state.PauseTiming();
    OpenBenchMachine(machine);  // anew, so that nothing is remembered
    state.ResumeTiming();
    std::size_t ofClass = 0;
    for (const std::string &name : names) ofClass += IsOfScsiClass(name) ? 1 : 0;
    state.PauseTiming();
    if (ofClass < names.size() / 10 || ofClass > names.size() / 3) state.SkipWithError("wrong count of files");
    CloseBenchMachine();
    state.ResumeTiming();
  }
}

void ReadThroughCall(const std::string &name) {
  const HANDLE file =
      platform::CreateFileA(name.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  DWORD size = platform::GetFileSize(file, nullptr);
  const auto bytes = std::make_unique_for_overwrite<char[]>(size);
  benchmark::DoNotOptimize(platform::ReadFile(file, bytes.get(), size, &size, nullptr));
  platform::CloseHandle(file);
}

// The least that an index can do: the folder's names, then every file once into memory, through the calls that it has.
void ReadThroughCalls(benchmark::State &state) {
  const BenchMachine &machine = machines.at(static_cast<unsigned>(state.range(0)));
  OpenBenchMachine(machine);
  for (auto _ : state) {
    std::vector<std::string> names;
    WIN32_FIND_DATAA data = {};
    const HANDLE search = platform::FindFirstFileA("X:\\drivers\\*", &data);
    do {
      if (data.cFileName[0] != '.') names.push_back(std::string("X:\\drivers\\") + data.cFileName);
    } while (platform::FindNextFileA(search, &data));
    platform::FindClose(search);
    std::sort(names.begin(), names.end());
    for (const std::string &name : names) ReadThroughCall(name);
    if (names.size() != static_cast<std::size_t>(state.range(0))) state.SkipWithError("not every file was read");
  }
  CloseBenchMachine();
}

void IndexDirectory(benchmark::State &state) {
  const unsigned count = static_cast<unsigned>(state.range(0));
  OpenBenchMachine(machines.at(count));
  for (auto _ : state) {
    package::Index index = package::MakeIndex({10, 0, 19045, kAmd64});
    package::AddDirectory(&index, "X:\\drivers", false);
    if (index.files.size() != count || index.ids.size() < 10 * count) state.SkipWithError("an incomplete index");
  }
  CloseBenchMachine();
}

// A verification of the job that finds no driver for the adapter.
void RunJob(benchmark::State &state, std::uint32_t job) {
  const unsigned count = static_cast<unsigned>(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    OpenBenchMachine(machines.at(count));
    state.ResumeTiming();
    const uint32_t result = VXREng_RunVXR(job, 0, nullptr, nullptr);
    VXRDbg_Cleanup();
    state.PauseTiming();
    if (result != 3) state.SkipWithError("the run should have found no driver");
    if (job == kExactJob && VXRMachine_InfReads() != count)
      state.SkipWithError("an INF file was not read exactly once");
    VXRMachine_Close();
    state.ResumeTiming();
  }
}

void VerificationRun(benchmark::State &state) { RunJob(state, kExactJob); }
void WindowsRulesRun(benchmark::State &state) { RunJob(state, kWindowsJob); }

const std::vector<std::pair<const char *, DWORD>> kEightValues = {{"Type", 1},   {"Start", 0},  {"ErrorControl", 1},
                                                                  {"Tag", 33},   {"Value1", 1}, {"Value2", 2},
                                                                  {"Value3", 3}, {"Value4", 4}};

void MountEightValuesUnmount(benchmark::State &state) {
  for (auto _ : state) {
    state.PauseTiming();
    fs::copy_file(corpusHive, machines.at(0).folder / "restored/Windows/system32/config/SYSTEM",
                  fs::copy_options::overwrite_existing);
    OpenBenchMachine(machines.at(0));
    state.ResumeTiming();
    BOOL good = VXRReg_LoadHiveFile("X:\\Windows\\System32", kHive);
    for (const auto &[name, number] : kEightValues)
      good &= VXRReg_SetRegValueToHive(VXR_KEY_ORG_SERVICES, "vxrbench", name, &number, REG_DWORD, sizeof number);
    good &= VXRReg_UnloadHive("X:\\Windows\\System32");
    state.PauseTiming();
    if (!good) state.SkipWithError("the hive could not be changed");
    CloseBenchMachine();
    state.ResumeTiming();
  }
}

// The same change by libhivex alone: open, one new key with eight values, save to another file, flush.
void HivexAlone(benchmark::State &state) {
  const std::string file = (machines.at(0).folder / "hivex-alone").string(), out = file + ".out";
  for (auto _ : state) {
    state.PauseTiming();
    fs::copy_file(corpusHive, file, fs::copy_options::overwrite_existing);
    state.ResumeTiming();
    hive_h *hive = hivex_open(file.c_str(), HIVEX_OPEN_WRITE);
    const hive_node_h set = hivex_node_get_child(hive, hivex_root(hive), "ControlSet001");
    const hive_node_h services = hivex_node_get_child(hive, set, "Services");
    const hive_node_h key = hivex_node_add_child(hive, services, "vxrbench");
    std::vector<hive_set_value> values;
    for (const auto &[name, number] : kEightValues)
      values.push_back(
          {const_cast<char *>(name), hive_t_REG_DWORD, 4, reinterpret_cast<char *>(const_cast<DWORD *>(&number))});
    int bad = hivex_node_set_values(hive, key, values.size(), values.data(), 0);
    bad |= hivex_commit(hive, out.c_str(), 0);
    const int written = open(out.c_str(), O_RDWR | O_CLOEXEC);
    bad |= fsync(written);
    close(written);
    hivex_close(hive);
    if (bad) state.SkipWithError("libhivex failed");
  }
}

void LogLineBelowThreshold(benchmark::State &state) {
  OpenBenchMachine(machines.at(kFew));
  for (auto _ : state) VXRDbg_Log(kFlush, "FLUSH:%s:index=%u\n", "LogLineBelowThreshold", 7u);
  CloseBenchMachine();
}

// Peak resident memory of what runs on the large machine above what was resident before it, in MB.
double PeakMemory(void (*run)()) {
  const auto field = [](const char *name) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
      if (line.rfind(name, 0) == 0) return std::strtod(line.c_str() + std::string(name).size(), nullptr) / 1024;
    return 0.0;
  };
  OpenBenchMachine(machines.at(kMany));
  std::ofstream("/proc/self/clear_refs") << "5";
  const double before = field("VmRSS:");
  run();
  const double peak = field("VmHWM:") - before;
  CloseBenchMachine();
  return peak;
}

double peakMemory = 0, indexMemory = 0;

}  // namespace

void AddRestoreBenchmarks(const char *hive) {
  machines[kMany] = MakeBenchMachine(kMany, {});
  machines[kFew] = MakeBenchMachine(kFew, {});
  peakMemory = PeakMemory([] { VXREng_RunVXR(1, 0, nullptr, nullptr); });
  indexMemory = PeakMemory([] {
    package::Index index = package::MakeIndex({});
    package::AddDirectory(&index, "X:\\drivers", false);
  });
  const auto add = [](const char *name, void (*function)(benchmark::State &)) {
    return benchmark::RegisterBenchmark(name, function)->Unit(benchmark::kMillisecond)->Repetitions(5);
  };
  add("ReadFiles", ReadFiles)->Arg(kMany);
  add("OpenAndReadClass", OpenAndReadClass)->Arg(kMany);
  add("ReadThroughCalls", ReadThroughCalls)->Arg(kMany);
  add("IndexDirectory", IndexDirectory)->Arg(kMany)->Arg(kFew);
  add("VerificationRun", VerificationRun)->Arg(kMany)->Arg(kFew);
  add("WindowsRulesRun", WindowsRulesRun)->Arg(kMany)->Arg(kFew);
  benchmark::RegisterBenchmark("LogLineBelowThreshold", LogLineBelowThreshold)->Repetitions(5);
  if (hive == nullptr) return;
  corpusHive = hive;
  machines[0] = MakeBenchMachine(0, corpusHive);
  add("MountEightValuesUnmount", MountEightValuesUnmount);
  add("HivexAlone", HivexAlone);
}

void PrintRestoreRows(const Times &times) {
  const double read = times.Of("ReadFiles/10000");
  Row("open and read ClassGUID, to reading 10,000 files", times.Of("OpenAndReadClass/10000") / read, 2.0, "x");
  Row("verification run that finds nothing, to reading 10,000 files", times.Of("VerificationRun/10000") / read, 3.0,
      "x");
  Row("run's time a file, 10,000 files to 1,250",
      times.Of("VerificationRun/10000") / kMany / (times.Of("VerificationRun/1250") / kFew), 1.2, "x");
  Row("index of 10,000 files, to reading them", times.Of("IndexDirectory/10000") / times.Of("ReadThroughCalls/10000"),
      2.0, "x");
  Row("index's time a file, 10,000 files to 1,250",
      times.Of("IndexDirectory/10000") / kMany / (times.Of("IndexDirectory/1250") / kFew), 1.2, "x");
  Row("verification by Windows' rules that finds nothing, to reading the files",
      times.Of("WindowsRulesRun/10000") / times.Of("ReadThroughCalls/10000"), 3.0, "x");
  Row("that verification's time a file, 10,000 files to 1,250",
      times.Of("WindowsRulesRun/10000") / kMany / (times.Of("WindowsRulesRun/1250") / kFew), 1.2, "x");
  if (!corpusHive.empty())
    Row("mount, eight values, unmount, to libhivex alone",
        times.Of("MountEightValuesUnmount/") / times.Of("HivexAlone/"), 1.3, "x");
  Row("log line below the threshold", times.Of("LogLineBelowThreshold/"), 10.0, "ns");
  Row("peak memory of a run over 10,000 files", peakMemory, 64.0, "MB");
  Row("peak memory of an index of 10,000 files", indexMemory, 64.0, "MB");
  for (const auto &[count, machine] : machines) RemoveBenchMachine(machine);
}
