#include "tools/vxr/extension/extension_file.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "platform/text/code_page.h"
#include "tools/vxr/base/host_file.h"

namespace {

// The file's size in bytes; those of it that fit go into the image. False with the reason.
bool ReadBytes(const std::string &path, VXR_EXTIMAGE *image, std::uint64_t *size, std::string *reason) {
  const OpenedFile file = OpenRegularFile(path, size, reason);
  if (file == nullptr) return false;
  std::setvbuf(file.get(), nullptr, _IONBF, 0);  // straight into the image, in one read
  const std::size_t wanted = std::min<std::uint64_t>(*size, sizeof *image);
  if (std::fread(static_cast<void *>(image), 1, wanted, file.get()) == wanted) return true;
  *reason = "cannot be read, or became shorter while it was read";
  return false;
}

// Empty when the image, from a file of `size` bytes, is one that this program can show.
std::string FindProblem(const VXR_EXTIMAGE &image, std::uint64_t size) {
  if (size == 0) return "is empty; name an extension file, or take it from the backup again";
  const std::uint32_t magic = VxrGet32(image.Header.Magic), version = VxrGet32(image.Header.Version);
  if (size < sizeof magic || (magic != VXR_EXT_MAGIC_HOT && magic != VXR_EXT_MAGIC_COLD)) {
    return "is not an extension file: it begins with " + HexText(&image, std::min<std::uint64_t>(size, sizeof magic)) +
           ", not with HbMe or CbMe; name the file that was recorded at backup time";
  }
  if (size != VXR_EXT_FILE_SIZE) {
    return "has " + std::to_string(size) + " bytes, an extension file has " + std::to_string(VXR_EXT_FILE_SIZE) +
           "; take it from the backup again";
  }
  if (version != VXR_EXT_VERSION) {
    return "is of version " + std::to_string(version) + ", this program reads version " +
           std::to_string(VXR_EXT_VERSION) + "; use the program that came with the backup";
  }
  return "";
}

std::uint32_t Capped(VXR_LE32 count, std::uint32_t most) { return VxrGet32(count) < most ? VxrGet32(count) : most; }

// Appends the number, at least `width` digits of it. By hand: a file has hundreds of numbers, and the formatted print
// of the C library was half the time of showing one.
void PutDigits(std::uint64_t number, unsigned base, std::size_t width, std::string *text) {
  char digits[20];
  std::size_t count = 0;
  do {
    digits[count++] = "0123456789ABCDEF"[number % base];
    number /= base;
  } while (number != 0);
  if (count < width) text->append(width - count, '0');
  while (count != 0) *text += digits[--count];
}

// Whether a record is not all zero.
bool AnyByte(const void *record, std::size_t size) {
  const auto *bytes = static_cast<const unsigned char *>(record);
  return bytes[0] != 0 || std::memcmp(bytes, bytes + 1, size - 1) != 0;  // every byte is as the one before it
}

}  // namespace

bool ReadExtensionFile(const std::string &path, VXR_EXTIMAGE *image, std::string *problem) {
  std::uint64_t size = 0;
  std::string reason;
  image->Header = {};
  *problem = ReadBytes(path, image, &size, &reason) ? FindProblem(*image, size) : reason + "; name an extension file";
  return problem->empty();
}

std::string FieldText(const char *field, std::size_t size, unsigned codePage) {
  if (size == 0) return "";
  const void *end = std::memchr(field, '\0', size);
  if (end != nullptr) size = static_cast<std::size_t>(static_cast<const char *>(end) - field);
  return machine::AnsiToUtf8(std::string_view(field, size), codePage);
}

std::uint32_t UsableVolumes(const VXR_VOLUMES &volumes) { return Capped(volumes.VolCount, VXR_MAX_VOLUMES); }

std::uint32_t UsableDisks(const VXR_VOLDISKS &disks) { return Capped(disks.DiskCount, VXR_MAX_VOLUME_DISKS); }

