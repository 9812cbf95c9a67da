// Status lines: short sentences for the user, and the result code of the run. VXREng_SetStatusWnd, which names the
// window, is declared in vxrcore/vxrcore.h.
#pragma once

#include "platform/platform.h"
#include "vxrcore/vxrcore.h"

extern HWND hStatusWnd;
extern DWORD dwWndFlags;  // 2 replaces the window's text, 1 appends to it
extern DWORD dwError;     // code of the last failing status line of the run

// Records `code` (VXR_RESULT_... of vxrcore.h) unless it is VXR_STATUS_PROGRESS, then shows and logs the line. FALSE
// when no line was shown (no window, no format, no memory); the code counts all the same. A line is cut at 1,023
// characters.
BOOL VXREng_StatusMsg(DWORD code, const char *format, ...);
