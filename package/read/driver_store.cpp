#include "package/read/driver_store.h"

#include <algorithm>

#include "package/read/plain_names.h"
#include "platform/inf/inf_file.h"
#include "platform/scope_guard.h"

namespace package {
namespace {

constexpr std::size_t kFolders = 64;

}  // namespace

std::string InfNameOf(const std::string &package) {
  constexpr std::string_view kEnding = ".INF";
  const std::size_t at = machine::FoldAnsiName(package).find(std::string(kEnding) + "_");
  return at == std::string::npos || !PlainName(package) ? std::string() : package.substr(0, at + kEnding.size());
}

std::vector<std::string> StoreFolders(const std::string &fileRepository, const std::string &infName,
                                      const Target &target) {
  std::vector<std::string> folders;
  WIN32_FIND_DATAA data = {};
  const HANDLE search = platform::FindFirstFileA((fileRepository + "\\" + infName + "_*").c_str(), &data);
  if (search == INVALID_HANDLE_VALUE) return folders;
  const ScopeGuard close([search] { platform::FindClose(search); });
  do {
    constexpr DWORD kKind = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
    if ((data.dwFileAttributes & kKind) == FILE_ATTRIBUTE_DIRECTORY) folders.emplace_back(data.cFileName);
  } while (folders.size() < kFolders && platform::FindNextFileA(search, &data));
  const char *architecture = ArchitectureName(target.architecture);
  const std::string own = infName + "_" + (architecture != nullptr ? architecture : "") + "_";
  const auto key = [&own](const std::string &folder) {
    return std::pair(!machine::SameName(folder.substr(0, own.size()), own), machine::FoldAnsiName(folder));
  };
  std::sort(folders.begin(), folders.end(),
            [&key](const std::string &a, const std::string &b) { return key(a) < key(b); });
  for (std::string &folder : folders) folder.insert(0, fileRepository + "\\");
  return folders;
}

}  // namespace package
