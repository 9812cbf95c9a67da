// Fields of INF lines, and sections under decorated names.
//
// Every buffer that a reader returns is the caller's. Nothing here moves the line position that it is given or keeps
// anything between calls. A field that does not exist is the normal end of a line: null, without a log line.
#pragma once

#include "log/heap.h"
#include "vxr/device.h"

// The form in which a field is read.
enum : DWORD {
  VXRINF_TYPE_SZ,   // one text
  VXRINF_TYPE_MSZ,  // the field and every field after it on the line, as a multi-string
  VXRINF_TYPE_INT,  // a signed 32-bit number in the machine's byte order
  VXRINF_TYPE_BIN,  // the bytes from the field to the end of the line, one a field
};

// A copy of field `index` (0 is the line's key, the values count from 1) as `type`. A text whose whole is a %token% is
// replaced from the file's Strings section, or stays as it is when nothing is found there. `*size` (optional) gets the
// buffer's bytes, terminators included; 0 with null. Null when the field does not exist, for an unknown type, without
// memory; for a null position too, which leaves `*size` as it was.
HeapText VXRDev_GetInfLineField(HINF hInf, DWORD index, INFCONTEXT *pContext, DWORD *size, DWORD type);

// The readers behind it; `size` is not optional here.
// A text, or with `bMultiSz` a multi-string, as the platform gives it. With null `*size` stays as it was.
HeapText VXRDev_GetInfLineFieldSZ(HINF hInf, DWORD index, INFCONTEXT *pContext, DWORD *size, BOOL bMultiSz);
// Four bytes that hold a number: the field's when it is one, else the one that its text begins with (0 when it begins
// with none). Numbers beyond 32 bits keep their low 32. Null, with `*size` 0, when the field does not exist.
HeapText VXRDev_GetInfLineFieldINT(HINF hInf, DWORD index, INFCONTEXT *pContext, DWORD *size);
// Null, with `*size` 0, when the field does not exist or is not hexadecimal.
HeapText VXRDev_GetInfLineFieldBIN(HINF hInf, DWORD index, INFCONTEXT *pContext, DWORD *size);

// The Strings section's value for a %token%, read as `type`: that of the first line with the token's name that has one.
// Null, with `*size` as it was, when the text is no token or no line gives a value. A value is not converted again.
HeapText VXRDev_InfConvertStringToken(HINF hInf, const char *szToken, DWORD *size, DWORD type);

// Position of the first line of section.decoration.suffix: with the decoration given, then with each of the list
// `szDecorations` (optional), then with none. Decoration and suffix are optional. FALSE when there is no such section,
// and when a name to look for exceeds 255 characters.
BOOL VXRDev_FindInfSection(HINF hInf, const char *szSection, const char *szDecoration, const char *szSuffix,
                           const char *szDecorations, INFCONTEXT *pContext);

// Whether a model line's id is the searched one, without regard to case. FALSE without either, or without a driver.
BOOL VXRDev_CheckHardwareIDMatch(const char *szModelID, const char *szHardwareID, const VXR_DRIVER *pVXRDriver);

struct InfFileDeleter {
  void operator()(void *inf) const { platform::SetupCloseInfFile(inf); }
};
// An open INF file. Null stands for the invalid handle.
using InfFile = std::unique_ptr<void, InfFileDeleter>;
// Opens a modern-style INF file; null, with the last error, when it cannot be.
InfFile OpenInfFile(const char *path);
