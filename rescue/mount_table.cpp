#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <fstream>
#include <string_view>

#include "platform/machine/base/file_kind.h"
#include "rescue/disk_chain.h"
#include "rescue/sysfs.h"

namespace rescue {
namespace {

namespace fs = std::filesystem;
using machine::Status;

// The kernel writes a blank, a tab, a line's end and a backslash in a name as a backslash and three octal digits.
std::string Decode(std::string_view field) {
  std::string text;
  for (std::size_t at = 0; at < field.size(); ++at) {
    std::string_view digits = field.substr(at).substr(0, 4);
    std::uint64_t number = 0;
    const bool escape = digits.size() == 4 && digits[0] == '\\' && (digits.remove_prefix(1), true) &&
                        TakeNumber(&digits, 8, 0, &number) && number <= 0xFF;
    text += escape ? static_cast<char>(number) : field[at];
    if (escape) at += 3;
  }
  return text;
}

// A source may be an empty field.
std::vector<std::string_view> Fields(std::string_view line) {
  std::vector<std::string_view> fields;
  for (std::size_t blank = 0; blank != std::string_view::npos; line.remove_prefix(blank + 1)) {
    blank = line.find(' ');
    fields.push_back(line.substr(0, blank));
    if (blank == std::string_view::npos) break;
  }
  return fields;
}

bool HasOption(std::string_view options, std::string_view option) {
  while (!options.empty()) {
    const std::size_t comma = options.find(',');
    if (options.substr(0, comma) == option) return true;
    options.remove_prefix(comma == std::string_view::npos ? options.size() : comma + 1);
  }
  return false;
}

// "36 35 8:2 / /mnt rw,noatime master:1 - ntfs3 /dev/sda2 rw": any number of fields before the "-".
bool ReadLine(std::string_view line, Mount *mount) {
  const std::vector<std::string_view> fields = Fields(line);
  std::size_t dash = 6;
  while (dash < fields.size() && fields[dash] != "-") ++dash;
  if (dash + 2 >= fields.size()) return false;
  std::string_view device = fields[2];
  std::uint64_t major = 0, minor = 0;
  if (!TakeNumber(&device, 10, ':', &major) || !TakeNumber(&device, 10, 0, &minor)) return false;
  mount->major = static_cast<unsigned>(major);
  mount->minor = static_cast<unsigned>(minor);
  mount->point = Decode(fields[4]);
  mount->type = Decode(fields[dash + 1]);
  mount->source = Decode(fields[dash + 2]);
  mount->readOnly = HasOption(fields[5], "ro") || (dash + 3 < fields.size() && HasOption(fields[dash + 3], "ro"));
  return true;
}

bool Contains(const std::string &point, const std::string &place) {
  return place.starts_with(point) &&
         (place.size() == point.size() || point.ends_with('/') || place[point.size()] == '/');
}

// A file system of a program has a number of its own unless the kernel was told the block device; its source then still
// names it.
void TakeDeviceOfSource(Mount *mount) {
  if (mount->major != 0 || !mount->type.starts_with("fuse") || !mount->source.starts_with("/dev/")) return;
  struct stat source;
  if (stat(mount->source.c_str(), &source) != 0 || !S_ISBLK(source.st_mode)) return;
  mount->major = gnu_dev_major(source.st_rdev);
  mount->minor = gnu_dev_minor(source.st_rdev);
}

Status CanonicalDirectory(const fs::path &directory, std::string *place) {
  std::error_code failure;
  const fs::file_type type = fs::status(directory, failure).type();
  if (type == fs::file_type::none) return Status::System(directory.native() + " cannot be read", failure.value());
  if (type != fs::file_type::directory) {
    return Status::Refused(directory.native() + ' ' + machine::FileKind(type) +
                           "; mount the restored volume and name the directory where it is");
  }
  *place = fs::canonical(directory, failure).native();
  return failure ? Status::System(directory.native() + " cannot be read", failure.value()) : Status();
}

}  // namespace

Status FindMount(const fs::path &directory, const fs::path &mountInfo, Mount *mount) {
  *mount = {};
  std::string place;
  if (Status found = CanonicalDirectory(directory, &place); !found) return found;
  std::ifstream table(mountInfo, std::ios::binary);
  if (!table) return Status::System(mountInfo.native() + " cannot be read");
  for (std::string line; std::getline(table, line);) {
    Mount read;
    if (!ReadLine(line, &read) || !Contains(read.point.native(), place)) continue;
    // The latest of those on one point hides the others.
    if (read.point.native().size() >= mount->point.native().size()) *mount = std::move(read);
  }
  if (mount->point.empty()) {
    return Status::Refused(directory.native() + " lies in no mount that " + mountInfo.native() + " tells of");
  }
  TakeDeviceOfSource(mount);
  return {};
}

}  // namespace rescue
