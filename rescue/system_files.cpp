#include "rescue/system_files.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "platform/machine/base/descriptor.h"
#include "platform/machine/base/little_endian.h"
#include "platform/machine/host/file_bytes.h"
#include "platform/machine/version/version_resource.h"
#include "platform/machine/version/version_tree.h"
#include "platform/text/code_page.h"

namespace rescue {
namespace {

using machine::Hive;
using machine::ReadLe16;
using machine::ReadLe32;
using machine::Status;

// --- Images ---------------------------------------------------------------------------------------------------------

std::optional<std::uint32_t> ArchitectureOf(std::uint32_t imageMachine) {
  switch (imageMachine) {
    case 0x014C:
      return 0;
    case 0x01C4:
      return 5;
    case 0x0200:
      return 6;
    case 0x8664:
      return 9;
    case 0xAA64:
      return 12;
    default:
      return std::nullopt;
  }
}

std::optional<std::uint32_t> ImageArchitecture(const machine::ImageSource &image) {
  constexpr std::size_t kDosHeaderSize = 64, kPeOffset = 60, kMachine = 4;
  std::array<std::uint8_t, kDosHeaderSize> dos;
  std::array<std::uint8_t, kMachine + 2> header;
  if (image.size < dos.size() || !image.read(0, dos.data(), dos.size())) return std::nullopt;
  const std::uint64_t offset = ReadLe32(&dos[kPeOffset]);
  if (std::memcmp(dos.data(), "MZ", 2) != 0 || offset + header.size() > image.size) return std::nullopt;
  if (!image.read(offset, header.data(), header.size())) return std::nullopt;
  if (std::memcmp(header.data(), "PE\0\0", 4) != 0) return std::nullopt;
  return ArchitectureOf(ReadLe16(&header[kMachine]));
}

void ReadFileVersion(const std::vector<BYTE> &resource, ImageFacts *facts) {
  constexpr std::size_t kVersionOffset = 8, kRevisionOffset = 12,
                        kBuildOffset = 14;  // behind the signature and the record's own version
  const auto fixed = machine::IsVersionTree(resource) ? machine::FindVersionValue(resource, "\\") : std::nullopt;
  if (!fixed || fixed->size < kBuildOffset + 2) return;
  const BYTE *value = resource.data() + fixed->offset;
  const std::uint32_t both = ReadLe32(value + kVersionOffset);
  facts->version = SystemVersion{both >> 16, both & 0xFFFF};
  facts->build = ReadLe16(value + kBuildOffset);
  facts->revision = ReadLe16(value + kRevisionOffset);
}

// --- Hives -----------------------------------------------------------------------------------------------------------

std::optional<machine::StoredValue> Find(Hive *hive, const std::u16string &key, const char16_t *name) {
  machine::StoredValue value;
  const bool found =
      static_cast<bool>(FindHiveValue(hive, machine::ParseKeyPath(key), machine::FoldKeyName(name), &value));
  return found ? std::optional(std::move(value)) : std::nullopt;
}

std::optional<SystemVersion> ParseVersion(std::string_view text) {
  SystemVersion version;
  const char *end = text.data() + text.size();
  const auto major = std::from_chars(text.data(), end, version.major);
  if (major.ec != std::errc() || major.ptr == end || *major.ptr != '.') return std::nullopt;
  return std::from_chars(major.ptr + 1, end, version.minor).ec == std::errc() ? std::optional(version) : std::nullopt;
}

}  // namespace

std::string Text(const SystemVersion &version) {
  return std::to_string(version.major) + "." + std::to_string(version.minor);
}

Status ReadImage(const std::filesystem::path &file, ImageFacts *facts) {
  *facts = {};
  const machine::Descriptor image(open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!image) return errno == ENOENT ? Status::Refused("is missing", ENOENT) : Status::System("cannot be read");
  machine::ImageSource source;
  if (Status regular = machine::RegularFileSize(image.fd, &source.size); !regular) return regular;
  Status failure;
  source.read = [&](std::uint64_t offset, void *buffer, std::size_t size) {
    if (Status read = machine::ReadAt(image.fd, offset, buffer, size); !read) failure = std::move(read);
    return static_cast<bool>(failure);
  };
  facts->architecture = ImageArchitecture(source);
  std::vector<BYTE> resource;
  if (ReadVersionResource(source, &resource) == machine::VersionResource::kFound) ReadFileVersion(resource, facts);
  return failure;
}

std::string HiveWords(const Status &failure) {
  std::string words = Words(failure);
  const std::string unsupported = std::string(" (") + std::strerror(ENOTSUP) + ")";
  const std::size_t at = failure.error == ENOTSUP ? words.find(unsupported) : std::string::npos;
  return at == std::string::npos ? words : words.erase(at, unsupported.size());
}

std::string RestoredHiveWords(const Status &failure) {
  const std::string words = HiveWords(failure);
  const std::size_t remedy = words.rfind("; name ");
  return remedy == std::string::npos ? words : words.substr(0, remedy) + "; restore the file again";
}

std::optional<std::uint32_t> ReadHiveNumber(Hive *hive, const std::u16string &key, const char16_t *name) {
  const auto value = Find(hive, key, name);
  if (!value || value->type != REG_DWORD || value->bytes.size() != 4) return std::nullopt;
  return ReadLe32(value->bytes.data());
}

std::optional<std::string> ReadHiveText(Hive *hive, const std::u16string &key, const char16_t *name) {
  const auto value = Find(hive, key, name);
  if (!value || !machine::IsTextType(value->type)) return std::nullopt;
  const std::u16string text = machine::WholeText(value->bytes);
  return machine::Utf16ToUtf8(std::u16string_view(text).substr(0, text.find(u'\0')));
}

std::vector<std::string> ReadHiveTexts(Hive *hive, const std::u16string &key, const char16_t *name) {
  std::vector<std::string> texts;
  const auto value = Find(hive, key, name);
  if (!value || !machine::IsTextType(value->type)) return texts;
  const std::u16string whole = machine::WholeText(value->bytes);
  for (std::u16string_view rest = whole; !rest.empty() && rest.front() != u'\0';) {
    const std::size_t end = std::min(rest.find(u'\0'), rest.size());
    texts.push_back(machine::Utf16ToUtf8(rest.substr(0, end)));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return texts;
}

std::u16string ControlSetName(std::uint32_t number) {
  char text[24];
  const int length = std::snprintf(text, sizeof text, "ControlSet%03u", number);
  return std::u16string(text, text + length);
}

std::optional<SystemVersion> SoftwareVersion(Hive *software) {
  constexpr char16_t kKey[] = u"Microsoft\\Windows NT\\CurrentVersion";
  // From 10.0 on the text says 6.3 for ever, and the numbers are there.
  const auto major = ReadHiveNumber(software, kKey, u"CurrentMajorVersionNumber");
  const auto minor = ReadHiveNumber(software, kKey, u"CurrentMinorVersionNumber");
  if (major && minor) return SystemVersion{*major, *minor};
  const auto text = ReadHiveText(software, kKey, u"CurrentVersion");
  return text ? ParseVersion(*text) : std::nullopt;
}

std::optional<bool> HasDriverDatabase(Hive *system) {
  if (FindHiveKey(system, machine::ParseKeyPath(u"DriverDatabase"))) return true;
  const std::u16string set = ControlSetName(ReadHiveNumber(system, u"Select", u"Current").value_or(1));
  if (FindHiveKey(system, machine::ParseKeyPath(set + u"\\Control\\CriticalDeviceDatabase"))) return false;
  return std::nullopt;
}

}  // namespace rescue
