#include "platform/machine/setup/inf_cache.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/machine/base/descriptor.h"
#include "platform/machine/description/current.h"
#include "platform/machine/files/paths.h"
#include "platform/machine/host/listing.h"
#include "platform/machine/setup/device_tree.h"
#include "platform/machine/setup/inf_handles.h"
#include "platform/text/code_page.h"

namespace machine {
namespace {

constexpr int kOpenInf = O_RDONLY | O_NONBLOCK | O_CLOEXEC;
constexpr std::size_t kVersionMax = 64 << 10;  // bytes of a file's [Version] kept
constexpr std::size_t kVersionUsual = 512;

// Whether a text is likely to be asked for again: that of a file with a driver for some device or, while that is not
// known, of a present device's class. Of the others few are kept, so that a search through thousands of them goes
// through memory that is still in the processor's cache.
enum Use { kUseUnlikely, kUseLikely, kUses };
constexpr std::size_t kTextBudgets[kUses] = {256 << 10, 32 << 20};  // bytes

struct Inode {
  dev_t device;
  ino_t number;
  bool operator==(const Inode &) const = default;
};

struct HashInode {
  std::size_t operator()(const Inode &key) const { return key.number * 0x9E3779B97F4A7C15u ^ key.device; }
};

struct Cache {
  std::unordered_map<Inode, InfFactsRef, HashInode> files;
  struct {
    std::list<InfFactsRef> files;  // those with a text, latest first
    std::size_t size = 0;
  } kept[kUses];
  std::shared_ptr<const InfSettings> settings;
  std::optional<IdIndex> ids;
};

Cache cache;
std::uint64_t reads = 0;

bool IsSameFile(const struct stat &a, const struct stat &b) {
  return SameInode(a, b) && a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
         a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

void Unlist(InfFacts *facts) {
  if (facts->keptSize == 0) return;
  auto &kept = cache.kept[facts->keptUse];
  kept.size -= std::exchange(facts->keptSize, 0);
  kept.files.erase(facts->place);  // the last step: it may release the facts
}

void DropText(const InfFactsRef &facts) {
  facts->text = nullptr;
  Unlist(facts.get());
}

// Keeps the text as the latest of its use, at its present size. One that is larger than the budget goes at once.
void KeepText(const InfFactsRef &facts, Use use) {
  Unlist(facts.get());
  auto &kept = cache.kept[use];
  kept.files.push_front(facts);
  facts->keptUse = use;
  facts->place = kept.files.begin();
  facts->keptSize = MemoryOf(*facts->text);
  kept.size += facts->keptSize;
  while (kept.size > kTextBudgets[use]) DropText(InfFactsRef(kept.files.back()));
}

const std::shared_ptr<const InfSettings> &Settings() {
  if (cache.settings == nullptr) {
    const System &system = Current()->system;
    cache.settings = MakeInfSettings(system.codePage, system.language, system.windowsDirectory, system.systemDirectory);
  }
  return cache.settings;
}

Status ReadWhole(int file, std::size_t size, InfBytes *bytes) {
  if (size > kInfSizeMax) return Status::Windows(ERROR_FILE_TOO_LARGE);
  bytes->memory = std::make_unique_for_overwrite<char[]>(size);
  while (bytes->size < size) {
    const ssize_t got = read(file, bytes->memory.get() + bytes->size, size - bytes->size);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return Status::System();
    if (got == 0) break;
    bytes->size += static_cast<std::size_t>(got);
  }
  return {};
}

void ReadVersion(InfFacts *facts) {
  InfFile *file = facts->text.get();
  const InfSection *version = FindSection(file, "Version");
  if (version == nullptr) return;
  FindValue(file, *version, "ClassGUID", &facts->classGuid);
  facts->version.reserve(kVersionUsual);
  for (const InfLine &line : version->lines) {
    if (!line.hasKey || line.valueCount == 0) continue;
    const std::string_view key = RawField(*version, line, 0);
    const std::string_view raw = RawField(*version, line, 1);
    if (facts->version.size() + key.size() + kInfFieldMax + 2 > kVersionMax) break;
    const bool replace = SameName(key, "Signature") || SameName(key, "ClassGUID");
    facts->version.append(key) += '\0';
    facts->version.append(replace ? ReplaceTokens(file, raw) : raw) += '\0';
  }
  facts->version.shrink_to_fit();
}

Use UseOf(const InfFacts &facts) {
  if (!facts.modern) return kUseUnlikely;
  if (facts.served) return facts.served->empty() ? kUseUnlikely : kUseLikely;
  return facts.classGuid.empty() || IsPresentClass(facts.classGuid) ? kUseLikely : kUseUnlikely;
}

// Reads the open file and enters it. The text is kept with the facts for now.
Status ReadFacts(int file, const struct stat &status, InfFactsRef *result) {
  if (!S_ISREG(status.st_mode)) return Status::Windows(ERROR_ACCESS_DENIED);
  InfBytes bytes;
  if (Status read = ReadWhole(file, static_cast<std::size_t>(status.st_size), &bytes); !read) return read;
  ++reads;
  auto facts = std::make_shared<InfFacts>();
  facts->status = status;
  InfRefusal refusal;
  facts->text = ReadInf(std::move(bytes), Settings(), &refusal);
  if (facts->text != nullptr) {
    facts->modern = IsModernInf(facts->text.get());
    ReadVersion(facts.get());
  } else {
    facts->problem = refusal.error;
    facts->problemLine = refusal.line;
  }
  *result = std::move(facts);
  return {};
}

InfFactsRef FindKnown(const struct stat &status) {
  const auto found = cache.files.find({status.st_dev, status.st_ino});
  return found != cache.files.end() && IsSameFile(found->second->status, status) ? found->second : nullptr;
}

// Reads an open file that is not known. `status` is of a moment ago: a file that has changed since is found to have,
// the next time. The text goes to `*text`, when given, whether it is kept or not.
Status ReadAndRemember(int file, const struct stat &status, InfFactsRef *facts, std::shared_ptr<InfFile> *text) {
  if (Status read = ReadFacts(file, status, facts); !read) return read;
  if (text != nullptr) *text = (*facts)->text;
  InfFactsRef &place = cache.files[{status.st_dev, status.st_ino}];
  if (place != nullptr) DropText(place);
  place = *facts;
  RecountText(place);
  return {};
}

// The facts of a file with that status, which `open` opens when it is not known.
template <typename Open>
Status FindKnownOrRead(const struct stat &status, InfFactsRef *facts, std::shared_ptr<InfFile> *text, Open open) {
  *facts = FindKnown(status);
  if (*facts != nullptr) {
    if (text != nullptr) *text = (*facts)->text;
    return {};
  }
  const Descriptor file(open());
  return file ? ReadAndRemember(file.fd, status, facts, text) : Status::System();
}

// The facts of an open file.
Status FindOpen(Descriptor file, InfFactsRef *facts, std::shared_ptr<InfFile> *text) {
  struct stat status = {};
  if (fstat(file.fd, &status) != 0) return Status::System();
  return FindKnownOrRead(status, facts, text, [&file] { return file.Release(); });
}

// The facts of a directory's entry. A file is opened in the directory at hand, which spares looking its path up. A
// symbolic link is not opened there: its Windows path is looked up, which refuses links that lead out of the drive.
Status FindEntry(int directory, const std::string &hostName, const std::string &windowsPath, InfFactsRef *facts) {
  Descriptor file(openat(directory, hostName.c_str(), kOpenInf | O_NOFOLLOW));
  if (file) return FindOpen(std::move(file), facts, nullptr);
  return errno == ELOOP ? FindInf(windowsPath.c_str(), facts) : Status::System();
}

struct InfName {
  std::string order, name, hostName;
};

bool IsInfName(std::string_view name) { return name.size() > 4 && SameName(name.substr(name.size() - 4), ".inf"); }

Status ReadInfNames(int directory, std::vector<InfName> *entries) {
  DirectoryStream stream;
  if (Status opened = OpenDirectoryStream(directory, &stream); !opened) return opened;
  while (const dirent *entry = readdir(stream.get())) {
    if (!IsInfName(entry->d_name)) continue;
    std::string name = Utf8ToAnsi(entry->d_name);
    // A name that the code page lacks could not be opened by what the list says.
    if (AnsiToUtf8(name) != entry->d_name) continue;
    std::string order = FoldAnsiName(name);
    entries->push_back({std::move(order), std::move(name), entry->d_name});
  }
  std::sort(entries->begin(), entries->end(), [](const InfName &a, const InfName &b) {
    return a.order != b.order ? a.order < b.order : a.name < b.name;
  });
  return {};
}

}  // namespace

Status FindInf(const char *windowsPath, InfFactsRef *facts, std::shared_ptr<InfFile> *text) {
  HostPlace place;
  if (Status located = LocatePlace(windowsPath, &place); !located) return located;
  if (place.exists) {
    // Found a moment ago below its drive, and no link.
    const auto open = [&place] { return openat(place.directory, place.name.c_str(), kOpenInf | O_NOFOLLOW); };
    if (FindKnownOrRead(place.status, facts, text, open)) return {};
  }
  Descriptor file;
  Status opened = OpenHostFile(windowsPath, kOpenInf, &file);
  return opened ? FindOpen(std::move(file), facts, text) : opened;
}

Status LoadInfText(const InfFactsRef &facts, const char *windowsPath, std::shared_ptr<InfFile> *text) {
  if (facts->text == nullptr && facts->problem == 0) {
    Descriptor file;
    struct stat status = {};
    InfFactsRef again;
    if (Status opened = OpenHostFile(windowsPath, kOpenInf, &file); !opened) return opened;
    if (fstat(file.fd, &status) != 0) return Status::System();
    if (Status read = ReadFacts(file.fd, status, &again); !read) return read;
    facts->text = again->text;
  }
  if (facts->text == nullptr) return Status::Windows(ERROR_WRONG_INF_STYLE);
  // Held here: when parsing has made the text larger than the budget, recounting drops it from the facts.
  *text = facts->text;
  RecountText(facts);
  return {};
}

void RecountText(const InfFactsRef &facts) {
  if (facts->text != nullptr) KeepText(facts, UseOf(*facts));
}

Status FindServed(const InfFactsRef &facts, const char *windowsPath) {
  if (facts->served) return {};
  std::shared_ptr<InfFile> text;
  if (Status loaded = LoadInfText(facts, windowsPath, &text); !loaded) return loaded;
  if (!cache.ids) cache.ids = IndexIds(*Current());
  facts->served = ServedDevices(text.get(), *Current(), *cache.ids);
  RecountText(facts);
  return {};
}

Status ListInfFiles(const char *windowsPath, std::vector<std::string> *names) {
  Descriptor directory;
  std::vector<InfName> entries;
  if (Status opened = OpenHostDirectory(windowsPath, &directory); !opened) return opened;
  if (Status read = ReadInfNames(directory.fd, &entries); !read) return read;
  for (InfName &entry : entries) {
    const std::string path = std::string(windowsPath) + "\\" + entry.name;
    InfFactsRef facts;
    if (!FindEntry(directory.fd, entry.hostName, path, &facts) || !facts->modern) continue;
    // The text is at hand now; later it may have to be read again.
    if (!facts->served && UseOf(*facts) == kUseLikely) (void)FindServed(facts, path.c_str());
    names->push_back(std::move(entry.name));
  }
  return {};
}

const InfSettings &CurrentInfSettings() { return *Settings(); }

std::string InfDirectory() { return Current()->system.windowsDirectory + "\\inf"; }

void CloseInfFiles() {
  CloseInfHandles();
  cache = {};
  reads = 0;
}

std::uint64_t InfReads() { return reads; }

}  // namespace machine
