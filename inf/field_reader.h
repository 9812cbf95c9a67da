// Fields of INF lines, and sections under decorated names.
#pragma once

#include "log/heap.h"
#include "vxr/device.h"

enum : DWORD { VXRINF_TYPE_SZ, VXRINF_TYPE_MSZ, VXRINF_TYPE_INT, VXRINF_TYPE_BIN };

// A copy of field `index` (0 is the line's key) as `type`; a text that is a %token% is replaced from the file's Strings
// section. `*size` (optional) gets the buffer's bytes, terminators included. Null when the field does not exist.
HeapText VXRDev_GetInfLineField(HINF hInf, DWORD index, INFCONTEXT *pContext, DWORD *size, DWORD type);
HeapText VXRDev_GetInfLineFieldSZ(HINF hInf, DWORD index, INFCONTEXT *pContext, DWORD *size, BOOL bMultiSz);
HeapText VXRDev_GetInfLineFieldINT(HINF hInf, DWORD index, INFCONTEXT *pContext, DWORD *size);
HeapText VXRDev_GetInfLineFieldBIN(HINF hInf, DWORD index, INFCONTEXT *pContext, DWORD *size);
// The Strings section's value for a %token%, read as `type`; null when the text is no token or has no value.
HeapText VXRDev_InfConvertStringToken(HINF hInf, const char *szToken, DWORD *size, DWORD type);
// First line of section.decoration.suffix: with the decoration given, then with each of the list, then with none.
BOOL VXRDev_FindInfSection(HINF hInf, const char *szSection, const char *szDecoration, const char *szSuffix,
                           const char *szDecorations, INFCONTEXT *pContext);
// Whether a model line's id is the searched one, without regard to case.
BOOL VXRDev_CheckHardwareIDMatch(const char *szModelID, const char *szHardwareID, const VXR_DRIVER *pVXRDriver);

struct InfFileDeleter {
  void operator()(void *inf) const { platform::SetupCloseInfFile(inf); }
};
// An open INF file. Null stands for the invalid handle.
using InfFile = std::unique_ptr<void, InfFileDeleter>;
// Opens a modern-style INF file; null, with the last error, when it cannot be.
InfFile OpenInfFile(const char *path);
