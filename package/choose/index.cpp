#include "package/choose/index.h"

#include <algorithm>
#include <string_view>

#include "package/choose/models.h"
#include "platform/scope_guard.h"

namespace package {
namespace {

constexpr std::size_t kIdMax = 200;       // characters that Windows allows
constexpr std::size_t kToldEvery = 1000;  // files

// A folder's INF files and folders, in name order without regard to case.
struct Listing {
  struct Name {
    std::string folded, name;
  };
  std::vector<Name> files, folders;
};

void Unread(Index *index, const std::string &path, const std::string &reason) {
  index->unread.push_back({path, reason});
}

std::string SystemError(const char *what) {
  return std::string(what) + " (error " + std::to_string(platform::GetLastError()) + ")";
}

std::string Join(const std::string &directory, std::string_view name) {
  std::string path = directory;
  path += '\\';
  path += name;
  return path;
}

void TakeEntry(const WIN32_FIND_DATAA &data, Listing *listing) {
  const std::string_view name = data.cFileName;
  if (name == "." || name == "..") return;
  const bool link = (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  const bool folder = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  if (folder) {
    if (!link) listing->folders.push_back({machine::FoldAnsiName(name), std::string(name)});
  } else if (name.size() > 4 && machine::SameName(name.substr(name.size() - 4), ".inf")) {
    listing->files.push_back({machine::FoldAnsiName(name), std::string(name)});
  }
}

bool ListFolder(Index *index, const std::string &folder, Listing *listing) {
  WIN32_FIND_DATAA data = {};
  const HANDLE search = platform::FindFirstFileA(Join(folder, "*").c_str(), &data);
  if (search == INVALID_HANDLE_VALUE) {
    if (platform::GetLastError() == ERROR_FILE_NOT_FOUND) return true;  // a root that holds nothing
    Unread(index, folder, SystemError("the folder cannot be read"));
    return false;
  }
  const ScopeGuard close([search] { platform::FindClose(search); });
  do {
    TakeEntry(data, listing);
  } while (platform::FindNextFileA(search, &data));
  if (platform::GetLastError() != ERROR_NO_MORE_FILES) {
    Unread(index, folder, SystemError("the folder could not be read to its end"));
  }
  const auto byName = [](const Listing::Name &a, const Listing::Name &b) { return a.folded < b.folded; };
  std::sort(listing->files.begin(), listing->files.end(), byName);
  std::sort(listing->folders.begin(), listing->folders.end(), byName);
  return true;
}

// Collects the ids of one file.
struct IdCollector {
  Index *index;
  machine::InfFile *file;
  std::size_t first;  // of Index::ids
};

bool TakeId(void *context, std::string_view id) {
  const auto &to = *static_cast<IdCollector *>(context);
  std::string replaced;
  if (id.find('%') != id.npos) id = replaced = machine::ReplaceTokens(to.file, id);
  if (id.empty() || id.size() > kIdMax) return true;
  if (to.index->ids.size() - to.first == kIndexIds) return false;
  to.index->ids.push_back(machine::HashName(id));
  return true;
}

// Adds the ids of every Models section that the file announces, each section once. False when there are too many.
bool AddFileIds(Index *index, machine::InfFile *file) {
  IdCollector collector{index, file, index->ids.size()};
  std::vector<bool> taken(file->sections.size());
  const auto add = [&](const std::string &name) {
    const std::uint32_t number = machine::FindSectionIndex(*file, name);
    if (number == machine::kInfNone || taken[number]) return true;
    taken[number] = true;
    return machine::WalkValues(*file, number, 2, TakeId, &collector);
  };
  for (const ManufacturerLine &line : ReadManufacturers(file)) {
    if (!add(line.base)) return false;
    for (const std::string &decoration : line.decorations) {
      if (!add(line.base + "." + decoration)) return false;
    }
  }
  return true;
}

// What a walk through a directory goes by.
struct Walk {
  Index *index;
  bool inbox;
  IndexProgress progress;
  void *context;
};

bool IsFull(Index *index, const std::string &path) {
  if (index->full) return true;
  index->full = index->files.size() + index->unread.size() >= kIndexFiles || index->directories.size() >= kIndexFolders;
  if (index->full)
    Unread(index, path, "there are more files or folders than are looked at; this is the first left out");
  return index->full;
}

void WalkFolder(const Walk &walk, const std::string &folder, unsigned depth) {
  Index *index = walk.index;
  if (!index->directories.insert(machine::FoldAnsiName(folder)).second) return;
  Listing listing;
  if (!ListFolder(index, folder, &listing)) return;
  for (const Listing::Name &name : listing.files) {
    const std::string path = Join(folder, name.name);
    if (IsFull(index, path)) return;
    AddFile(index, path, walk.inbox);
    if (walk.progress != nullptr && index->files.size() % kToldEvery == 0) {
      walk.progress(walk.context, index->files.size());
    }
  }
  if (walk.inbox) return;
  for (const Listing::Name &name : listing.folders) {
    const std::string path = Join(folder, name.name);
    if (IsFull(index, path)) return;
    if (depth == kIndexDepth) {
      Unread(index, path, "the folder lies too deep");
    } else {
      WalkFolder(walk, path, depth + 1);
    }
  }
}

}  // namespace

Index MakeIndex(const Target &target) {
  Index index;
  index.target = target;
  index.settings = SettingsFor(target);
  return index;
}

void AddDirectory(Index *index, const std::string &directory, bool inbox, IndexProgress progress, void *context) {
  std::string folder = directory;
  while (folder.size() > 1 && ParentOf(folder, *index->settings).size() == folder.size() - 1) folder.pop_back();
  // A directory above it may stand in the index already.
  for (IndexedFile &file : index->files) {
    if (inbox && machine::SameName(ParentOf(file.path, *index->settings), folder)) file.inbox = true;
  }
  WalkFolder({index, inbox, progress, context}, folder, 0);
  if (progress != nullptr) progress(context, index->files.size());
}

void AddFile(Index *index, const std::string &path, bool inbox) {
  InfSource source;
  std::string reason;
  if (!ReadInfSource(path, index->settings, &source, &reason)) {
    Unread(index, path, reason);
    return;
  }
  index->files.push_back({path, inbox, static_cast<std::uint32_t>(index->ids.size())});
  if (!AddFileIds(index, source.file.get())) {
    Unread(index, path, "it lists more than " + std::to_string(kIndexIds) + " ids, of which the rest is not looked at");
  }
}

std::vector<std::uint32_t> FilesListing(const Index &index, const std::vector<std::string> &ids) {
  std::vector<std::uint32_t> wanted;
  for (const std::string &id : ids) wanted.push_back(machine::HashName(id));
  // Nearly every id is ruled out by one bit, so that the list need not be sorted.
  std::vector<bool> bits(0x10000);
  for (const std::uint32_t hash : wanted) bits[hash & 0xFFFF] = true;
  std::vector<std::uint32_t> numbers;
  for (std::uint32_t file = 0; file < index.files.size(); ++file) {
    const std::size_t end = file + 1 < index.files.size() ? index.files[file + 1].firstId : index.ids.size();
    const auto listed = [&](std::uint32_t hash) {
      return bits[hash & 0xFFFF] && std::find(wanted.begin(), wanted.end(), hash) != wanted.end();
    };
    if (std::any_of(index.ids.begin() + index.files[file].firstId, index.ids.begin() + static_cast<long>(end), listed))
      numbers.push_back(file);
  }
  return numbers;
}

}  // namespace package
