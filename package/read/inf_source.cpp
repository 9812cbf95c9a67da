#include "package/read/inf_source.h"

#include "platform/scope_guard.h"

namespace package {
namespace {

// Bytes of the file, read whole in one opening.
bool ReadBytes(const std::string &path, machine::InfBytes *bytes, std::string *reason) {
  const HANDLE file =
      platform::CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    *reason = "it cannot be opened (error " + std::to_string(platform::GetLastError()) + ")";
    return false;
  }
  const ScopeGuard close([file] { platform::CloseHandle(file); });
  DWORD high = 0;
  const DWORD low = platform::GetFileSize(file, &high);
  if (high != 0 || low > machine::kInfSizeMax) {
    *reason = "it is larger than 64 MB";
    return false;
  }
  bytes->memory = std::make_unique_for_overwrite<char[]>(low);
  DWORD read = 0;
  if (!platform::ReadFile(file, bytes->memory.get(), low, &read, nullptr)) {
    *reason = "it cannot be read (error " + std::to_string(platform::GetLastError()) + ")";
    return false;
  }
  bytes->size = read;
  return true;
}

}  // namespace

std::shared_ptr<const machine::InfSettings> SettingsFor(const Target &target) {
  auto settings =
      std::make_shared<machine::InfSettings>(*machine::MakeInfSettings(platform::GetACP(), target.language));
  settings->passOverTextBefore = true;
  return settings;
}

std::string ParentOf(const std::string &path, const machine::InfSettings &settings) {
  std::size_t length = 0;
  for (std::size_t at = 0; at < path.size(); ++at) {
    const machine::InfChar kind = settings.classes[static_cast<unsigned char>(path[at])];
    if (kind == machine::InfChar::kLead) {
      ++at;
    } else if (kind == machine::InfChar::kBackslash || path[at] == '/') {
      length = at;
    }
  }
  return path.substr(0, length);
}

bool ReadInfSource(const std::string &path, const std::shared_ptr<const machine::InfSettings> &settings,
                   InfSource *source, std::string *reason) {
  machine::InfBytes bytes;
  if (!ReadBytes(path, &bytes, reason)) return false;
  machine::InfRefusal refusal;
  source->file = machine::ReadInf(std::move(bytes), settings, &refusal);
  if (source->file == nullptr) {
    *reason = std::move(refusal.reason);
    return false;
  }
  if (!machine::IsModernInf(source->file.get())) {
    *reason = "it has no [Version] section with the signature of an INF file";
    return false;
  }
  source->path = path;
  source->directory = ParentOf(path, *settings);
  return true;
}

}  // namespace package
