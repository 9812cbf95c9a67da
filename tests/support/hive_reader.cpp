#include "tests/support/hive_reader.h"

#include <gtest/gtest.h>
#include <hivex.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>

#include "platform/machine/hive/registry_value.h"

namespace {

template <typename T>
using Freed = std::unique_ptr<T, void (*)(void *)>;

std::string Text(char *allocated) {
  const Freed<char> owner(allocated, std::free);
  return allocated == nullptr ? "?" : allocated;
}

void AddLines(hive_h *hive, hive_node_h node, const std::string &path, std::vector<std::string> *lines) {
  lines->push_back("[" + path);
  const Freed<hive_value_h> values(hivex_node_values(hive, node), std::free);
  for (const hive_value_h *value = values.get(); value != nullptr && *value != 0; ++value) {
    hive_type read = hive_t_none;
    std::size_t size = 0;
    const Freed<char> data(hivex_value_value(hive, *value, &read, &size), std::free);
    EXPECT_NE(data, nullptr) << path;
    if (data == nullptr) continue;
    std::uint32_t type = 0;  // Windows has types that the enumeration does not
    static_assert(sizeof read == sizeof type);
    std::memcpy(&type, &read, sizeof type);
    const std::string text = machine::DataForPeople(type, {data.get(), data.get() + size});
    lines->push_back(HiveValueLine(path, Text(hivex_value_key(hive, *value)), type, size, text));
  }
  const Freed<hive_node_h> children(hivex_node_children(hive, node), std::free);
  for (const hive_node_h *child = children.get(); child != nullptr && *child != 0; ++child) {
    AddLines(hive, *child, (path.empty() ? "" : path + "\\") + Text(hivex_node_name(hive, *child)), lines);
  }
}

}  // namespace

std::vector<std::string> HiveLines(const std::filesystem::path &file) {
  std::vector<std::string> lines;
  hive_h *hive = hivex_open(file.c_str(), 0);
  EXPECT_NE(hive, nullptr) << "the hive cannot be read any more";
  if (hive == nullptr) return lines;
  AddLines(hive, hivex_root(hive), "", &lines);
  hivex_close(hive);
  return lines;
}

std::string HiveValueLine(const std::string &key, const std::string &name, uint32_t type, uint64_t size,
                          const std::string &text) {
  return key + ": " + name + " " + std::to_string(type) + " " + std::to_string(size) + " " + text;
}

std::vector<std::string> ExportHive(const std::filesystem::path &file, const std::string &key) {
  const std::string command = "hivexregedit --export '" + file.string() + "' '" + key + "' 2>/dev/null";
  const std::unique_ptr<FILE, int (*)(FILE *)> pipe(popen(command.c_str(), "r"), pclose);
  std::vector<std::string> lines;
  char *line = nullptr;
  std::size_t room = 0;
  while (pipe != nullptr && getline(&line, &room, pipe.get()) > 0) {
    lines.emplace_back(line, std::strcspn(line, "\n"));
  }
  std::free(line);
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
