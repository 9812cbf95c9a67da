// Handles of one kind.
//
// A handle is a number into its table, never an address, and no number is given twice: a handle that was closed, or
// that never was one, is recognised as invalid instead of being followed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <utility>

namespace machine {

template <class Record>
struct HandleTable {
  std::unordered_map<std::uintptr_t, Record> records;
  std::uintptr_t last = 0;  // the number given last
};

// Enters the record and returns its handle, a pointer of the kind that the calls trade in.
template <class Handle, class Record>
Handle AddTo(HandleTable<Record> *table, Record record) {
  table->last += 4;  // as Windows numbers them
  table->records.emplace(table->last, std::move(record));
  return reinterpret_cast<Handle>(table->last);
}

// Null when there is no such open handle. Valid until the handle is closed.
template <class Record>
Record *FindIn(HandleTable<Record> *table, const void *handle) {
  const auto found = table->records.find(reinterpret_cast<std::uintptr_t>(handle));
  return found != table->records.end() ? &found->second : nullptr;
}

// False when there is no such open handle.
template <class Record>
bool DropFrom(HandleTable<Record> *table, const void *handle) {
  return table->records.erase(reinterpret_cast<std::uintptr_t>(handle)) != 0;
}

}  // namespace machine
