#include "package/choose/own_service.h"

#include <string_view>
#include <vector>

#include "engine/base/strings.h"
#include "package/read/driver_store.h"
#include "platform/inf/inf_file.h"
#include "registry/boot_record.h"

namespace package {
namespace {

constexpr std::size_t kPathMax = 8;  // components below the Windows directory

// The path below the Windows directory that an ImagePath names, in its parts, which then begin with System32. False for
// a place elsewhere.
bool ImageParts(const std::string &imagePath, std::vector<std::string> *parts) {
  const char *rest = imagePath.c_str();
  for (const char *prefix : {"\\SystemRoot\\", "%SystemRoot%\\"}) {
    if (BeginsWith(rest, prefix)) {
      rest += std::strlen(prefix);
      break;
    }
  }
  for (const char *end = rest; end != nullptr && parts->size() < kPathMax; rest = end + 1) {
    end = VXREng_StrChr(rest, '\\');
    parts->push_back(end != nullptr ? std::string(rest, end) : rest);
    if (!PlainName(parts->back())) return false;
    if (end == nullptr) return parts->size() > 1 && machine::SameName(parts->front(), "System32");
  }
  return false;
}

bool InDriversDirectory(const std::vector<std::string> &parts) {
  return parts.size() == 3 && machine::SameName(parts[1], "drivers");
}

// The file in the package's folder of the driver store, else in another of that INF file and architecture. Empty when
// it is in none.
std::string StoredFile(const std::string &package, const std::string &file, const RestoredPlaces &places,
                       const Target &target) {
  const std::string inf = InfNameOf(package);
  if (inf.empty()) return {};
  const std::string store = FileRepository(places.system);
  const std::string family = store + '\\' + package.substr(0, package.rfind('_') + 1);
  std::vector<std::string> folders = {store + '\\' + package};
  for (std::string &folder : StoreFolders(store, inf, target)) {
    if (BeginsWith(folder.c_str(), family.c_str())) folders.push_back(std::move(folder));
  }
  for (const std::string &folder : folders) {
    std::string path = folder + '\\' + file;
    if (IsFile(path)) return path;
  }
  return {};
}

// The service's ImagePath; without one Windows takes the driver of the service's name. False for one that is no text.
bool ImagePath(const RegistryEdits &edits, const std::string &key, const std::string &name, std::string *path) {
  RegistryData data;
  *path = "System32\\drivers\\" + name + ".sys";
  if (!ReadValue(edits, key, "ImagePath", &data)) return true;
  if (data.type != REG_SZ && data.type != REG_EXPAND_SZ) return false;
  *path = data.bytes.substr(0, data.bytes.find('\0'));
  return true;
}

}  // namespace

bool FindOwnService(const RegistryEdits &edits, const std::string &controlSet, const std::string &name,
                    const std::string &storePackage, const RestoredPlaces &places, const Target &target,
                    OwnService *service) {
  const std::string key = controlSet + "\\Services\\" + name;
  DWORD type = 0, start = 0;
  std::string imagePath;
  std::vector<std::string> parts;
  *service = {name, {}, {}, false, "is no service of a driver"};
  if (!PlainKeyName(name) || !ReadNumber(edits, key, "Type", &type) || (type & kDriverTypes) == 0 ||
      !ReadNumber(edits, key, "Start", &start)) {
    return false;
  }
  service->missing = "has its file outside the Windows directory";
  if (!ImagePath(edits, key, name, &imagePath) || !ImageParts(imagePath, &parts)) return false;
  *service = {name, places.windows, {}, HeldBack(edits, controlSet, name)};
  for (const std::string &part : parts) service->binary += '\\' + part;
  if (IsFile(service->binary)) return true;
  if (InDriversDirectory(parts)) service->storedBinary = StoredFile(storePackage, parts.back(), places, target);
  if (service->storedBinary.empty()) service->missing = "has no file: " + service->binary + " is missing";
  return service->missing.empty();
}

}  // namespace package
