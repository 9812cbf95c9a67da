// The compiler's thread library, which whatever uses the C++ library's strings brings along, asks for GetTickCount64,
// and Windows has that from 6.0 on alone: neither vxrcore.dll nor vxr.exe would start on 5.2. The linker takes this
// pointer for the import's.
#include "platform/win32/types.h"

namespace {

// Starts over after 49 days, where the real one goes on. It only measures timed waits, of which we have none.
ULONGLONG WINAPI TickCount() { return GetTickCount(); }

}  // namespace

extern "C" {
extern ULONGLONG(WINAPI *const __imp_GetTickCount64)();
ULONGLONG(WINAPI *const __imp_GetTickCount64)() = TickCount;
}
