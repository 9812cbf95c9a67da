// The restored system of a run, as a choice of drivers needs it.
#pragma once

#include "package/read/sources.h"
#include "package/read/target.h"
#include "registry/edits.h"

namespace package {

// The system that the extension records, with the language of the mounted hive. False, after logging, without an
// extension, or when its system is older than 5.0 or of an architecture that no INF file names.
bool ReadRestoredTarget(const RegistryEdits &edits, const std::string &controlSet, Target *target);
// Where its directories are reachable now. False, after logging, when the extension or the job names none.
bool ReadRestoredPlaces(RestoredPlaces *places);
// Where INF files that others include are sought in it.
IncludePlaces RestoredIncludes(const RestoredPlaces &places);
// The control set of the mounted hive that the run works on.
std::string RestoredControlSet();

}  // namespace package
