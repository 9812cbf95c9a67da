// The file search.
//
// Of several matches the first in the order of the host's directory is given, not the first by name as NTFS would: the
// search ends at its first match however large the directory is, and its callers ask only whether there is one.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
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
  if (!place.exists && machine::WouldExist(place, &size)) {
    place.exists = true;
    place.status.st_mode = S_IFREG;
    place.status.st_size = static_cast<off_t>(size);
  }
  return place.exists && Describe(place.status, shown, data) ? Status() : Status::Windows(ERROR_FILE_NOT_FOUND);
}

Status FindPattern(const char *text, const machine::WindowsPath &path, WIN32_FIND_DATAA *data) {
  machine::Descriptor directory;
  if (Status opened = OpenParent(text, &directory); !opened) return opened;
  const machine::NamePattern pattern = machine::MakePattern(path.pattern);
  // Every directory but a root holds itself, first of all.
  if (!path.names.empty() && machine::MatchesPattern(pattern, ".")) {
    return DescribeEntry(directory.fd, ".", data) ? Status() : Status::Windows(ERROR_FILE_NOT_FOUND);
  }
  machine::DirectoryStream stream;
  if (Status opened = machine::OpenDirectoryStream(directory.fd, &stream); !opened) return opened;
  while (const dirent *entry = readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    if (machine::MatchesPattern(pattern, name) && DescribeEntry(directory.fd, name, data)) return {};
  }
  return Status::Windows(ERROR_FILE_NOT_FOUND);
}

}  // namespace

namespace platform {

HANDLE FindFirstFileA(const char *pattern, WIN32_FIND_DATAA *data) {
  VXR_FAULT(INVALID_HANDLE_VALUE, ERROR_FILE_NOT_FOUND);
  machine::WindowsPath path;
  if (data == nullptr) return machine::FailOpen(ERROR_INVALID_PARAMETER);
  if (const Status parsed = machine::ParseWindowsPath(pattern, &path); !parsed) return machine::FailOpen(parsed);
  const Status found = path.pattern.empty() ? FindName(pattern, path, data) : FindPattern(pattern, path, data);
  return found ? machine::AddHandle(machine::SearchHandle()) : machine::FailOpen(found);
}

// As with CloseHandle, one that is made to fail closes all the same.
BOOL FindClose(HANDLE search) {
  const bool closed = machine::FindHandleOf<machine::SearchHandle>(search) != nullptr && machine::DropHandle(search);
  VXR_FAULT(FALSE, ERROR_INVALID_HANDLE);
  return closed ? TRUE : machine::FailWith(ERROR_INVALID_HANDLE);
}

}  // namespace platform
