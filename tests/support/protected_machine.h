// The example of a protected machine, in a temporary folder, recorded in an extension file. Tests bend its machine file
// before they open it.
#pragma once

#include <functional>

#include "tests/support/test_machine.h"

class ProtectedMachineTest : public MachineTest {
 protected:
  // Copies the example into protected/ (C: is protected/c) and gives its files fixed times, each another.
  ProtectedMachineTest();

  void OpenProtected(const std::function<void(std::string *toml)> &bend = {});
  // Records the machine in protected/machine.bme; returns the result. C:\backup has the map and the includes file.
  uint32_t Record(const char *includes = R"(C:\backup\includes.ini)", const char *map = R"(C:\backup\map.ini)");
  std::string Image() const { return ReadFile("protected/machine.bme"); }

  // What an image recorded, by its volumes: for each "C:dcb" the drivers of each of its disks (of disk, controller, bus
  // extender, by their ids), disks parted by "/".
  static std::string Recorded(const std::string &image);
};

// Little-endian number of `size` bytes, at most 8, at an offset of an image.
uint64_t NumberAt(const std::string &image, std::size_t offset, std::size_t size = 4);
// Text up to its terminator.
std::string TextAt(const std::string &image, std::size_t offset);
