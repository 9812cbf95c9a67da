// Listing and deleting keys and values: what is laid over and what a hive holds are one.
#include <algorithm>
#include <cerrno>
#include <set>

#include "platform/machine/registry/registry_state.h"

namespace machine {
namespace {

const FoldedPath kSystem = {u"SYSTEM"};
const std::u16string kLinkName = u"CurrentControlSet";

bool IsChildOf(const FoldedPath &path, const FoldedPath &above) {
  return path.size() == above.size() + 1 && std::equal(above.begin(), above.end(), path.begin());
}

bool IsMountPoint(const FoldedPath &path) {
  const std::vector<MountedHive> &hives = Registry().hives;
  return std::any_of(hives.begin(), hives.end(), [&](const MountedHive &each) { return each.at.folded == path; });
}

// Names that no hive gives: of keys laid over, of mounted hives, of the link.
std::vector<std::u16string> NamesBeside(const FoldedPath &key) {
  std::vector<std::u16string> names;
  for (const MountedHive &mounted : Registry().hives) {
    if (IsChildOf(mounted.at.folded, key)) names.push_back(mounted.at.names.back());
  }
  if (key == kSystem && FindKey(ParseKeyPath(u"SYSTEM\\" + kLinkName))) names.push_back(kLinkName);
  const std::size_t first = names.size();
  for (const auto &[path, over] : Registry().overlay) {
    if (IsChildOf(path, key)) names.push_back(over.name);
  }
  std::sort(names.begin() + static_cast<std::ptrdiff_t>(first), names.end());
  return names;
}

Status CollectKeys(const KeyPlace &place, std::vector<std::u16string> *names) {
  std::set<std::u16string> known;
  if (place.mounted != nullptr) {
    const Status listed = ListHiveKeys(place.mounted->hive.get(), place.below, names);
    if (!listed && listed.kind != StatusKind::kNotFound) return listed;
    for (const std::u16string &name : *names) known.insert(FoldKeyName(name));
  }
  for (std::u16string &name : NamesBeside(place.key.folded)) {
    if (known.insert(FoldKeyName(name)).second) names->push_back(std::move(name));
  }
  return {};
}

Status CollectValues(const KeyPlace &place, std::vector<StoredValue> *values) {
  if (place.mounted != nullptr) {
    const Status listed = ListHiveValues(place.mounted->hive.get(), place.below, values);
    if (!listed && listed.kind != StatusKind::kNotFound) return listed;
  }
  const auto over = Registry().overlay.find(place.key.folded);
  if (over == Registry().overlay.end()) return {};
  for (const StoredValue &value : over->second.values) PutValue(values, value);
  return {};
}

// The kept listing of the key, or a new one.
template <class Item>
Status List(const KeyPath &key, std::optional<Listing<Item>> *kept,
            Status (*collect)(const KeyPlace &place, std::vector<Item> *items), const std::vector<Item> **items) {
  if (Status found = FindKey(key); !found) return found;
  if (!*kept || (*kept)->changes != Registry().changes || (*kept)->key != key.folded) {
    Listing<Item> fresh = {Registry().changes, key.folded, {}};
    kept->reset();
    if (Status collected = collect(PlaceOfKey(key), &fresh.items); !collected) return collected;
    *kept = std::move(fresh);
  }
  *items = &(*kept)->items;
  return {};
}

}  // namespace

Status ListKeys(const KeyPath &key, const std::vector<std::u16string> **names) {
  return List(key, &Registry().keys, CollectKeys, names);
}

Status ListValues(const KeyPath &key, const std::vector<StoredValue> **values) {
  return List(key, &Registry().values, CollectValues, values);
}

Status DeleteKey(const KeyPath &given) {
  const std::vector<std::u16string> *below = nullptr;
  const KeyPlace place = PlaceOfKey(given);
  if (Status listed = ListKeys(place.key, &below); !listed) return listed;
  const bool stays = place.key.folded.size() < 2 || place.key.folded.size() != given.folded.size() ||
                     IsMountPoint(place.key.folded) || !below->empty();
  if (stays) return Status::System({}, EACCES);
  ++Registry().changes;
  if (place.mounted != nullptr) {
    const Status deleted = DeleteHiveKey(place.mounted->hive.get(), place.below);
    if (!deleted && deleted.kind != StatusKind::kNotFound) return deleted;
  }
  Registry().overlay.erase(place.key.folded);
  return {};
}

Status DeleteValue(const KeyPath &given, const std::u16string &name) {
  const KeyPlace place = PlaceOfKey(given);
  const std::u16string folded = FoldKeyName(name);
  if (Status found = FindKey(place.key); !found) return found;
  ++Registry().changes;
  bool existed = false;
  if (place.mounted != nullptr) {
    const Status deleted = DeleteHiveValue(place.mounted->hive.get(), place.below, folded);
    if (!deleted && deleted.kind != StatusKind::kNotFound) return deleted;
    existed = static_cast<bool>(deleted);
  }
  const auto over = Registry().overlay.find(place.key.folded);
  if (over != Registry().overlay.end()) {
    existed =
        std::erase_if(over->second.values, [&](const StoredValue &each) { return FoldKeyName(each.name) == folded; }) +
            (existed ? 1 : 0) !=
        0;
  }
  return existed ? Status() : Status::Of(StatusKind::kNotFound);
}

}  // namespace machine
