// Writes a hive file for examples and for trying things out.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "tests/support/hive_builder.h"
#include "tests/support/hive_log_builder.h"

namespace {

// As if the system had been stopped while it wrote: the last page is lost, and only a log beside the hive has it.
void MakeDirty(const std::string &file) {
  std::ifstream in(file, std::ios::binary);
  std::vector<uint8_t> hive((std::istreambuf_iterator<char>(in)), {}), before;
  if (hive.size() < 8192) throw std::runtime_error("cannot read " + file);
  before = hive;
  std::fill(before.end() - 4096, before.end(), 0);
  const std::vector<uint8_t> log = BuildNewLog(hive, 40, {{ChangedPages(before, hive)}});
  SetSequence(&before, 31, 30);
  for (const auto &[name, bytes] : {std::pair(file, &std::as_const(before)), std::pair(file + ".LOG1", &log)}) {
    std::ofstream out(name, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(bytes->data()), static_cast<std::streamsize>(bytes->size()));
    if (!out.flush()) throw std::runtime_error("cannot write " + name);
  }
}

}  // namespace

int main(int argc, char **argv) {
  try {
    if (argc == 4 && std::strcmp(argv[2], "system") == 0) {
      char *end = nullptr;
      const unsigned long current = std::strtoul(argv[3], &end, 10);
      if (*end == '\0' && current >= 1 && current <= 999) {
        WriteHive(argv[1], SystemHiveValues(static_cast<uint32_t>(current)));
        return 0;
      }
    } else if (argc == 3 && std::strcmp(argv[2], "empty") == 0) {
      WriteHive(argv[1], {});
      return 0;
    } else if (argc == 3 && std::strcmp(argv[2], "dirty") == 0) {
      MakeDirty(argv[1]);
      return 0;
    }
  } catch (const std::exception &failure) {
    std::cerr << "make_hive: " << failure.what() << '\n';
    return 1;
  }
  std::cerr << "usage: make_hive OUT.hive system CURRENT (a control set, 1 to 999) | make_hive OUT.hive empty |\n"
               "make_hive HIVE dirty (takes its last page away, into a log beside it)\n";
  return 1;
}
