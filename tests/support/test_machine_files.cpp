// What the fixture does with files, whatever machine it stands on.
#include <algorithm>
#include <fstream>
#include <sstream>

#include "tests/support/test_machine.h"

std::filesystem::path MachineTest::Host(const std::string &relative) const { return folder / relative; }

void MachineTest::WriteFile(const std::string &relative, const std::string &content) {
  const std::filesystem::path path = Host(relative);
  std::filesystem::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content;
  file.close();
  if (!file) ADD_FAILURE() << "cannot write " << path;
}

std::string MachineTest::ReadFile(const std::string &relative) const {
  std::ifstream file(Host(relative), std::ios::binary);
  if (!file) ADD_FAILURE() << "cannot read " << Host(relative);
  // Not a character at a time, which took a seventh of the fault loops' time.
  std::string bytes(file ? std::filesystem::file_size(Host(relative)) : 0, '\0');
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  return bytes;
}

std::vector<std::string> MachineTest::Names(const std::string &relative) const {
  std::vector<std::string> names;
  for (const auto &entry : std::filesystem::directory_iterator(Host(relative))) {
    names.push_back(entry.path().filename().string());
  }
  return names;
}

std::vector<std::string> MachineTest::Lines(const std::string &prefix) const {
  std::vector<std::string> lines;
  std::istringstream stream(log);
  for (std::string line; std::getline(stream, line);) {
    if (line.starts_with(prefix)) lines.push_back(line.substr(prefix.size()));
  }
  return lines;
}

std::string MachineTest::JobToml(int number, const std::string &more) {
  return "[registry.'SOFTWARE\\Varnelt\\Relmar\\" + std::to_string(number) + R"(']
Disk = '\\.\PhysicalDrive0'
InfDir = 'X:\drivers'
BootPart = '\\.\PhysicalDrive0\Partition1'
RootPath = 'D:\'
BMEFile = 'X:\machine.bme'
)" + more +
         "\n";
}

std::string MachineTest::RestoredTree() const {
  std::vector<std::string> files;
  for (const auto &entry : std::filesystem::recursive_directory_iterator(folder / "restored")) {
    const std::string relative = std::filesystem::relative(entry.path(), folder).string();
    files.push_back(relative + (entry.is_regular_file() ? "\n" + ReadFile(relative) : "/") + "\n");
  }
  std::sort(files.begin(), files.end());
  std::string all;
  for (const std::string &file : files) all += file;
  return all;
}
