// The tables of the format, and writing by them.
#include "tests/support/extension_format.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

using Kind = ExtensionField::Kind;
using enum ExtensionField::Kind;

struct Field {
  const char *key;
  std::size_t offset, size;  // bytes
  Kind kind = kNumber;
  std::size_t count = 0;
};

struct Scope;
struct Part {
  const char *name;
  std::size_t offset;
  const Scope *scope;
};

// A record: its fields, and the records inside it.
struct Scope {
  std::vector<Field> fields;
  std::vector<Part> parts;
};

const Scope kService = {{{"name", 0, 32, kText},
                         {"group", 32, 64, kText},
                         {"image", 96, 260, kText},
                         {"tag", 356, 4},
                         {"type", 360, 4},
                         {"start", 364, 4}},
                        {}};
const Scope kFileFacts = {{{"name", 0, 260, kText},
                           {"section", 260, 256, kText},
                           {"product", 516, 64, kText},
                           {"company", 580, 64, kText},
                           {"product_version", 644, 64, kText},
                           {"description", 708, 64, kText},
                           {"version", 772, 64, kText},
                           {"created", 836, 8},
                           {"accessed", 844, 8},
                           {"written", 852, 8},
                           {"size", 860, 8}},
                          {}};
const Scope kDriver = {{{"guid", 0, 16, kGuid},
                        {"type", 16, 4},
                        {"instance", 20, 260, kText},
                        {"description", 280, 256, kText},
                        {"manufacturer", 536, 256, kText},
                        {"provider", 792, 256, kText}},
                       {{"svc", 1048, &kService}, {"img", 1416, &kFileFacts}, {"inf", 2284, &kFileFacts}}};
const Scope kDisk = {{{"number", 0, 4}, {"start", 8, 8}, {"length", 16, 8}},
                     {{"disk", 24, &kDriver}, {"ctrl", 3176, &kDriver}, {"bus", 6328, &kDriver}}};
const Scope kVolume = {{{"mount", 0, 16, kText},
                        {"guid_path", 16, 64, kText},
                        {"device", 80, 260, kName, 892},
                        {"unique_id", 340, 260, kAnswer, 896},
                        {"label", 600, 16, kText},
                        {"file_system", 616, 16, kText},
                        {"backup_name", 632, 260, kText},
                        {"serial", 900, 4},
                        {"longest_name", 904, 4},
                        {"flags", 908, 4},
                        {"type", 916, 4},
                        {"disks", 920, 4},
                        {"most_disks", 924, 4}},
                       {{"disk0", 928, &kDisk}, {"disk1", 10408, &kDisk}}};
const Scope kFile = {
    {{"version", 4, 4},
     {"hal", 12, 4},
     {"kernel", 16, 4},
     {"media", 20, 4},
     {"system", 24, 260, kText},
     {"windows", 284, 260, kText},
     {"major", 544, 4},
     {"minor", 548, 4},
     {"build", 552, 4},
     {"platform", 556, 4},
     {"sp_major", 560, 4},
     {"sp_minor", 564, 4},
     {"suite", 568, 4},
     {"product", 572, 4},
     {"processors", 576, 4},
     {"processor_type", 580, 4},
     {"level", 584, 4},
     {"revision", 588, 4},
     {"arch", 592, 4},
     {"page_size", 596, 4},
     {"memory", 600, 8},
     {"volumes", 608, 4},
     {"boot_volume", 616, 4},
     {"system_volume", 620, 4},
     {"computer", 80176, 16, kText},
     {"netbios", 80192, 16, kText},
     {"dns_hostname", 80208, 16, kText},
     {"dns_domain", 80224, 16, kText},
     {"dns_fully_qualified", 80240, 16, kText},
     {"physical_netbios", 80256, 16, kText},
     {"physical_dns_hostname", 80272, 16, kText},
     {"physical_dns_domain", 80288, 16, kText},
     {"physical_dns_fully_qualified", 80304, 16, kText}},
    {{"vol0", 624, &kVolume}, {"vol1", 20512, &kVolume}, {"vol2", 40400, &kVolume}, {"vol3", 60288, &kVolume}}};

