// The keys of a hive as a tree: found by path, listed, deleted. A key's sub-keys are read once, since a plan asks for
// hundreds of keys below a few that have thousands.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/machine/base/little_endian.h"
#include "platform/machine/hive/hive.h"
#include "platform/machine/host/file_bytes.h"
#include "platform/text/code_page.h"

namespace machine {
namespace {

// Offsets in a key's cell, its size field included.
constexpr std::size_t kFlags = 4 + 2;
constexpr std::size_t kClass = 4 + 48;
constexpr std::size_t kBeginning = kClass + 4;

constexpr unsigned kMayNotBeDeleted = 0x04 | 0x08;  // the root of a hive; a key that the system protects
constexpr std::uint32_t kNone = 0xFFFFFFFF;

// Reads the name of a child. libhivex ends names at a NUL, which a name may hold: its full length decides too.
void AddChild(hive_h *handle, hive_node_h child, ChildKeys *children) {
  const Malloced<char> text(hivex_node_name(handle, child));
  // Half a surrogate pair is a name that Windows takes and no text of ours names.
  if (text == nullptr && errno != EILSEQ) children->unseen = true;
  if (text == nullptr || hivex_node_name_len(handle, child) != std::strlen(text.get())) {
    children->unnamed = true;
    return;
  }
  std::u16string name = HiveText(text.get());
  if (children->nodes.try_emplace(FoldKeyName(name), child).second) children->names.push_back(std::move(name));
}

// Whether the file's key may be given to libhivex to be deleted. It takes back the cell of a class without looking at
// it first.
Status MayDelete(Hive *hive, const FoldedPath &path, hive_node_h node) {
  std::uint8_t beginning[kBeginning];
  if (Status read = ReadAt(ContentOf(*hive), node, beginning, sizeof beginning); !read) return read;
  if ((beginning[kFlags] & kMayNotBeDeleted) != 0) return Status::System({}, EACCES);
  if (ReadLe32(beginning + kClass) != kNone) return Status::Of(StatusKind::kUnsupported);
  hive_node_h parent = 0;
  if (Status found = FindHiveNode(hive, {path.begin(), path.end() - 1}, &parent); !found) return found;
  const ChildKeys *siblings = nullptr;
  if (Status read = HiveChildren(hive, parent, &siblings); !read) return read;
  // What another list names too would be left there without its cell.
  if (siblings->shared || hivex_node_parent(hive->handle.get(), node) != parent) return DamagedHive(hive);
  return {};
}

// The sub-keys that the file has of a key that exists; null when the key was made since.
Status FileChildren(Hive *hive, const FoldedPath &path, const ChildKeys **children) {
  hive_node_h node = 0;
  *children = nullptr;
  if (hive->deleted.count(path) != 0) return {};
  Status found = FindHiveNode(hive, path, &node);
  if (found.kind == StatusKind::kNotFound) return {};
  return found ? HiveChildren(hive, node, children) : found;
}

bool IsBelow(const FoldedPath &path, const FoldedPath &above) {
  return path.size() > above.size() && std::equal(above.begin(), above.end(), path.begin());
}

}  // namespace

Status DamagedHive(Hive *hive) {
  hive->damaged = true;
  return Status::Of(StatusKind::kDamaged);
}

Status HiveChildren(Hive *hive, hive_node_h parent, const ChildKeys **children) {
  if (const auto known = hive->children.find(parent); known != hive->children.end()) {
    *children = &known->second;
    return {};
  }
  const Malloced<hive_node_h> list(hivex_node_children(hive->handle.get(), parent));
  if (list == nullptr) return DamagedHive(hive);
  ChildKeys read;
  std::vector<hive_node_h> sorted;
  for (const hive_node_h *child = list.get(); *child != 0; ++child) {
    AddChild(hive->handle.get(), *child, &read);
    sorted.push_back(*child);
  }
  std::sort(sorted.begin(), sorted.end());
  read.shared = std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end();
  *children = &hive->children.emplace(parent, std::move(read)).first->second;
  return {};
}

Status FindHiveNode(Hive *hive, const FoldedPath &path, hive_node_h *node) {
  if (const auto found = hive->nodes.find(path); found != hive->nodes.end()) {
    *node = found->second;
    return {};
  }
  if (path.empty()) {
    *node = hivex_root(hive->handle.get());
  } else {
    hive_node_h parent = 0;
    const ChildKeys *children = nullptr;
    if (Status found = FindHiveNode(hive, {path.begin(), path.end() - 1}, &parent); !found) return found;
    if (Status read = HiveChildren(hive, parent, &children); !read) return read;
    const auto child = children->nodes.find(path.back());
    // A key that cannot be seen because the hive is damaged is not one that is absent: a second of its name must not be
    // made.
    if (child == children->nodes.end()) return children->unseen ? DamagedHive(hive) : Status::Of(StatusKind::kNotFound);
    *node = child->second;
  }
  hive->nodes.emplace(path, *node);
  return {};
}

Status ListHiveKeys(Hive *hive, const KeyPath &key, std::vector<std::u16string> *names) {
  const ChildKeys *children = nullptr;
  if (Status found = FindHiveKey(hive, key); !found) return found;
  if (!ReadHive(hive)) return DamagedHive(hive);
  if (Status read = FileChildren(hive, key.folded, &children); !read) return read;
  if (children != nullptr && children->unseen) return DamagedHive(hive);
  FoldedPath path = key.folded;
  path.emplace_back();
  const auto inFile = [&](const std::u16string &folded) {
    path.back() = folded;
    return children != nullptr && children->nodes.count(folded) != 0 && hive->deleted.count(path) == 0;
  };
  if (children != nullptr) {
    for (const std::u16string &name : children->names) {
      if (inFile(FoldKeyName(name))) names->push_back(name);
    }
  }
  for (auto made = hive->changes.upper_bound(key.folded); made != hive->changes.end(); ++made) {
    if (!IsBelow(made->first, key.folded)) break;
    if (made->first.size() == path.size() && !inFile(made->first.back())) names->push_back(made->second.name);
  }
  return {};
}

Status DeleteHiveKey(Hive *hive, const KeyPath &key) {
  if (key.folded.empty()) return Status::System({}, EACCES);
  std::vector<std::u16string> below;
  const ChildKeys *children = nullptr;
  if (Status listed = ListHiveKeys(hive, key, &below); !listed) return listed;
  if (Status read = FileChildren(hive, key.folded, &children); !read) return read;
  if (!below.empty() || (children != nullptr && children->unnamed)) return Status::System({}, EACCES);
  if (children != nullptr) {
    if (Status may = MayDelete(hive, key.folded, hive->nodes.at(key.folded)); !may) return may;
    hive->deleted.insert(key.folded);
  }
  hive->changes.erase(key.folded);
  return {};
}

}  // namespace machine
