// What the restored system has for a device already: a driver of its own, in use or held back.
#pragma once

#include <string>
#include <vector>

#include "package/candidates.h"
#include "package/sources.h"
#include "registry/edits.h"

namespace package {

struct OwnDriver {
  Rank rank;                   // rank.path: the INF name in its database; empty for a critical-device entry
  std::string id;              // the device's
  std::string service;         // empty: the device needs none
  bool newerDatabase = false;  // found in DriverDatabase
  bool heldBack = false;       // would not start with the system
  // The service's file: its place in the drivers directory, and when it is not there the place in the driver store from
  // where it can be taken; both empty when there is neither.
  std::string binary, storedBinary;
};

// The restored system's best driver for the device, by the ranks that its database gives. False when it has none whose
// service and file are there.
bool FindOwnDriver(const RegistryEdits &edits, const std::string &controlSet, const DeviceIds &device,
                   const Target &target, const RestoredPlaces &places, OwnDriver *driver);

// Whether a package's driver is to be installed in the place of the system's own: a better rank, or an equal one and a
// later date.
bool Beats(const Rank &candidate, const Rank &own);

}  // namespace package
