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
constexpr std::size_t kListCount = 4 + 2;
constexpr std::size_t kListEntries = 4 + 4;

struct Cells {
  int file = -1;
  std::set<std::uint64_t> seen;  // file offsets
  std::string reason;
};

bool Take(Cells *cells, std::uint64_t cell) {
  if (cells->seen.insert(cell).second) return true;
  cells->reason = "is damaged: two of its records share a cell; restore the file again";
  return false;
}

bool Read(Cells *cells, std::uint64_t at, void *buffer, std::size_t size) {
  cells->reason = ReadAt(cells->file, at, buffer, size);
  return cells->reason.empty();
}

// The file offset of the cell that the word at `at` names; the hive's offsets begin at its first bin.
bool ReadReference(Cells *cells, std::uint64_t at, std::uint64_t *cell) {
  std::uint8_t word[4];
  if (!Read(cells, at, word, sizeof word)) return false;
  *cell = kBaseBlockSize + std::uint64_t{ReadLe32(word)};
  return true;
}

bool TakeValues(Cells *cells, hive_h *handle, hive_node_h node) {
  std::uint8_t count[4];
  if (!Read(cells, node + kKeyValueCount, count, sizeof count)) return false;
  if (ReadLe32(count) == 0) return true;
  std::uint64_t list = 0;
  if (!ReadReference(cells, node + kKeyValueList, &list) || !Take(cells, list)) return false;
  const Malloced<hive_value_h> values(hivex_node_values(handle, node));
  for (const hive_value_h *value = values.get(); value != nullptr && *value != 0; ++value) {
    std::size_t length = 0;
    const hive_value_h data = hivex_value_data_cell_offset(handle, *value, &length);  // 0: within the record
    if (!Take(cells, *value) || (data != 0 && !Take(cells, data))) return false;
  }
  return true;
}

// A key's list of subkeys, which may be a list of lists.
bool TakeSubkeyList(Cells *cells, hive_node_h node) {
  std::vector<std::uint64_t> lists(1);
  if (!ReadReference(cells, node + kKeySubkeyList, lists.data())) return false;
  while (!lists.empty()) {
    const std::uint64_t list = lists.back();
    lists.pop_back();
    if (!Take(cells, list)) return false;
    std::uint8_t head[kListEntries];
    if (!Read(cells, list, head, sizeof head)) return false;
    if (head[4] != 'r' || head[5] != 'i') continue;
    const unsigned count = head[kListCount] | head[kListCount + 1] << 8;
    for (unsigned i = 0; i < count; ++i) {
      lists.emplace_back();
      if (!ReadReference(cells, list + kListEntries + 4 * std::uint64_t{i}, &lists.back())) return false;
    }
  }
  return true;
}

}  // namespace

std::string CheckReplacedCells(Hive *hive) {
  Cells cells{ContentOf(*hive), {}, ""};
  std::set<hive_node_h> parents;
  for (const auto &[path, key] : hive->changes) {
    const auto node = hive->nodes.find(path);
    if (node != hive->nodes.end()) {
      if (!TakeValues(&cells, hive->handle.get(), node->second)) return cells.reason;
      continue;
    }
    const auto parent = hive->nodes.find({path.begin(), path.end() - 1});
    if (parent == hive->nodes.end() || !parents.insert(parent->second).second) continue;
    const bool hasSubkeys = hivex_node_nr_children(hive->handle.get(), parent->second) != 0;
    if (hasSubkeys && !TakeSubkeyList(&cells, parent->second)) return cells.reason;
  }
  return "";
}

}  // namespace machine
