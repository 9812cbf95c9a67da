#include "platform/machine/registry/registry_state.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <tuple>

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

// The running system's registry as it was before a rehearsal: what is laid over, and what each hive was to become.
struct BeforeRehearsal {
  OverlayKeys overlay;
  std::vector<std::pair<std::map<FoldedPath, ChangedKey>, std::set<FoldedPath>>> hives;  // made, deleted
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

Status QueryPlain(const KeyPath &key, const std::u16string &name, StoredValue *value) {
  const std::u16string folded = FoldKeyName(name);
  const auto over = Registry().overlay.find(key.folded);
  if (over != Registry().overlay.end()) {
    if (const StoredValue *found = FindValue(&over->second.values, folded); found != nullptr) {
      *value = *found;
      return {};
    }
  }
  MountedHive *mounted = FindHive(key);
  if (mounted == nullptr) return Status::Of(StatusKind::kNotFound);
  return FindHiveValue(mounted->hive.get(), BelowHive(key, *mounted), folded, value);
}

// The running system's control set; the first when Select does not name one.
KeyPath CurrentControlSet() {
  StoredValue current;
  DWORD number = 1;
  if (QueryPlain(ParseKeyPath(u"SYSTEM\\Select"), u"Current", &current) && current.bytes.size() >= 4) {
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
    Registry().overlay.try_emplace(KeyPathPrefix(key, count).folded, OverlayKey{key.names[count - 1], {}});
  }
}

void PutOverlay(const KeyPath &key, StoredValue value) {
  const KeyPath real = FollowLink(key);
  MakeOverlayKey(real);
  PutValue(&Registry().overlay[real.folded].values, std::move(value));
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

Status OpenRunningHive(const HiveFile &described) {
  MountedHive mounted;
  mounted.key = described.key;
  mounted.at = ParseKeyPathA(described.key);
  mounted.subject = Utf8ToAnsi(described.file.string());
  mounted.running = true;
  const std::string where = described.file.string() + ": the hive of " + AnsiToUtf8(described.key) + " ";
  if (mounted.at.folded.empty()) {
    return Status::Refused(described.file.string() +
                           ": the hive has no key to be mounted at; give one such as SOFTWARE");
  }
  for (const MountedHive &other : Registry().hives) {
    if (other.at.folded == mounted.at.folded) {
      return Status::Refused(where + "is the second at that key; describe one hive for a key");
    }
  }
  mounted.hive = std::make_unique<Hive>();
  if (Status opened = OpenHiveFile(mounted.hive.get(), described.file, HiveUse::kChange); !opened) {
    opened.text.insert(0, where);
    return opened;
  }
  (void)ClearLeftOver(mounted.hive->directory.fd, mounted.hive->name);
  TellReplay(mounted);
  Registry().hives.push_back(std::move(mounted));
  ++Registry().changes;
  return {};
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

Status FillRegistry(const Description &description) {
  for (const HiveFile &hive : description.hives) {
    if (Status opened = OpenRunningHive(hive); !opened) return opened;
  }
  LayOverAll(description);
  for (const Device &device : description.devices) LayOver(device);
  // Laying over has read hives, for Select.
  for (const MountedHive &mounted : Registry().hives) {
    if (mounted.hive->failure) continue;
    Status broken = mounted.hive->failure;
    broken.text.insert(0, AnsiToUtf8(mounted.subject) + ": the hive of " + AnsiToUtf8(mounted.key) + " ");
    return broken;
  }
  return {};
}

}  // namespace

RegistryState &Registry() {
  static RegistryState state;
  return state;
}

Status FindKey(const KeyPath &given) {
  const KeyPath key = FollowLink(given);
  if (key.folded.empty() || Registry().overlay.count(key.folded) != 0) return {};
  MountedHive *mounted = FindHive(key);
  if (mounted == nullptr) return Status::Of(StatusKind::kNotFound);
  return FindHiveKey(mounted->hive.get(), BelowHive(key, *mounted));
}

KeyPlace PlaceOfKey(const KeyPath &given) {
  KeyPlace place = {FollowLink(given), nullptr, {}};
  place.mounted = FindHive(place.key);
  if (place.mounted != nullptr) place.below = BelowHive(place.key, *place.mounted);
  return place;
}

Status CreateKey(const KeyPath &given) {
  const ScopeGuard change([] { ++Registry().changes; });
  if (Status found = FindKey(given); found.kind != StatusKind::kNotFound) return found;
  const KeyPath key = FollowLink(given);
  if (MountedHive *mounted = FindHive(key); mounted != nullptr) {
    return CreateHiveKey(mounted->hive.get(), BelowHive(key, *mounted));
  }
  if (Registry().overlay.count({key.folded.front()}) == 0) return Status::Of(StatusKind::kInvalid);
  MakeOverlayKey(key);
  return {};
}

Status QueryValue(KeyPath key, const std::u16string &name, StoredValue *value) {
  return QueryPlain(FollowLink(std::move(key)), name, value);
}

Status SetValue(const KeyPath &given, StoredValue value) {
  const ScopeGuard change([] { ++Registry().changes; });  // behind the change, since the link is followed before it
  const KeyPath key = FollowLink(given);
  const auto over = Registry().overlay.find(key.folded);
  const bool isOver = over != Registry().overlay.end();
  MountedHive *mounted = FindHive(key);
  if (mounted == nullptr || (isOver && FindValue(&over->second.values, FoldKeyName(value.name)) != nullptr)) {
    if (!isOver) return Status::Of(StatusKind::kNotFound);
    PutValue(&over->second.values, std::move(value));
    return {};
  }
  // The key may be there only because it is laid over.
  if (Status made = CreateHiveKey(mounted->hive.get(), BelowHive(key, *mounted)); !made) return made;
  return SetHiveValue(mounted->hive.get(), BelowHive(key, *mounted), std::move(value));
}

bool BeginRegistryRehearsal() {
  const std::vector<MountedHive> &hives = Registry().hives;
  if (!std::all_of(hives.begin(), hives.end(), [](const MountedHive &mounted) { return mounted.running; }))
    return false;
  g_before.overlay = Registry().overlay;
  for (const MountedHive &mounted : hives) g_before.hives.emplace_back(mounted.hive->changes, mounted.hive->deleted);
  return true;
}

void EndRegistryRehearsal() {
  DropMountedHives();
  Registry().overlay = std::move(g_before.overlay);
  // Hives of the running system stay, in their order.
  for (std::size_t i = 0; i < g_before.hives.size(); ++i) {
    std::tie(Registry().hives[i].hive->changes, Registry().hives[i].hive->deleted) = std::move(g_before.hives[i]);
  }
  g_before = {};
  ++Registry().changes;
}

Status OpenRegistry(const Description &description) {
  Registry() = RegistryState();
  Status opened = FillRegistry(description);
  Registry().open = static_cast<bool>(opened);
  if (!opened) Registry() = RegistryState();
  return opened;
}

}  // namespace machine
