// The file search.
//
// Matches come in the order of the host's directory, not by name as NTFS gives them: the first is found without reading
// the whole of a large directory, and no caller relies on an order.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/machine/base/answer.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/base/file_time.h"
#include "platform/machine/base/handles.h"
#include "platform/machine/files/path_syntax.h"
#include "platform/machine/files/paths.h"
#include "platform/machine/host/listing.h"
#include "platform/machine/host/rehearsal.h"
#include "platform/machine/text/wildcard.h"
#include "platform/text/code_page.h"

// A search of a pattern, which keeps its place in the directory.
struct machine::Search {
  Descriptor directory;
  DirectoryStream stream;
  NamePattern pattern;
  int dots = 0;  // of "." and "..", how many are to come
};

namespace {

using machine::Status;

// Tells of an entry under the name `shown` (UTF-8). False when the name does not fit.
bool Describe(const struct stat &status, const std::string &shown, WIN32_FIND_DATAA *data) {
  const std::string ansi = machine::Utf8ToAnsi(shown);
  if (ansi.size() >= sizeof data->cFileName) return false;
  *data = {};
  if (S_ISLNK(status.st_mode)) {
    data->dwFileAttributes = FILE_ATTRIBUTE_REPARSE_POINT;  // where it leads is for whoever opens it
  } else {
    // No caller looks at more than that something is there: the attributes that cost a further look are not fetched.
    data->dwFileAttributes = S_ISDIR(status.st_mode) ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
  }
  // The host keeps no time of creation that every file system has.
  data->ftCreationTime = data->ftLastWriteTime = machine::FileTimeOf(status.st_mtim);
  data->ftLastAccessTime = machine::FileTimeOf(status.st_atim);
  if (S_ISREG(status.st_mode)) {
    data->nFileSizeLow = static_cast<DWORD>(status.st_size);
    data->nFileSizeHigh = static_cast<DWORD>(static_cast<DWORD64>(status.st_size) >> 32);
  }
  std::memcpy(data->cFileName, ansi.c_str(), ansi.size() + 1);
  return true;
}

// The same for a name just read from the directory. False as well when it is gone.
bool DescribeEntry(int directory, const std::string &name, WIN32_FIND_DATAA *data) {
  struct stat status = {};
  return fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && Describe(status, name, data);
}

// The directory that is searched, opened.
Status OpenParent(const char *text, machine::Descriptor *directory) {
  std::string parent = text;
  // The pattern has no separator in it, and no byte of "\" or "/" either: it begins behind the last one that is not the
  // second byte of a two-byte character.
  std::size_t cut = 0;
  for (std::size_t i = 0; i < parent.size(); ++i) {
    if (machine::IsLeadByte(static_cast<unsigned char>(parent[i]))) {
      ++i;
    } else if (parent[i] == '\\' || parent[i] == '/' || parent[i] == ':') {
      cut = i + 1;
    }
  }
  parent.resize(cut);
  return machine::OpenHostDirectory(parent.c_str(), directory);
}

// A name without wildcards.
Status FindName(const char *text, const machine::WindowsPath &path, WIN32_FIND_DATAA *data) {
  // A root has no entry of its own, and a name followed by a separator is none either.
  const bool entry = !path.host.empty() || (!path.names.empty() && !path.directory);
  machine::HostPlace place;
  if (!entry) return Status::Windows(ERROR_FILE_NOT_FOUND);
  if (Status located = machine::LocatePlace(text, &place); !located) {
    if (machine::WindowsError(located) != ERROR_PATH_NOT_FOUND) return located;
    // What is searched is no directory, or is not there.
    machine::Descriptor parent;
    Status opened = OpenParent(text, &parent);
    return opened ? located : opened;
  }
  const std::string &shown = place.throughLink ? path.names.back() : place.name;
  std::uint64_t size = 0;
  const bool directory = !place.exists && machine::WouldBeDirectory(place.directory, place.name);
  if (directory || machine::WouldExist(place, &size)) {  // also in the place of an old file
    place.exists = true;
    place.status.st_mode = directory ? S_IFDIR : S_IFREG;
    place.status.st_size = static_cast<off_t>(size);
  }
  return place.exists && Describe(place.status, shown, data) ? Status() : Status::Windows(ERROR_FILE_NOT_FOUND);
}

// A name that Windows' file systems cannot hold would be read as a path.
bool IsWindowsName(const std::string &name) { return name.find_first_of("\\:*?\"<>|") == std::string::npos; }

// The next match; ERROR_NO_MORE_FILES behind the last.
Status FindNext(machine::Search *search, WIN32_FIND_DATAA *data) {
  // Every directory but a root holds itself and the one above, first of all.
  while (search->dots > 0) {
    const std::string name = search->dots-- == 2 ? "." : "..";
    // Where ".." leads is not for the search, which never leaves the drive.
    struct stat status = {};
    const bool told = machine::MatchesPattern(search->pattern, name) &&
                      fstatat(search->directory.fd, ".", &status, AT_SYMLINK_NOFOLLOW) == 0;
    if (told && Describe(status, name, data)) return {};
  }
  errno = 0;
  while (const dirent *entry = readdir(search->stream.get())) {
    const std::string name = entry->d_name;
    if (name == "." || name == ".." || !IsWindowsName(name)) continue;
    if (machine::MatchesPattern(search->pattern, name) && DescribeEntry(search->directory.fd, name, data)) return {};
    errno = 0;
  }
  return errno != 0 ? Status::System() : Status::Windows(ERROR_NO_MORE_FILES);
}

Status FindPattern(const char *text, const machine::WindowsPath &path, std::shared_ptr<machine::Search> *search,
                   WIN32_FIND_DATAA *data) {
  auto begun = std::make_shared<machine::Search>();
  if (Status opened = OpenParent(text, &begun->directory); !opened) return opened;
  begun->pattern = machine::MakePattern(path.pattern);
  begun->dots = path.names.empty() ? 0 : 2;
  if (Status opened = machine::OpenDirectoryStream(begun->directory.fd, &begun->stream); !opened) return opened;
  if (Status found = FindNext(begun.get(), data); !found) {
    const bool none = machine::WindowsError(found) == ERROR_NO_MORE_FILES;
    return none ? Status::Windows(ERROR_FILE_NOT_FOUND) : found;
  }
  *search = std::move(begun);
  return {};
}

}  // namespace

