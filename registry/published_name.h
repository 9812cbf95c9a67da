// The names under which a system's DriverDatabase keeps packages that are not its maker's: "oem0.inf", "oem1.inf" ...
#pragma once

#include <string>

#include "registry/edits.h"

// Whether it is such a name.
bool IsPublishedName(const std::string &name);

// Plans to take the first name that the database's map of names, its INF files and the directory `windowsInf` (which
// may be empty) all leave free. False, after logging it, when none of the names up to oem9999.inf is.
bool TakePublishedName(const std::string &windowsInf, RegistryEdits *edits, std::string *name);
