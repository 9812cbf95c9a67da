// Recording a machine, asking questions about what was recorded, and showing it.

#include <benchmark/benchmark.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/bench/protected_machine.h"
#include "tests/bench/report.h"
#include "tools/vxr/extension/extension_file.h"
#include "vxrcore/bmext.h"
#include "vxrcore/vxrcore.h"

namespace fs = std::filesystem;

namespace {

constexpr unsigned kFewDevices = 64, kManyDevices = 512;

std::map<unsigned, BenchMachine> machines;  // by count of devices
std::vector<char> image;                    // an extension file of the smaller one

std::vector<char> ReadWhole(const fs::path &file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

unsigned RecordedDrivers(const std::vector<char> &file) {
  if (file.size() != VXR_EXT_FILE_SIZE) return 0;
  const auto *read = reinterpret_cast<const VXR_EXTIMAGE *>(file.data());
  unsigned drivers = 0;
  for (const VXR_VOLUME &volume : read->Extension.Volumes.Vols) {
    for (const VXR_VOLDISK &disk : volume.VolDisks.Disks) {
      for (const VXR_DEVDRV *driver : {&disk.DiskDriver, &disk.CtrlDriver, &disk.BusEDriver})
        drivers += driver->Service.Name[0] != '\0' ? 1 : 0;
    }
  }
  return drivers;
}

void CreateExtension(benchmark::State &state) {
  const BenchMachine &machine = machines.at(static_cast<unsigned>(state.range(0)));
  for (auto _ : state) {
    state.PauseTiming();
    OpenBenchMachine(machine);  // anew, so that nothing is remembered
    state.ResumeTiming();
    if (VXREng_CreateBMExtFile("C:\\machine.bme", nullptr, nullptr) != 0) state.SkipWithError("no file was made");
    state.PauseTiming();
    CloseBenchMachine();
    state.ResumeTiming();
  }
  image = ReadWhole(machine.folder / "C/machine.bme");
  if (RecordedDrivers(image) != kRecordedDrivers) state.SkipWithError("wrong count of recorded drivers");
}

constexpr uint32_t kInstanceId = VXREQV_CtrlDriver | VXREQV_DiskInstanceId;

// One query of the longest road: by volume, disk and driver.
void QueryInstanceId(benchmark::State &state) {
  OpenBenchMachine(machines.at(kFewDevices));
  uint8_t answer[260];
  const int32_t disk = 1;
  for (auto _ : state) {
    uint32_t size = sizeof answer;
    if (!VXRExt_QueryData(VXREQ_Volume, kInstanceId, answer, &size, &disk, 3, image.data()))
      state.SkipWithError("no answer");
    benchmark::DoNotOptimize(answer);
  }
  CloseBenchMachine();
}

// What it cannot do without: copying those bytes.
void CopyInstanceId(benchmark::State &state) {
  char answer[260];
  const char *field = image.data() + 1552 + 3 * 19888 + 9480 + 3176 + 20;
  const std::size_t size = strnlen(field, sizeof answer);
  for (auto _ : state) {
    std::memcpy(answer, field, size);
    benchmark::DoNotOptimize(answer);
  }
}

constexpr unsigned kShownFiles = 1000, kCodePage = 1252;

std::vector<std::string> files;  // extension files of the recorded machine

void MakeFiles() {
  const fs::path folder = machines.at(kFewDevices).folder / "files";
  fs::create_directories(folder);
  for (unsigned i = 0; i < kShownFiles; ++i) {
    files.push_back((folder / (std::to_string(i) + ".bme")).string());
    std::ofstream(files.back(), std::ios::binary).write(image.data(), static_cast<std::streamsize>(image.size()));
  }
}

void ShowAsJson(benchmark::State &state) {
  if (files.empty()) MakeFiles();
  for (auto _ : state) {
    for (const std::string &file : files) {
      VXR_EXTIMAGE read;
      std::string problem;
      if (!ReadExtensionFile(file, &read, &problem)) state.SkipWithError("no extension file");
      benchmark::DoNotOptimize(DocumentText(ExtensionDocument(file, read, kCodePage)));
    }
  }
}

// The least that showing can be: the same reads, and the same document formatted from memory.
void ReadAndFormat(benchmark::State &state) {
  VXR_EXTIMAGE read;
  std::string problem;
  ReadExtensionFile(files.front(), &read, &problem);
  const nlohmann::ordered_json document = ExtensionDocument(files.front(), read, kCodePage);
  for (auto _ : state) {
    for (const std::string &file : files) {
      benchmark::DoNotOptimize(ReadExtensionFile(file, &read, &problem));
      benchmark::DoNotOptimize(DocumentText(document));
    }
  }
}

}  // namespace

void AddExtensionBenchmarks() {
  const auto add = [](const char *name, void (*function)(benchmark::State &)) {
    return benchmark::RegisterBenchmark(name, function)->Repetitions(5);
  };
  for (const unsigned devices : {kManyDevices, kFewDevices}) {
    machines[devices] = MakeProtectedMachine(devices);
    add("CreateExtension", CreateExtension)->Unit(benchmark::kMicrosecond)->Arg(devices);
  }
  add("QueryInstanceId", QueryInstanceId);
  add("CopyInstanceId", CopyInstanceId);
  add("ShowAsJson", ShowAsJson)->Unit(benchmark::kMillisecond);
  add("ReadAndFormat", ReadAndFormat)->Unit(benchmark::kMillisecond);
}

void PrintExtensionRows(const Times &times) {
  Row("recording a driver among 512 devices, to among 64",
      times.Of("CreateExtension/512") / times.Of("CreateExtension/64"), 1.5, "x");
  Row("a query, beyond copying its bytes", times.Of("QueryInstanceId/") - times.Of("CopyInstanceId/"), 150.0, "ns");
  Row("showing 1,000 files as JSON, to reading and formatting from memory",
      times.Of("ShowAsJson/") / times.Of("ReadAndFormat/"), 2.0, "x");
  for (const auto &[count, machine] : machines) RemoveBenchMachine(machine);
}
