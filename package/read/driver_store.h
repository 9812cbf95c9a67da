// Packages in a system's driver store, by the folders' names alone.
#pragma once

#include <string>
#include <vector>

#include "package/read/target.h"

namespace package {

// The store's directory of packages in that system directory ("D:\Windows\System32").
inline std::string FileRepository(const std::string &system) { return system + "\\DriverStore\\FileRepository"; }

// The INF file's name of a package's folder, "kstore.inf" of "kstore.inf_amd64_0123456789abcdef"; empty when there is
// none in it.
std::string InfNameOf(const std::string &package);

// The folders below FileRepository that hold a package of that INF file, those of the target's architecture first, then
// in name order. At most 64. `infName` is a plain name.
std::vector<std::string> StoreFolders(const std::string &fileRepository, const std::string &infName,
                                      const Target &target);

}  // namespace package
