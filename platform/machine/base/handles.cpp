#include "platform/machine/base/handles.h"

#include "platform/machine/base/handle_table.h"

namespace machine {
namespace {

HandleTable<HandleRecord> g_handles;

}  // namespace

HANDLE AddHandle(HandleRecord record) { return AddTo<HANDLE>(&g_handles, std::move(record)); }

HandleRecord *FindHandle(HANDLE handle) { return FindIn(&g_handles, handle); }

bool DropHandle(HANDLE handle) { return DropFrom(&g_handles, handle); }

std::size_t OpenHandles() { return g_handles.records.size() + OpenViews(); }

}  // namespace machine
