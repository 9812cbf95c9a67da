#include "platform/machine/registry/registry_state.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "platform/machine/base/little_endian.h"
#include "platform/machine/description/records.h"
#include "platform/machine/host/rehearsal.h"
#include "platform/machine/host/replace_file.h"
#include "platform/machine/registry/registry.h"
#include "platform/scope_guard.h"
#include "platform/text/code_page.h"

namespace machine {
namespace {

// The keys that every running Windows has at the top. No others can be made there by a write, which keeps a value meant
// for a mounted hive from vanishing into memory when no hive is mounted.
const char16_t *const kTopKeys[] = {u"HARDWARE", u"SAM", u"SECURITY", u"SOFTWARE", u"SYSTEM"};

const FoldedPath kLink = {u"SYSTEM", u"CURRENTCONTROLSET"};

// The running system's registry as it was before a rehearsal: what is laid over, and each hive's changes.
struct BeforeRehearsal {
  OverlayKeys overlay;
  std::vector<std::map<FoldedPath, ChangedKey>> changes;
};
BeforeRehearsal g_before;

constexpr DWORD kLastControlSet = 999;

// The hive that holds the key, by the longest mount point above it; null when none does.
MountedHive *FindHive(const KeyPath &key) {
  MountedHive *best = nullptr;
  for (MountedHive &mounted : Registry().hives) {
    if (!BeginsWith(key, mounted.at.folded)) continue;
    if (best == nullptr || mounted.at.folded.size() > best->at.folded.size()) best = &mounted;
  }
  return best;
}

KeyPath BelowHive(const KeyPath &key, const MountedHive &mounted) {
  return KeyPathBelow(key, mounted.at.folded.size());
}

LSTATUS QueryPlain(const KeyPath &key, const std::u16string &name, StoredValue *value) {
  const std::u16string folded = FoldKeyName(name);
  const auto over = Registry().overlay.find(key.folded);
  if (over != Registry().overlay.end()) {
    if (const StoredValue *found = FindValue(&over->second, folded); found != nullptr) {
      *value = *found;
      return ERROR_SUCCESS;
    }
  }
  MountedHive *mounted = FindHive(key);
  if (mounted == nullptr) return ERROR_FILE_NOT_FOUND;
  return FindHiveValue(mounted->hive.get(), BelowHive(key, *mounted), folded, value);
}

// The running system's control set; the first when Select does not name one.
KeyPath CurrentControlSet() {
  StoredValue current;
  DWORD number = 1;
  if (QueryPlain(ParseKeyPath(u"SYSTEM\\Select"), u"Current", &current) == ERROR_SUCCESS && current.bytes.size() >= 4) {
    number = ReadLe32(current.bytes.data());
  }
  if (number < 1 || number > kLastControlSet) number = 1;
  char name[32];
  std::snprintf(name, sizeof name, "ControlSet%03u", number);
  return ParseKeyPath(u"SYSTEM\\" + std::u16string(name, name + std::char_traits<char>::length(name)));
}

KeyPath FollowLink(KeyPath key) {
  if (!BeginsWith(key, kLink)) return key;
  auto &known = Registry().controlSet;
  if (!known || known->first != Registry().changes) known.emplace(Registry().changes, CurrentControlSet());
  // As many components as the link has: they take its place.
  std::copy(known->second.names.begin(), known->second.names.end(), key.names.begin());
  std::copy(known->second.folded.begin(), known->second.folded.end(), key.folded.begin());
  return key;
}

void MakeOverlayKey(const KeyPath &key) {
  for (std::size_t count = 1; count <= key.folded.size(); ++count) {
    Registry().overlay[KeyPathPrefix(key, count).folded];
  }
}

void PutOverlay(const KeyPath &key, StoredValue value) {
  const KeyPath real = FollowLink(key);
  MakeOverlayKey(real);
  PutValue(&Registry().overlay[real.folded], std::move(value));
  ++Registry().changes;
}

struct DataToStored {
  StoredValue operator()(const std::string &text) const { return {{}, REG_SZ, StoredText(Utf8ToUtf16(text) + u'\0')}; }
  StoredValue operator()(std::uint32_t number) const {
    std::vector<BYTE> bytes(4);
    WriteLe32(bytes.data(), number);
    return {{}, REG_DWORD, std::move(bytes)};
  }
  StoredValue operator()(const std::vector<std::string> &texts) const {
    std::u16string joined;
    for (const std::string &text : texts) joined += Utf8ToUtf16(text) + u'\0';
    return {{}, REG_MULTI_SZ, StoredText(joined + u'\0')};
  }
  StoredValue operator()(const RawValue &raw) const { return {{}, raw.type, raw.bytes}; }
};

void LayOver(const RegistryValue &described) {
  StoredValue value = std::visit(DataToStored(), described.data);
  value.name = AnsiToUtf16(described.name);
  PutOverlay(ParseKeyPathA(described.key), std::move(value));
}

// A present device has a key; its class values are there once it belongs to a class.
void LayOver(const Device &device) {
  const KeyPath key = ParseKeyPathA("SYSTEM\\CurrentControlSet\\Enum\\" + device.instance);
  MakeOverlayKey(FollowLink(key));
  if (device.classGuid.empty()) return;
  PutOverlay(key, {u"ClassGUID", REG_SZ, StoredText(AnsiToUtf16(device.classGuid) + u'\0')});
  if (!device.className.empty()) PutOverlay(key, {u"Class", REG_SZ, StoredText(AnsiToUtf16(device.className) + u'\0')});
}

bool OpenRunningHive(const HiveFile &described, std::string *error) {
  MountedHive mounted;
  mounted.key = described.key;
  mounted.at = ParseKeyPathA(described.key);
  mounted.subject = Utf8ToAnsi(described.file.string());
  mounted.running = true;
  const std::string where = described.file.string() + ": the hive of " + AnsiToUtf8(described.key) + " ";
  if (mounted.at.folded.empty()) {
    *error = described.file.string() + ": the hive has no key to be mounted at; give one such as SOFTWARE";
    return false;
  }
  for (const MountedHive &other : Registry().hives) {
    if (other.at.folded == mounted.at.folded) {
      *error = where + "is the second at that key; describe one hive for a key";
      return false;
    }
  }
  mounted.hive = std::make_unique<Hive>();
  const std::string reason = OpenHiveFile(mounted.hive.get(), described.file, HiveUse::kChange);
  if (!reason.empty()) {
    *error = where + reason;
    return false;
  }
  ClearLeftOver(mounted.hive->directory.fd, mounted.hive->name);
  TellReplay(mounted);
  Registry().hives.push_back(std::move(mounted));
  ++Registry().changes;
  return true;
}

// What lies below the link comes last: Select, which says where it leads, may be laid over too.
void LayOverAll(const Description &description) {
  for (const char16_t *top : kTopKeys) MakeOverlayKey(ParseKeyPath(top));
  for (const bool linked : {false, true}) {
    for (const RegistryValue &value : description.registry) {
      if (BeginsWith(ParseKeyPathA(value.key), kLink) == linked) LayOver(value);
    }
  }
}

}  // namespace

RegistryState &Registry() {
  static RegistryState state;
  return state;
}

LSTATUS FindKey(const KeyPath &given) {
  const KeyPath key = FollowLink(given);
  if (key.folded.empty() || Registry().overlay.count(key.folded) != 0) return ERROR_SUCCESS;
  MountedHive *mounted = FindHive(key);
  if (mounted == nullptr) return ERROR_FILE_NOT_FOUND;
  return FindHiveKey(mounted->hive.get(), BelowHive(key, *mounted));
}

LSTATUS CreateKey(const KeyPath &given) {
  const LSTATUS found = FindKey(given);
  if (found != static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND)) return found;
  const KeyPath key = FollowLink(given);
  if (MountedHive *mounted = FindHive(key); mounted != nullptr) {
    return CreateHiveKey(mounted->hive.get(), BelowHive(key, *mounted));
  }
  if (Registry().overlay.count({key.folded.front()}) == 0) return ERROR_INVALID_PARAMETER;
  MakeOverlayKey(key);
  return ERROR_SUCCESS;
}

