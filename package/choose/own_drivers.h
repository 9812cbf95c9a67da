// What the restored system has for a device already: a driver of its own, in use or held back.
#pragma once

#include <string>
#include <vector>

#include "package/choose/candidates.h"
#include "package/choose/own_service.h"
#include "package/read/sources.h"
#include "registry/edits.h"

namespace package {

struct OwnDriver {
  Rank rank;              // rank.path: the INF name in its database; empty for a critical-device entry
  std::string id;         // the device's
  std::string service;    // empty: the device needs none
  bool heldBack = false;  // it or one of its filters would not start with the system
  // The service's file: where the service has it, and when it is not there the place in the driver store from where it
  // can be taken to there, which is then in the drivers directory; both empty without a service.
  std::string binary, storedBinary;
  std::vector<OwnService> filters;  // of the device, which does not start without them
};

// The restored system's best driver for the device, by the ranks that its database gives. False when it has none whose
// services and files are there; `*passedOver`, when given, gets a sentence for each one that has not. The date of what
// a critical-device entry names is that of the INF file of the package that it names; without one there is none.
bool FindOwnDriver(const RegistryEdits &edits, const std::string &controlSet, const DeviceIds &device,
                   const Target &target, const RestoredPlaces &places, OwnDriver *driver,
                   std::vector<std::string> *passedOver = nullptr);

// Whether a package's driver is to be installed in the place of the system's own: a better rank, or an equal one and a
// later date. An inbox one needs a better rank: the running system's is made
// for another Windows, the restored one's no newer than what that has in use.
bool Beats(const Candidate &candidate, const OwnDriver &own);

}  // namespace package
