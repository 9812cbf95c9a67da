// Where a package's files lie, and where they go in the restored system.
#pragma once

#include <string>

#include "package/read/installation.h"
#include "package/read/plain_names.h"

namespace package {

// Whether there is a file, and its size when asked for.
bool IsFile(const std::string &path, DWORD64 *size = nullptr);

enum class SourceState { kFound, kMissing, kCompressed, kInCabinet };

struct SourceFile {
  SourceState state = SourceState::kMissing;
  std::string path;  // found: the file; else where it was sought
  DWORD64 size = 0;  // bytes
  // It lies beside the INF file, not where SourceDisksFiles says.
  bool elsewhere = false;
};

// The places of the restored system that directory ids name, without trailing backslash; all empty when there is none.
struct RestoredPlaces {
  std::string root;     // "D:" of "D:\"
  std::string windows;  // "D:\Windows"
  std::string system;   // "D:\Windows\System32"
  std::string inf;      // "D:\Windows\inf"
};

// The place that a directory id stands for; empty for one that is not in the restored system's directories.
std::string PlaceOf(long id, const RestoredPlaces &places);

// Finds a file of a package: where [SourceDisksFiles] declares it (".amd64" before plain), then beside the INF file,
// then under its compressed name, then in its cabinet. A name or folder that would lead out of the INF file's directory
// is missing. Of an inbox INF file: in its system's own directories, a .sys also in that system's driver store.
SourceFile FindSource(const InfSource &inf, const std::string &name, const Target &target);

// Finds a service's driver of that name: what a copy list brings under it, wherever to, else the package's file of that
// name. `*listed`, when given: a copy list names it.
SourceFile FindServiceFile(const Installation &installation, const ServiceLines &service, const std::string &name,
                           const Target &target, bool *listed = nullptr);

// Target path of a file of a copy list by [DestinationDirs]. A file of directory 13 (the package's own directory in the
// driver store, which cannot be made offline) goes to the drivers directory, and so does a service's own without a
// destination; others without one go to the system directory. False, with the reason, when the list goes to a place
// that is not in the restored system's directories or the name or sub-directory is not plain.
bool ResolveTarget(const InfSource &inf, const FileLine &file, const RestoredPlaces &places, std::string *path,
                   std::string *reason);

// Whether the file's list goes to directory 13, where a driver may look for those that come with it.
bool GoesToStore(const InfSource &inf, const FileLine &file);

// A service's binary ("%12%\x.sys", "%13%\x.sys", "\SystemRoot\System32\drivers\x.sys"): the file's name. False when
// it is not a plain name in or below the Windows directory or the package's own.
bool BinaryName(const std::string &binary, std::string *name);
// Whether the service is a driver; programs are of no use before the system has started.
bool IsDriver(const ServiceLines &service);
// The file's name of a service that is a driver; false when it is none, or its binary is not to be had.
bool DriverName(const ServiceLines &service, std::string *name);

// Facts of a driver image, read from its headers.
struct ImageFacts {
  WORD machine = 0;  // IMAGE_FILE_MACHINE_...
  WORD subsystemMajor = 0, subsystemMinor = 0;
  bool signedInside = false;  // holds a certificate table that is whole; whether it is valid is not looked at
};
// False when the file cannot be read or is no PE image.
bool ReadImageFacts(const std::string &path, ImageFacts *facts);
// IMAGE_FILE_MACHINE_... of the target.
WORD ImageMachine(const Target &target);

}  // namespace package
