#include "tests/support/protected_machine.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

namespace fs = std::filesystem;

namespace {

constexpr std::time_t kFirstWrite = 1200000000;   // 2008
constexpr std::time_t kFirstAccess = 2500000000;  // 2049: the host moves a time of last access that has passed

}  // namespace

ProtectedMachineTest::ProtectedMachineTest() {
  CopyExample("protected-5.2-x64", "protected", "c");
  std::vector<fs::path> files;
  for (const auto &entry : fs::recursive_directory_iterator(Host("protected/c/WINDOWS"))) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  for (std::size_t i = 0; i < files.size(); ++i) {
    const auto step = static_cast<std::time_t>(i);
    const timespec times[2] = {{kFirstAccess + step, 0}, {kFirstWrite + step * 3600, 123456700}};
    EXPECT_EQ(utimensat(AT_FDCWD, files[i].c_str(), times, 0), 0);
  }
}

void ProtectedMachineTest::OpenProtected(const std::function<void(std::string *)> &bend) {
  std::string toml = ReadFile("protected/machine.toml");
  if (bend) bend(&toml);
  WriteFile("protected/bent.toml", toml);
  OpenFile("protected/bent.toml");
}

uint32_t ProtectedMachineTest::Record(const char *includes, const char *map) {
  return VXREng_CreateBMExtFile(Host("protected/machine.bme").c_str(), includes, map);
}

std::string ProtectedMachineTest::Recorded(const std::string &image) {
  std::string all;
  for (uint64_t v = 0; v < NumberAt(image, 608); ++v) {
    const std::size_t volume = 624 + v * 19888;
    all += (v == 0 ? "" : " ") + TextAt(image, volume).substr(0, 2);
    for (uint64_t d = 0; d < NumberAt(image, volume + 920); ++d) {
      const std::size_t disk = volume + 928 + d * 9480;
      if (d > 0) all += '/';
      if (!TextAt(image, disk + 24 + 20).empty()) all += 'd';
      if (!TextAt(image, disk + 3176 + 20).empty()) all += 'c';
      if (!TextAt(image, disk + 6328 + 20).empty()) all += 'b';
    }
  }
  return all;
}

uint64_t NumberAt(const std::string &image, std::size_t offset, std::size_t size) {
  uint64_t number = 0;
  for (std::size_t i = size; i-- > 0;) number = number << 8 | static_cast<unsigned char>(image.at(offset + i));
  return number;
}

std::string TextAt(const std::string &image, std::size_t offset) { return image.substr(offset).c_str(); }
