#include "platform/machine/base/handles.h"

#include <unordered_map>

namespace machine {
namespace {

std::unordered_map<ULONG_PTR, HandleRecord> g_handles;
ULONG_PTR g_lastHandle = 0;

}  // namespace

HANDLE AddHandle(HandleRecord record) {
  g_lastHandle += 4;  // as Windows numbers them
  g_handles.emplace(g_lastHandle, std::move(record));
  return reinterpret_cast<HANDLE>(g_lastHandle);
}

HandleRecord *FindHandle(HANDLE handle) {
  const auto found = g_handles.find(reinterpret_cast<ULONG_PTR>(handle));
  if (found != g_handles.end()) return &found->second;
  platform::SetLastError(ERROR_INVALID_HANDLE);
  return nullptr;
}

bool DropHandle(HANDLE handle) {
  if (g_handles.erase(reinterpret_cast<ULONG_PTR>(handle)) != 0) return true;
  platform::SetLastError(ERROR_INVALID_HANDLE);
  return false;
}

std::size_t OpenHandles() { return g_handles.size() + OpenViews(); }

}  // namespace machine
