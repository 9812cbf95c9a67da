// A check before libhivex changes a hive: it gives the cells of what it replaces back one by one, and ends the program
// when it meets one a second time. In a damaged hive two records may name the same cell.
#include <set>

#include "platform/machine/base/little_endian.h"
#include "platform/machine/hive/hive.h"
#include "platform/machine/host/file_bytes.h"

namespace machine {
namespace {

// Offsets in a cell, its size field included.
constexpr std::size_t kKeySubkeyList = 4 + 28;
constexpr std::size_t kKeyValueCount = 4 + 36;
constexpr std::size_t kKeyValueList = 4 + 40;
constexpr std::size_t kKeySecurity = 4 + 44;
constexpr std::size_t kSecurityNext = 4 + 4;
constexpr std::size_t kSecurityPrevious = 4 + 8;
constexpr std::size_t kListCount = 4 + 2;
constexpr std::size_t kListEntries = 4 + 4;

struct Cells {
  int file = -1;
  std::set<std::uint64_t> seen;  // file offsets
};

Status Take(Cells *cells, std::uint64_t cell) {
  if (cells->seen.insert(cell).second) return {};
  return Status::Refused("is damaged: two of its records share a cell; restore the file again");
}

// The file offset of the cell that the word at `at` names; the hive's offsets begin at its first bin.
Status ReadReference(const Cells &cells, std::uint64_t at, std::uint64_t *cell) {
  std::uint8_t word[4];
  if (Status read = ReadAt(cells.file, at, word, sizeof word); !read) return read;
  *cell = kBaseBlockSize + std::uint64_t{ReadLe32(word)};
  return {};
}

Status TakeValues(Cells *cells, hive_h *handle, hive_node_h node) {
  std::uint8_t count[4];
  if (Status read = ReadAt(cells->file, node + kKeyValueCount, count, sizeof count); !read) return read;
  if (ReadLe32(count) == 0) return {};
  std::uint64_t list = 0;
  if (Status read = ReadReference(*cells, node + kKeyValueList, &list); !read) return read;
  if (Status taken = Take(cells, list); !taken) return taken;
  const Malloced<hive_value_h> values(hivex_node_values(handle, node));
  for (const hive_value_h *value = values.get(); value != nullptr && *value != 0; ++value) {
    std::size_t length = 0;
    const hive_value_h data = hivex_value_data_cell_offset(handle, *value, &length);  // 0: within the record
    if (Status taken = Take(cells, *value); !taken) return taken;
    if (data == 0) continue;
    if (Status taken = Take(cells, data); !taken) return taken;
  }
  return {};
}

// A key's list of subkeys, which may be a list of lists.
Status TakeSubkeyList(Cells *cells, hive_node_h node) {
  std::vector<std::uint64_t> lists(1);
  if (Status read = ReadReference(*cells, node + kKeySubkeyList, lists.data()); !read) return read;
  while (!lists.empty()) {
    const std::uint64_t list = lists.back();
    lists.pop_back();
    if (Status taken = Take(cells, list); !taken) return taken;
    std::uint8_t head[kListEntries];
    if (Status read = ReadAt(cells->file, list, head, sizeof head); !read) return read;
    if (head[4] != 'r' || head[5] != 'i') continue;
    const unsigned count = head[kListCount] | head[kListCount + 1] << 8;
    for (unsigned i = 0; i < count; ++i) {
      lists.emplace_back();
      Status read = ReadReference(*cells, list + kListEntries + 4 * std::uint64_t{i}, &lists.back());
      if (!read) return read;
    }
  }
  return {};
}

// libhivex takes a deleted key out of its parent's list and leaves the list, which Windows does not take when it is one
// of a list of lists and empty.
Status CheckEmptied(const Cells &cells, std::uint64_t list, const std::set<std::uint64_t> &deleted) {
  std::uint8_t head[kListEntries];
  if (Status read = ReadAt(cells.file, list, head, sizeof head); !read) return read;
  const unsigned count = head[kListCount] | head[kListCount + 1] << 8;
  const std::size_t size = head[4] == 'l' && head[5] == 'i' ? 4 : 8;
  for (unsigned i = 0; i < count; ++i) {
    std::uint64_t key = 0;
    if (Status read = ReadReference(cells, list + kListEntries + size * i, &key); !read) return read;
    if (deleted.count(key) == 0) return {};
  }
  return Status::Refused("would lose every key of one of its lists, which cannot be saved; delete fewer keys at once");
}

Status CheckLists(const Cells &cells, hive_node_h parent, const std::set<std::uint64_t> &deleted) {
  std::uint64_t list = 0, leaf = 0;
  std::uint8_t head[kListEntries];
  if (Status read = ReadReference(cells, parent + kKeySubkeyList, &list); !read) return read;
  if (Status read = ReadAt(cells.file, list, head, sizeof head); !read) return read;
  if (head[4] != 'r' || head[5] != 'i') return {};
  const unsigned count = head[kListCount] | head[kListCount + 1] << 8;
  for (unsigned i = 0; i < count; ++i) {
    if (Status read = ReadReference(cells, list + kListEntries + 4 * std::uint64_t{i}, &leaf); !read) return read;
    if (Status left = CheckEmptied(cells, leaf, deleted); !left) return left;
  }
  return {};
}

// A security record that goes with its last key leaves its ring: the neighbours must be such records.
Status CheckSecurity(const Cells &cells, hive_node_h node) {
  std::uint64_t record = 0, neighbour = 0;
  if (Status read = ReadReference(cells, node + kKeySecurity, &record); !read) return read;
  for (const std::size_t link : {std::size_t{0}, kSecurityNext, kSecurityPrevious}) {
    std::uint8_t head[6];
    if (link != 0) {
      if (Status read = ReadReference(cells, record + link, &neighbour); !read) return read;
    }
    if (Status read = ReadAt(cells.file, link == 0 ? record : neighbour, head, sizeof head); !read) return read;
    if (head[4] == 's' && head[5] == 'k') continue;
    return Status::Refused("is damaged: a key has no security record; restore the file again");
  }
  return {};
}

// What goes with the deleted keys.
Status TakeDeleted(Cells *cells, Hive *hive) {
  std::set<std::uint64_t> deleted;
  std::set<hive_node_h> parents;
  for (const FoldedPath &path : hive->deleted) {
    const hive_node_h node = hive->nodes.at(path);
    if (Status taken = Take(cells, node); !taken) return taken;
    if (Status taken = TakeValues(cells, hive->handle.get(), node); !taken) return taken;
    if (Status sound = CheckSecurity(*cells, node); !sound) return sound;
    deleted.insert(node);
    const FoldedPath above(path.begin(), path.end() - 1);
    if (hive->deleted.count(above) == 0) parents.insert(hive->nodes.at(above));
  }
  for (const hive_node_h parent : parents) {
    if (Status left = CheckLists(*cells, parent, deleted); !left) return left;
  }
  return {};
}

}  // namespace

Status CheckReplacedCells(Hive *hive) {
  Cells cells{ContentOf(*hive), {}};
  std::set<hive_node_h> parents;
  if (Status taken = TakeDeleted(&cells, hive); !taken) return taken;
  for (const auto &[path, key] : hive->changes) {
    const bool deleted = hive->deleted.count(path) != 0;  // then it is made anew
    const auto node = hive->nodes.find(path);
    if (node != hive->nodes.end() && !deleted) {
      if (Status taken = TakeValues(&cells, hive->handle.get(), node->second); !taken) return taken;
      continue;
    }
    const FoldedPath above(path.begin(), path.end() - 1);
    if (hive->deleted.count(above) != 0) continue;
    const auto parent = hive->nodes.find(above);
    if (parent == hive->nodes.end() || !parents.insert(parent->second).second) continue;
    if (hivex_node_nr_children(hive->handle.get(), parent->second) == 0) continue;
    if (Status taken = TakeSubkeyList(&cells, parent->second); !taken) return taken;
  }
  return {};
}

}  // namespace machine