LSTATUS QueryValue(KeyPath key, const std::u16string &name, StoredValue *value) {
  return QueryPlain(FollowLink(std::move(key)), name, value);
}

LSTATUS SetValue(const KeyPath &given, StoredValue value) {
  const ScopeGuard change([] { ++Registry().changes; });  // behind the change, since the link is followed before it
  const KeyPath key = FollowLink(given);
  const auto over = Registry().overlay.find(key.folded);
  const bool isOver = over != Registry().overlay.end();
  MountedHive *mounted = FindHive(key);
  if (mounted == nullptr || (isOver && FindValue(&over->second, FoldKeyName(value.name)) != nullptr)) {
    if (!isOver) return ERROR_FILE_NOT_FOUND;
    PutValue(&over->second, std::move(value));
    return ERROR_SUCCESS;
  }
  // The key may be there only because it is laid over.
  const LSTATUS made = CreateHiveKey(mounted->hive.get(), BelowHive(key, *mounted));
  return made != ERROR_SUCCESS ? made : SetHiveValue(mounted->hive.get(), BelowHive(key, *mounted), std::move(value));
}

bool BeginRegistryRehearsal() {
  const std::vector<MountedHive> &hives = Registry().hives;
  if (!std::all_of(hives.begin(), hives.end(), [](const MountedHive &mounted) { return mounted.running; }))
    return false;
  g_before.overlay = Registry().overlay;
  for (const MountedHive &mounted : hives) g_before.changes.push_back(mounted.hive->changes);
  return true;
}

void EndRegistryRehearsal() {
  DropMountedHives();
  Registry().overlay = std::move(g_before.overlay);
  // Hives of the running system stay, in their order.
  for (std::size_t i = 0; i < g_before.changes.size(); ++i) {
    Registry().hives[i].hive->changes = std::move(g_before.changes[i]);
  }
  g_before = {};
  ++Registry().changes;
}

bool OpenRegistry(const Description &description, std::string *error) {
  Registry() = RegistryState();
  const bool opened = std::all_of(description.hives.begin(), description.hives.end(),
                                  [&](const HiveFile &hive) { return OpenRunningHive(hive, error); });
  if (opened) {
    LayOverAll(description);
    for (const Device &device : description.devices) LayOver(device);
  }
  const auto broken = std::find_if(Registry().hives.begin(), Registry().hives.end(),
                                   [](const MountedHive &mounted) { return !mounted.hive->failure.empty(); });
  if (opened && broken != Registry().hives.end()) {
    *error = AnsiToUtf8(broken->subject) + ": the hive of " + AnsiToUtf8(broken->key) + " " + broken->hive->failure;
  } else if (opened) {
    Registry().open = true;
    return true;
  }
  Registry() = RegistryState();
  return false;
}

}  // namespace machine
