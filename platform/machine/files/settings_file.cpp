// The calls on settings files. What their text means is the business of settings_text.h.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
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

Status ReadSettings(const char *file, std::string *text) {
  machine::Descriptor descriptor;
  Status opened = machine::OpenHostFile(FullName(file).c_str(), O_RDONLY | O_NONBLOCK, &descriptor);
  if (!opened) return opened;
  struct stat status;
  if (fstat(descriptor.fd, &status) != 0) return Status::System();
  if (!S_ISREG(status.st_mode)) return Status::Windows(ERROR_ACCESS_DENIED);
  if (status.st_size > kLargestFile) return Status::Windows(ERROR_FILE_TOO_LARGE);
  char block[16384];
  for (;;) {
    const ssize_t count = read(descriptor.fd, block, sizeof block);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return Status::System();
    if (count == 0) return {};
    text->append(block, static_cast<std::size_t>(count));
  }
}

// Leaves `*value` alone when there is no such file, section or key.
Status ReadSetting(const char *section, const char *key, const char *file, std::string *value) {
  if (machine::Current() == nullptr) return Status::Windows(ERROR_NOT_READY);
  if (section == nullptr || key == nullptr || file == nullptr) return Status::Windows(ERROR_INVALID_PARAMETER);
  std::string text;
  if (Status read = ReadSettings(file, &text); !read) return read;
  const auto found = machine::FindSetting(text, section, key);
  if (!found) return Status::Windows(ERROR_FILE_NOT_FOUND);
  *value = *found;
  return {};
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

Status WriteSetting(const char *section, const char *key, const char *value, const char *file) {
  machine::HostPlace place;
  if (Status located = machine::LocatePlace(FullName(file).c_str(), &place); !located) return located;
  std::string text;
  DWORD attributes = 0;
  if (place.exists) {
    if (Status read = ReadSettings(file, &text); !read) return read;
    attributes = machine::ReadAttributes(machine::PlaceName(place), place.status);
    if ((attributes & FILE_ATTRIBUTE_READONLY) != 0) return Status::Windows(ERROR_ACCESS_DENIED);
    if (!machine::CanChangeSettings(text)) return Status::Windows(ERROR_INVALID_DATA);
  }
  return SaveSettings(place, attributes, machine::WithSetting(text, section, key, value));
}

}  // namespace

namespace platform {

UINT GetPrivateProfileIntA(const char *section, const char *key, int fallback, const char *file) {
  VXR_FAULT(static_cast<UINT>(fallback), ERROR_FILE_NOT_FOUND);
  std::string value;
  const Status read = ReadSetting(section, key, file, &value);
  return static_cast<UINT>(read ? LeadingNumber(value) : FailWith(read, fallback));
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
  std::string value = fallback == nullptr ? "" : fallback;
  while (value.ends_with(' ')) value.pop_back();
  VXR_FAULT(store(value), ERROR_FILE_NOT_FOUND);
  const Status read = ReadSetting(section, key, file, &value);
  return read ? store(value) : FailWith(read, store(value));
}

BOOL WritePrivateProfileStringA(const char *section, const char *key, const char *value, const char *file) {
  VXR_FAULT(FALSE, ERROR_ACCESS_DENIED);
  if (machine::Current() == nullptr) return FailWith(ERROR_NOT_READY);
  if (section == nullptr || key == nullptr || value == nullptr || file == nullptr ||
      !machine::CanHoldSetting(section, key, value)) {
    return FailWith(ERROR_INVALID_PARAMETER);
  }
  if (machine::Rehearsing()) return FailWith(ERROR_WRITE_PROTECT);
  return machine::Finish(WriteSetting(section, key, value, file));
}

}  // namespace platform
