#include "package/read/sources.h"

#include "package/read/driver_store.h"
#include "package/read/numbers.h"
#include "package/read/reading.h"

namespace package {
namespace {

constexpr DWORD kInCabinetFlag = 0x10;  // of a line of SourceDisksNames

// Fields of the lines: "file = disk[, folder[, size]]" and
// "disk = description[, tag file or cabinet[, unused[, folder[, flags[, tag file]]]]]".
enum FileField : std::uint32_t { kDisk = 1, kSubFolder };
enum DiskField : std::uint32_t { kTag = 2, kFolder = 4, kDiskFlags };

// Where a package declares that a file lies.
struct Declared {
  bool listed = false;
  bool plain = true;  // leads nowhere else than below the INF file's directory
  std::string folder, cabinet;
};

// A line of "NAME.amd64" with that key, else of "NAME".
bool FindDeclared(machine::InfFile *file, const std::string &name, const std::string &key, const Target &target,
                  FoundLine *line) {
  const char *architecture = ArchitectureName(target.architecture);
  if (architecture != nullptr && FindLine(file, name + "." + architecture, key, line)) return true;
  return FindLine(file, name, key, line);
}

bool EndsIn(const std::string &name, std::string_view ending) {
  return name.size() > ending.size() &&
         machine::SameName(std::string_view(name).substr(name.size() - ending.size()), ending);
}

Declared FindDeclaration(const InfSource &inf, const std::string &name, const Target &target) {
  Declared declared;
  FoundLine line;
  if (!FindDeclared(inf.file.get(), "SourceDisksFiles", name, target, &line)) return declared;
  declared.listed = true;
  const std::string disk = TextOf(line, kDisk);
  std::string folder, subFolder, diskFolder;
  declared.plain = PlainFolder(TextOf(line, kSubFolder), &subFolder);
  if (!FindDeclared(inf.file.get(), "SourceDisksNames", disk, target, &line)) {
    declared.folder = subFolder;
    return declared;
  }
  declared.plain = PlainFolder(TextOf(line, kFolder), &diskFolder) && declared.plain;
  declared.folder = JoinNames(diskFolder, subFolder);
  const std::string tag = TextOf(line, kTag);
  DWORD flags = 0;
  const bool packed = ParseNumber(TextOf(line, kDiskFlags), &flags) && (flags & kInCabinetFlag) != 0;
  if ((packed || EndsIn(tag, ".cab")) && PlainName(tag)) declared.cabinet = JoinNames(diskFolder, tag);
  return declared;
}

bool TryFile(const std::string &path, SourceState state, SourceFile *source) {
  DWORD64 size = 0;
  if (!IsFile(path, &size)) return false;
  source->state = state;
  source->path = path;
  source->size = size;
  return true;
}

// "x.sy_" for "x.sys"; a name of less than three characters behind its dot gets one more: "x.c_".
std::string CompressedName(const std::string &name) {
  const std::size_t dot = name.rfind('.');
  if (dot == name.npos) return name + "._";
  if (name.size() - dot <= 3) return name + "_";
  std::size_t last = name.size() - 1;
  if (last - dot > 1 && platform::IsDBCSLeadByte(static_cast<BYTE>(name[last - 1]))) --last;
  return name.substr(0, last) + "_";
}

// The files of an inbox INF file are where its system has them.
SourceFile FindInbox(const InfSource &inf, const std::string &name, const Target &target) {
  const std::string system = ParentOf(inf.directory, *inf.file->settings) + "\\System32";
  const bool driver = EndsIn(name, ".sys");
  SourceFile source;
  source.path = system + (driver ? "\\drivers\\" : "\\") + name;
  if (TryFile(source.path, SourceState::kFound, &source) || !driver) return source;
  const Declared declared = FindDeclaration(inf, name, target);
  const std::string infName = inf.path.substr(std::min(inf.path.size(), inf.directory.size() + 1));
  if (!PlainName(infName)) return source;
  for (const std::string &folder : StoreFolders(FileRepository(system), infName, target)) {
    const std::string place = declared.plain ? JoinNames(folder, declared.folder) : folder;
    if (TryFile(JoinNames(place, name), SourceState::kFound, &source)) break;
    if (TryFile(JoinNames(folder, name), SourceState::kFound, &source)) break;
  }
  return source;
}

}  // namespace

bool IsFile(const std::string &path, DWORD64 *size) {
  WIN32_FILE_ATTRIBUTE_DATA data = {};
  if (!platform::GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data)) return false;
  if (size != nullptr) *size = static_cast<DWORD64>(data.nFileSizeHigh) << 32 | data.nFileSizeLow;
  return (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

SourceFile FindSource(const InfSource &inf, const std::string &name, const Target &target) {
  SourceFile source;
  source.path = JoinNames(inf.directory, name);
  if (!PlainName(name)) return source;
  if (inf.inbox) return FindInbox(inf, name, target);
  const Declared declared = FindDeclaration(inf, name, target);
  const std::string beside = inf.directory;
  const std::string place = declared.plain ? JoinNames(beside, declared.folder) : beside;
  const bool apart = !declared.plain || !declared.folder.empty();
  source.path = JoinNames(place, name);
  if (declared.plain && TryFile(source.path, SourceState::kFound, &source)) return source;
  if (apart && TryFile(JoinNames(beside, name), SourceState::kFound, &source)) {
    source.elsewhere = true;
    return source;
  }
  const std::string compressed = CompressedName(name);
  if (TryFile(JoinNames(place, compressed), SourceState::kCompressed, &source)) return source;
  if (apart && TryFile(JoinNames(beside, compressed), SourceState::kCompressed, &source)) return source;
  if (declared.plain && !declared.cabinet.empty()) {
    TryFile(JoinNames(beside, declared.cabinet), SourceState::kInCabinet, &source);
  }
  return source;
}

SourceFile FindServiceFile(const Installation &installation, const ServiceLines &service, const std::string &name,
                           const Target &target, bool *listed) {
  if (listed != nullptr) *listed = false;
  for (const FileLine &file : installation.files) {
    if (!file.serves || !machine::SameName(file.target, name)) continue;
    if (listed != nullptr) *listed = true;
    SourceFile source = FindSource(installation.infs[file.inf], file.source, target);
    if (source.state != SourceState::kMissing) return source;
  }
  return FindSource(installation.infs[service.inf], name, target);
}

}  // namespace package
