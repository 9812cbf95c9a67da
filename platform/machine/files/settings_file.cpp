// The calls on settings files. What their text means is the business of settings_text.h.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "platform/machine/base/answer.h"
#include "platform/machine/base/descriptor.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/description/current.h"
#include "platform/machine/files/paths.h"
#include "platform/machine/host/attributes.h"
#include "platform/machine/host/rehearsal.h"
#include "platform/machine/host/replace_file.h"
#include "platform/machine/text/settings_text.h"
#include "platform/text/code_page.h"

namespace {

using machine::FailHost;
using machine::FailWith;
using machine::Status;

// Settings are kept in memory as a whole; anything larger is no settings file.
constexpr off_t kLargestFile = off_t{64} << 20;

// A name without a directory is looked for where Windows looks, in its own directory.
std::string FullName(const char *file) {
  std::string name = file;
  if (name.find_first_of("\\/:") != std::string::npos) return name;
  return machine::Current()->system.windowsDirectory + "\\" + name;
}

bool ReadSettings(const char *file, std::string *text) {
  const machine::Descriptor descriptor(machine::OpenHostFile(FullName(file).c_str(), O_RDONLY | O_NONBLOCK));
  if (!descriptor) return false;
  struct stat status;
  if (fstat(descriptor.fd, &status) != 0) return FailHost();
  if (!S_ISREG(status.st_mode)) return FailWith(ERROR_ACCESS_DENIED);
  if (status.st_size > kLargestFile) return FailWith(ERROR_FILE_TOO_LARGE);
  char block[16384];
  for (;;) {
    const ssize_t count = read(descriptor.fd, block, sizeof block);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return FailHost();
    if (count == 0) return true;
    text->append(block, static_cast<std::size_t>(count));
  }
}

// Nothing, with the last error set, when there is no such file, section or key.
std::optional<std::string> ReadSetting(const char *section, const char *key, const char *file) {
  if (machine::CurrentOrNotReady() == nullptr) return std::nullopt;
  std::string text;
  if (section == nullptr || key == nullptr || file == nullptr) {
    platform::SetLastError(ERROR_INVALID_PARAMETER);
    return std::nullopt;
  }
  if (!ReadSettings(file, &text)) return std::nullopt;
  std::optional<std::string> value = machine::FindSetting(text, section, key);
  if (!value) platform::SetLastError(ERROR_FILE_NOT_FOUND);
  return value;
}

// The leading decimal number, 0 when there is none. A number too large wraps at 32 bits, as on Windows.
std::int32_t LeadingNumber(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  std::uint32_t number = 0;
  for (; !text.empty() && text[0] >= '0' && text[0] <= '9'; text.remove_prefix(1)) {
    number = number * 10 + static_cast<std::uint32_t>(text[0] - '0');
  }
  return static_cast<std::int32_t>(negative ? 0 - number : number);
}

// Gives the new file what the old one has besides its contents.
Status TakeOver(const machine::NewFile &created, DWORD attributes) {
  if (Status taken = machine::TakeOver(created); !taken) return taken;
  struct stat status;
  if (fstat(created.file.fd, &status) != 0) return Status::System();
  return machine::WriteAttributes(created.HostName(), status, attributes | FILE_ATTRIBUTE_ARCHIVE);
}

Status SaveSettings(const machine::HostPlace &place, DWORD attributes, const std::string &text) {
  machine::NewFile created(place.directory, place.name);
  if (Status opened = machine::OpenNewFile(&created, place.exists); !opened) return opened;
  if (Status written = machine::WriteAll(created.file.fd, text.data(), text.size()); !written) return written;
  if (place.exists) {
    if (Status taken = TakeOver(created, attributes); !taken) return taken;
  }
  return machine::PutInPlace(&created, place.exists);
}

bool WriteSetting(const char *section, const char *key, const char *value, const char *file) {
  machine::HostPlace place;
  if (!machine::LocatePlace(FullName(file).c_str(), &place)) return false;
  std::string text;
  DWORD attributes = 0;
  if (place.exists) {
    if (!ReadSettings(file, &text)) return false;
    attributes = machine::ReadAttributes(machine::PlaceName(place), place.status);
    if ((attributes & FILE_ATTRIBUTE_READONLY) != 0) return FailWith(ERROR_ACCESS_DENIED);
    if (!machine::CanChangeSettings(text)) return FailWith(ERROR_INVALID_DATA);
  }
  const Status saved = SaveSettings(place, attributes, machine::WithSetting(text, section, key, value));
  return saved || FailWith(saved);
}

}  // namespace

namespace platform {

UINT GetPrivateProfileIntA(const char *section, const char *key, int fallback, const char *file) {
  VXR_FAULT(static_cast<UINT>(fallback), ERROR_FILE_NOT_FOUND);
  const std::optional<std::string> value = ReadSetting(section, key, file);
  return static_cast<UINT>(value ? LeadingNumber(*value) : fallback);
}

DWORD GetPrivateProfileStringA(const char *section, const char *key, const char *fallback, char *buffer, DWORD size,
                               const char *file) {
  const auto store = [&](std::string_view text) -> DWORD {
    if (buffer == nullptr || size == 0) return 0;
    const std::size_t length =
        machine::WholeCharacters(text, size - 1, [](unsigned char byte) { return machine::IsLeadByte(byte); });
    std::memcpy(buffer, text.data(), length);
    buffer[length] = '\0';
    return static_cast<DWORD>(length);
  };
  std::string_view otherwise = fallback == nullptr ? "" : fallback;
  while (otherwise.ends_with(' ')) otherwise.remove_suffix(1);
  VXR_FAULT(store(otherwise), ERROR_FILE_NOT_FOUND);
  const std::optional<std::string> value = ReadSetting(section, key, file);
  return store(value ? std::string_view(*value) : otherwise);
}

BOOL WritePrivateProfileStringA(const char *section, const char *key, const char *value, const char *file) {
  VXR_FAULT(FALSE, ERROR_ACCESS_DENIED);
  if (machine::CurrentOrNotReady() == nullptr) return FALSE;
  if (section == nullptr || key == nullptr || value == nullptr || file == nullptr ||
      !machine::CanHoldSetting(section, key, value)) {
    return FailWith(ERROR_INVALID_PARAMETER);
  }
  if (machine::Rehearsing()) return FailWith(ERROR_WRITE_PROTECT);
  return WriteSetting(section, key, value, file) ? TRUE : FALSE;
}

}  // namespace platform
