// A service of the restored system, as far as a device needs it.
#pragma once

#include <string>

#include "package/read/sources.h"
#include "registry/edits.h"

namespace package {

struct OwnService {
  std::string name;
  // Its file: where the service has it, and when it is not there the place in the driver store from where it can be
  // taken to there, which is then in the drivers directory.
  std::string binary, storedBinary;
  bool heldBack = false;     // would not start with the system
  std::string missing = {};  // why it is none, to be said behind its name; empty when it is one
};

// Finds a driver's service in the control set. `storePackage` is its package's folder in the driver store, such as
// "kstore.inf_amd64_0123456789abcdef"; another folder of the same INF file and architecture serves too. False when the
// service is missing or is no driver's, or when its file is in neither place, with the reason in `service->missing`; a
// file outside the system's directory counts for missing.
bool FindOwnService(const RegistryEdits &edits, const std::string &controlSet, const std::string &name,
                    const std::string &storePackage, const RestoredPlaces &places, const Target &target,
                    OwnService *service);

}  // namespace package
