// Every INF file of the driver directories, read once, and which of them list an id. Of a file only the hashes of its
// ids are kept: a file that lists an id of a device is read again when it is judged.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "package/inf_source.h"

namespace package {

inline constexpr unsigned kIndexDepth = 32;      // folders below a directory
inline constexpr unsigned kIndexFiles = 100000;  // INF files in all; further ones are told as unreadable

struct IndexedFile {
  std::string path;
  bool inbox = false;
};

// What could not be read, and why: an INF file, or a directory that is missing, unreadable or too deep.
struct UnreadFile {
  std::string path, reason;
};

struct IndexEntry {
  std::uint64_t id = 0;    // hash of an id in upper case
  std::uint32_t file = 0;  // of Index::files
};

struct Index {
  Target target;
  std::shared_ptr<const machine::InfSettings> settings;
  std::vector<IndexedFile> files;  // directory by directory, folder by folder, in name order without regard to case
  std::vector<UnreadFile> unread;
  std::vector<IndexEntry> entries;  // by id, then file
};

// How far indexing is, told now and then.
using IndexProgress = void (*)(void *context, std::size_t files);

Index MakeIndex(const Target &target);
// Adds the INF files of a directory and of everything below it; links are not followed. A directory that stands in the
// index already adds nothing. `inbox`: the running system's own inf directory, of which no folder below is looked into.
void AddDirectory(Index *index, const std::string &directory, bool inbox, IndexProgress progress = nullptr,
                  void *context = nullptr);
// The numbers, in file order, of the files that list any of the ids, in any section of any system.
std::vector<std::uint32_t> FilesListing(const Index &index, const std::vector<std::string> &ids);

}  // namespace package
