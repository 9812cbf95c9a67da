// Writes a hive file for examples and for trying things out.
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>

#include "tests/support/hive_builder.h"

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
    }
  } catch (const std::exception &failure) {
    std::cerr << "make_hive: " << failure.what() << '\n';
    return 1;
  }
  std::cerr << "usage: make_hive OUT.hive system CURRENT (a control set, 1 to 999) | make_hive OUT.hive empty\n";
  return 1;
}
