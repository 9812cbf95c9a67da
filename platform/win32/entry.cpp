// The library's entry point: nothing to do, whatever the reason.
#include "platform/win32/types.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD, void *) { return TRUE; }
