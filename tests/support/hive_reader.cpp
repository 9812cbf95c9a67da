#include "tests/support/hive_reader.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <memory>

std::vector<std::string> ExportHive(const std::filesystem::path &file, const std::string &key) {
  const std::string command = "hivexregedit --export '" + file.string() + "' '" + key + "' 2>/dev/null";
  const std::unique_ptr<FILE, int (*)(FILE *)> pipe(popen(command.c_str(), "r"), pclose);
  std::vector<std::string> lines;
  std::string line;
  for (int c = 0; pipe != nullptr && (c = std::fgetc(pipe.get())) != EOF;) {
    if (c != '\n') {
      line += static_cast<char>(c);
      continue;
    }
    lines.push_back(std::move(line));
    line.clear();
  }
  return lines;
}

std::vector<std::string> ExportDifference(std::vector<std::string> before, std::vector<std::string> after) {
  std::sort(before.begin(), before.end());
  std::sort(after.begin(), after.end());
  std::vector<std::string> gone, come, difference;
  std::set_difference(before.begin(), before.end(), after.begin(), after.end(), std::back_inserter(gone));
  std::set_difference(after.begin(), after.end(), before.begin(), before.end(), std::back_inserter(come));
  for (const std::string &line : gone) difference.push_back("-" + line);
  for (const std::string &line : come) difference.push_back("+" + line);
  return difference;
}
