#include "tests/support/pe_builder.h"

namespace {

std::string Le16(size_t number) { return {static_cast<char>(number), static_cast<char>(number >> 8)}; }
std::string Le32(size_t number) { return Le16(number) + Le16(number >> 16); }

void Align(std::string *bytes, size_t to) { bytes->resize((bytes->size() + to - 1) / to * to); }

constexpr size_t kHeadersSize = 0x200;
constexpr size_t kTextAddress = 0x1000, kResourceAddress = 0x2000;
constexpr size_t kSubdirectory = 0x80000000;

std::string Directory(size_t named, const std::vector<std::pair<size_t, size_t>> &entries) {
  std::string bytes = Le32(0) + Le32(0) + Le32(0) + Le16(named) + Le16(entries.size() - named);
  for (const auto &[name, target] : entries) bytes += Le32(name) + Le32(target);
  return bytes;
}

// Three directories, the data entry, and where `data` is empty room for it right behind.
std::string Directories(const ImageShape &shape, size_t size) {
  constexpr size_t kNames = 16 + 4 * 8, kLanguages = kNames + 16 + 8, kEntry = kLanguages + 16 + 2 * 8;
  constexpr size_t kNowhere = kSubdirectory | 0x7FFFFFF0;
  const size_t version = shape.version ? 16 : 17;
  std::string bytes = Directory(
      1, {{kSubdirectory | kEntry, kNowhere}, {3, kNowhere}, {version, kSubdirectory | kNames}, {24, kNowhere}});
  bytes += Directory(0, {{1, kSubdirectory | kLanguages}});
  bytes += Directory(0, {{0x0407, kEntry}, {0x0409, 0x7FFFFFF0}});
  bytes += Le32(shape.dataApart ? kTextAddress : kResourceAddress + kEntry + 16) + Le32(size) + Le32(0) + Le32(0);
  return bytes;
}

std::string Section(const char *name, size_t address, size_t size, size_t offset) {
  std::string bytes = name;
  bytes.resize(8);
  bytes += Le32(size) + Le32(address) + Le32(size) + Le32(offset);
  bytes.resize(40);
  return bytes;
}

std::string OptionalHeader(const ImageShape &shape) {
  std::string bytes = Le16(shape.pe32 ? 0x10B : 0x20B);
  bytes.resize(shape.pe32 ? 92 : 108);
  bytes += Le32(3) + Le32(0) + Le32(0) + Le32(0) + Le32(0) + Le32(kResourceAddress) + Le32(0x100);
  return bytes;
}

}  // namespace

std::string Utf16Bytes(const std::u16string &text) {
  std::string bytes;
  for (const char16_t unit : text) bytes += Le16(unit);
  return bytes;
}

std::string VersionNode(const std::u16string &key, unsigned type, const std::string &value, size_t valueLength,
                        const std::vector<std::string> &children) {
  std::string bytes = Le16(0) + Le16(valueLength) + Le16(type) + Utf16Bytes(key) + Le16(0);
  if (!value.empty() || !children.empty()) Align(&bytes, 4);
  bytes += value;
  for (const std::string &child : children) {
    Align(&bytes, 4);
    bytes += child;
  }
  return bytes.replace(0, 2, Le16(bytes.size()));
}

std::string TextNode(const std::u16string &key, const std::u16string &text) {
  return VersionNode(key, 1, Utf16Bytes(text) + Le16(0), text.size() + 1);
}

std::string VersionTree(const std::vector<std::string> &children) {
  const std::string fixed = Le32(0xFEEF04BD) + std::string(48, '\0');
  return VersionNode(u"VS_VERSION_INFO", 0, fixed, fixed.size(), children);
}

std::string TranslationNode(const std::vector<std::pair<unsigned, unsigned>> &entries) {
  std::string value;
  for (const auto &[language, codePage] : entries) value += Le16(language) + Le16(codePage);
  return VersionNode(u"VarFileInfo", 1, "", 0, {VersionNode(u"Translation", 0, value, value.size())});
}

std::string BuildImage(const std::string &resource, const ImageShape &shape) {
  std::string text = shape.dataApart ? resource : std::string(16, '\xCC');
  std::string directories = Directories(shape, resource.size());
  if (!shape.dataApart) directories += resource;
  const std::string optional = OptionalHeader(shape);

  std::string image = "MZ";
  image.resize(60);
  image += Le32(66) + "\x0E\x1F";  // the header stands unaligned
  image += std::string("PE\0\0", 4) + Le16(shape.pe32 ? 0x14C : 0x8664) + Le16(2) + std::string(12, '\0');
  image += Le16(optional.size()) + Le16(0x22) + optional;
  image += Section(".text", kTextAddress, text.size(), kHeadersSize);
  image += Section(".rsrc", kResourceAddress, directories.size(), kHeadersSize + text.size());
  image.resize(kHeadersSize);
  return image + text + directories;
}