bool ReadNumber(const std::string &text, int base, std::uint64_t *number) {
  char *end = nullptr;
  errno = 0;
  *number = std::strtoull(text.c_str(), &end, base);
  return !text.empty() && *end == '\0' && errno == 0;
}

// Two hexadecimal digits a byte, hyphens and braces aside.
bool ReadBytes(const std::string &text, std::string *bytes) {
  std::string digits;
  for (const char c : text) {
    if (std::strchr("-{}", c) == nullptr) digits += c;
  }
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    std::uint64_t byte = 0;
    if (i + 2 > digits.size() || !ReadNumber(digits.substr(i, 2), 16, &byte)) return false;
    *bytes += static_cast<char>(byte);
  }
  return true;
}

bool PutBytes(std::string *image, std::size_t offset, std::size_t room, const std::string &bytes) {
  if (bytes.size() > room) return false;
  image->replace(offset, bytes.size(), bytes);
  return true;
}

bool PutAnswer(std::string *image, const ExtensionField &field, const std::string &bytes) {
  PutNumber(image, field.offset, 2, bytes.size());
  PutNumber(image, field.count, 4, 2 + bytes.size());
  return PutBytes(image, field.offset + 2, field.size - 2, bytes);
}

bool Find(const Scope &scope, const std::string &key, std::size_t base, ExtensionField *found) {
  for (const Part &part : scope.parts) {
    const std::string prefix = std::string(part.name) + ".";
    if (key.starts_with(prefix)) return Find(*part.scope, key.substr(prefix.size()), base + part.offset, found);
  }
  for (const Field &field : scope.fields) {
    if (key != field.key) continue;
    *found = {base + field.offset, field.size, field.kind, base + field.count};
    return true;
  }
  return false;
}

}  // namespace

bool FindExtensionField(const std::string &key, ExtensionField *field) { return Find(kFile, key, 0, field); }

void PutNumber(std::string *image, std::size_t offset, std::size_t size, std::uint64_t value) {
  for (std::size_t i = 0; i < size; ++i) image->at(offset + i) = static_cast<char>(value >> (8 * i));
}

std::string BlankExtension() {
  std::string image(80332, '\0');
  image.replace(0, 4, "HbMe");
  PutNumber(&image, 4, 4, 1);
  PutNumber(&image, 8, 4, 80324);
  PutNumber(&image, 612, 4, 4);
  PutNumber(&image, 616, 4, 0xFFFFFFFFu);
  PutNumber(&image, 620, 4, 0xFFFFFFFFu);
  return image;
}

bool PutExtensionField(std::string *image, const std::string &argument) {
  const std::size_t equals = argument.find('=');
  if (equals == std::string::npos) return false;
  const std::string key = argument.substr(0, equals), value = argument.substr(equals + 1);
  if (key == "magic") {
    if (value != "hot" && value != "cold") return false;
    image->replace(0, 4, value == "hot" ? "HbMe" : "CbMe");
    return true;
  }
  ExtensionField field;
  if (!FindExtensionField(key, &field)) return false;
  std::string bytes;
  std::uint64_t number = 0;
  switch (field.kind) {
    case kNumber:
      if (!ReadNumber(value, 0, &number) || (field.size < 8 && number >> 32 != 0)) return false;
      PutNumber(image, field.offset, field.size, number);
      return true;
    case kText:
      return PutBytes(image, field.offset, field.size - 1, value);
    case kGuid:
      if (!ReadBytes(value, &bytes) || bytes.size() != 16) return false;
      bytes = {bytes[3], bytes[2], bytes[1], bytes[0], bytes[5], bytes[4], bytes[7], bytes[6]};
      ReadBytes(value.substr(value.find('-', 15)), &bytes);
      return PutBytes(image, field.offset, field.size, bytes);
    case kAnswer:
      return ReadBytes(value, &bytes) && PutAnswer(image, field, bytes);
    case kName:
      for (const char c : value) bytes += {c, '\0'};
      return PutAnswer(image, field, bytes);
  }
  return false;
}
