// The commands of vxr, one file each. Each returns the exit status of the program.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

constexpr int kExitUsage = 2;  // wrong usage, or a machine that cannot be opened

// Whether files describe the machines. On Windows the commands work on the machine that they run on: no option names
// one, and disks are the machine's own, never images.
#ifdef _WIN32
constexpr bool kDescribedMachines = false;
#else
constexpr bool kDescribedMachines = true;
#endif

struct RunOptions {
  std::string machine;  // TOML file; empty without described machines, here and below
  std::uint32_t job = 0;
  bool verify = false;
  bool json = false;
};

// The restore run on a described machine: status lines as they come, then what happened. The run's result code; 4 when
// the restored hive could not be saved, or the run succeeded without one of its values; 1 when the verification
// succeeds and an injection would not; 2 when the machine cannot be opened.
int RunCommand(const RunOptions &options);

struct InfOptions {
  std::string file;
  unsigned codePage = 1252;
  unsigned language = 0x0409;
  bool json = false;
};

// Shows an INF file as its reader sees it. 0, or 1 when there is nothing to show.
int InfCommand(const InfOptions &options);

struct HiveOptions {
  std::string file;
  std::string replay;  // file to write the recovered hive to; empty: none
  bool json = false;
};

// Shows what a registry hive is and what its logs would do; only with described machines, since Windows does this
// itself. 0, or 1 when the hive could not be changed, or the recovered one not be written.
int HiveCommand(const HiveOptions &options);

struct CreateOptions {
  std::string machine;    // TOML file
  std::string extension;  // host path, or a path of the machine when it begins with a drive letter; the others too
  std::string includes;   // empty: none
  std::string map;        // empty: none
};

// Writes the described machine's extension file. 0, 9 on failure, or 2 when the machine cannot be opened.
int CreateCommand(const CreateOptions &options);

struct ShowOptions {
  std::vector<std::string> files;
  unsigned codePage = 1252;
  bool json = false;
};

// Shows whole extension files. 0, or 1 when one of them cannot be read or is no extension file.
int ShowCommand(const ShowOptions &options);

struct QueryOptions {
  std::string file;
  std::string queryClass, item;  // names or numbers
  std::uint32_t volume = 0;
  std::int32_t disk = 0;
  std::string driver;  // disk, bus or controller; empty: none
  std::string letter;  // of VXREQV_VolIndex; empty: none
  unsigned codePage = 1252;
};

// Asks one question about an extension file. 0, or 1 when there is no answer.
int QueryCommand(const QueryOptions &options);

struct FixBootOptions {
  std::string disk;      // a device name of the machine, or an image or block device of the host with a geometry
  std::string machine;   // TOML file; empty with a geometry
  std::string geometry;  // cylinders, heads, sectors a track, bytes a sector: "C,H,S,B"; empty with a machine
};

// Repairs the boot sector of a disk's active partition and says what differed. 0, 1 on failure, 2 for a wrong geometry
// or a machine that cannot be opened.
int FixBootCommand(const FixBootOptions &options);
