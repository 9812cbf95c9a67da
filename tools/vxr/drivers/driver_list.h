// The drivers that a search found for a device. All texts are UTF-8.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/vxr/drivers/drivers_command.h"
#include "vxrcore/drivers.h"

struct DriverRow {
  std::string inf;          // as found below the directory that was named
  std::string machinePath;  // where the library found it
  std::string models, section, description, manufacturer, provider, id;
  std::uint32_t rank = 0;
  std::string date, version, service;  // empty: none
  std::string reason, reasonText;      // empty: it can be installed
};

struct UnreadRow {
  std::string inf, text;
  std::string machinePath;
};

struct DriverQuery {
  const DriversOptions *options = nullptr;
  VXRDRV_TARGET target = {};
  std::vector<std::string> hardwareIds, compatibleIds;
  bool withoutClass = false;  // of a PCI function that the ids are made of
};

struct DriverList {
  std::vector<DriverRow> rows;  // in the order of preference, those that cannot be installed behind
  std::vector<UnreadRow> unread;
  std::uint32_t files = 0;  // INF files that were read
  std::uint32_t below = 0;  // those that exact rules leave out, since they lie in folders below
};

// Asks the library. False, after a message, when the search cannot be made.
bool FindDrivers(const DriverQuery &query, DriverList *list);