namespace platform {

HANDLE FindFirstFileA(const char *pattern, WIN32_FIND_DATAA *data) {
  VXR_FAULT(INVALID_HANDLE_VALUE, ERROR_FILE_NOT_FOUND);
  machine::WindowsPath path;
  if (data == nullptr) return machine::FailOpen(ERROR_INVALID_PARAMETER);
  if (const Status parsed = machine::ParseWindowsPath(pattern, &path); !parsed) return machine::FailOpen(parsed);
  machine::SearchHandle begun;
  const Status found =
      path.pattern.empty() ? FindName(pattern, path, data) : FindPattern(pattern, path, &begun.search, data);
  return found ? machine::AddHandle(std::move(begun)) : machine::FailOpen(found);
}

BOOL FindNextFileA(HANDLE search, WIN32_FIND_DATAA *data) {
  VXR_FAULT(FALSE, ERROR_NO_MORE_FILES);
  const auto *handle = machine::FindHandleOf<machine::SearchHandle>(search);
  if (handle == nullptr) return machine::FailWith(ERROR_INVALID_HANDLE);
  if (data == nullptr) return machine::FailWith(ERROR_INVALID_PARAMETER);
  if (handle->search == nullptr) return machine::FailWith(ERROR_NO_MORE_FILES);
  const Status found = FindNext(handle->search.get(), data);
  return found ? TRUE : machine::FailWith(found);
}

// As with CloseHandle, one that is made to fail closes all the same.
BOOL FindClose(HANDLE search) {
  const bool closed = machine::FindHandleOf<machine::SearchHandle>(search) != nullptr && machine::DropHandle(search);
  VXR_FAULT(FALSE, ERROR_INVALID_HANDLE);
  return closed ? TRUE : machine::FailWith(ERROR_INVALID_HANDLE);
}

}  // namespace platform
