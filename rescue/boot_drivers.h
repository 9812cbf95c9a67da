// What a restored system starts from, as its SYSTEM hive says: drivers, and the devices that name them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/machine/base/status.h"
#include "rescue/restored_system.h"

namespace rescue {

// A driver that is loaded before the system's volume can be read.
struct BootDriver {
  std::string service, group;
  std::string image;                           // as the hive names it; empty: by the service's name
  std::filesystem::path file;                  // on the host; empty: it is not there
  std::string version;                         // of the file, "10.0.19041.1"; empty: it tells none
  std::optional<std::uint32_t> architecture;   // of the file
  std::optional<std::uint32_t> startOverride;  // holds it back when it is not 0
};

// Which driver an id gets at the start.
struct BootDevice {
  std::string id;
  std::string service;  // empty: none
  std::string inf;      // of systems with a driver database: of the driver package
};

struct BootState {
  std::vector<std::uint32_t> controlSets;  // that the hive has, ascending
  std::optional<std::uint32_t> current, standard, failed, lastKnownGood;
  std::vector<BootDriver> drivers;  // by the names of their services
  std::uint64_t devices = 0;        // ids that the critical-device database or DeviceIds list
  std::vector<BootDevice> asked;    // those of the ids that were asked for
};

// Of a system whose facts were read. An id is asked for as devices have it, "PCI\VEN_8086&DEV_2922&CC_0106". Fails,
// with one line, when the hive cannot be read.
machine::Status ReadBootState(const RestoredSystem &system, const std::vector<std::string> &ids, BootState *state);

}  // namespace rescue
