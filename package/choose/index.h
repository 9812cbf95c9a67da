// Every INF file of the driver directories, read once, and which of them list an id. Of a file only the hashes of its
// ids are kept: a file that lists an id of a device is read again when it is judged.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "package/read/inf_source.h"

namespace package {

inline constexpr unsigned kIndexDepth = 32;        // folders below a directory
inline constexpr unsigned kIndexFolders = 100000;  // below all directories
inline constexpr unsigned kIndexFiles = 100000;    // INF files in all, with those that cannot be read
inline constexpr unsigned kIndexIds = 65536;       // of one file

struct IndexedFile {
  std::string path;
  bool inbox = false;
  std::uint32_t firstId = 0;  // of Index::ids; they reach to those of the next file
};

// What could not be read, and why: an INF file, or a directory that is missing, unreadable or too deep. The first file
// or folder beyond what is counted stands for all further ones.
struct UnreadFile {
  std::string path, reason;
};

struct Index {
  Target target;
  std::shared_ptr<const machine::InfSettings> settings;
  std::vector<IndexedFile> files;  // directory by directory, folder by folder, in name order without regard to case
  std::vector<UnreadFile> unread;
  std::vector<std::uint32_t> ids;     // hashes without regard to case, file by file; other ids may have the same
  std::set<std::string> directories;  // looked into, in upper case
  bool full = false;                  // no further file or folder is looked at
};

// How far indexing is, told now and then.
using IndexProgress = void (*)(void *context, std::size_t files);

Index MakeIndex(const Target &target);
// Adds the INF files of a directory and of everything below it; links are not followed. A directory that stands in the
// index already adds nothing. `inbox`: the own inf directory of a system, the running
// or the restored one, of which no folder below is looked into.
void AddDirectory(Index *index, const std::string &directory, bool inbox, IndexProgress progress = nullptr,
                  void *context = nullptr);
// Adds one INF file.
void AddFile(Index *index, const std::string &path, bool inbox = false);
// The numbers, in file order, of the files that list any of the ids, in any section of any system, and perhaps a few
// more.
std::vector<std::uint32_t> FilesListing(const Index &index, const std::vector<std::string> &ids);

}  // namespace package