std::string HeldText(const VXR_VOLUMES &volumes, std::uint32_t index) {
  const bool boot = VxrGet32(volumes.BootVolInd) == index, system = VxrGet32(volumes.SystVolInd) == index;
  if (boot && system) return "boot.ini and the running system";
  return boot ? "boot.ini" : system ? "the running system" : "";
}

bool HasBackupName(const VXR_VOLUME &volume, unsigned codePage) {
  const std::string name = FieldText(volume.BMName, codePage);
  return !name.empty() && name != "No BM File Name";
}

bool IsRecorded(const VXR_DEVDRV &driver) { return AnyByte(&driver, sizeof driver); }

std::string GuidText(const VXR_GUID &guid) {
  std::string text = "{";
  PutDigits(VxrGet32(guid.Data1), 16, 8, &text);
  PutDigits(VxrGet16(guid.Data2), 16, 4, &(text += '-'));
  PutDigits(VxrGet16(guid.Data3), 16, 4, &(text += '-'));
  return text + '-' + HexText(guid.Data4, 2) + '-' + HexText(guid.Data4 + 2, 6) + '}';
}

std::string HexText(const void *bytes, std::size_t size) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  const auto *at = static_cast<const unsigned char *>(bytes);
  std::string text;
  text.reserve(2 * size);
  for (std::size_t i = 0; i < size; ++i) {
    text += kDigits[at[i] >> 4];
    text += kDigits[at[i] & 0xF];
  }
  return text;
}

std::string HexNumber(std::uint64_t number, int digits) {
  std::string text = "0x";
  PutDigits(number, 16, static_cast<std::size_t>(digits), &text);
  return text;
}

std::string TimeText(VXR_LE64 time) {
  using Days = std::chrono::duration<std::int64_t, std::ratio<86400>>;
  constexpr std::uint64_t kUnitsASecond = 10'000'000, kSecondsADay = 86400;
  const std::uint64_t units = VxrGet64(time);
  if (units == 0 || units >> 63 != 0) return "";  // Windows takes no time of 63 bits or more
  const std::uint64_t seconds = units / kUnitsASecond, ofDay = seconds % kSecondsADay, rest = units % kUnitsASecond;
  constexpr std::chrono::sys_days kFirst = std::chrono::January / 1 / 1601;
  const std::chrono::year_month_day date(kFirst + Days(seconds / kSecondsADay));
  std::string text;
  PutDigits(static_cast<std::uint64_t>(static_cast<int>(date.year())), 10, 4, &text);
  PutDigits(static_cast<unsigned>(date.month()), 10, 2, &(text += '-'));
  PutDigits(static_cast<unsigned>(date.day()), 10, 2, &(text += '-'));
  PutDigits(ofDay / 3600, 10, 2, &(text += 'T'));
  PutDigits(ofDay / 60 % 60, 10, 2, &(text += ':'));
  PutDigits(ofDay % 60, 10, 2, &(text += ':'));
  if (rest != 0) PutDigits(rest, 10, 7, &(text += '.'));
  return text + 'Z';
}

std::string DeviceNameText(const VXR_VOLUME &volume) {
  constexpr std::size_t kPrefix = sizeof(VXR_LE16);
  const std::size_t delivered = Capped(volume.DeviceLen, sizeof volume.Device);
  if (delivered < kPrefix) return "";
  VXR_LE16 length{};
  std::memcpy(&length, volume.Device, sizeof length);
  const std::size_t room = delivered - kPrefix, bytes = VxrGet16(length) < room ? VxrGet16(length) : room;
  std::u16string name;
  for (std::size_t i = 0; i + 1 < bytes; i += 2) {
    const std::uint8_t *at = volume.Device + kPrefix + i;
    name += static_cast<char16_t>(at[0] | at[1] << 8);
  }
  return machine::Utf16ToUtf8(name);
}
