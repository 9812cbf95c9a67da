#include "device/scan/file_facts.h"

#include <cstdio>
#include <cstring>

#include "engine/base/strings.h"
#include "log/log.h"

namespace {

constexpr char kVersionBlock[] = "\\StringFileInfo\\12345678\\";  // with a language and a code page of four digits each
constexpr SIZE_T kVersionSpare = 18;

VXR_LE64 StoreHalves(DWORD low, DWORD high) { return VxrPut64(DWORD64{high} << 32 | low); }

VXR_LE64 Store(const FILETIME &time) { return StoreHalves(time.dwLowDateTime, time.dwHighDateTime); }

// `directory` may be null; nothing is put between it and the name.
HeapText FullName(const char *directory, const char *file, const Caller &trace) {
  if (directory == nullptr) directory = "";
  const SIZE_T size = std::strlen(directory) + std::strlen(file) + 1;
  HeapText name = AllocText(size, "szFileName", trace);
  if (name != nullptr) std::snprintf(name.get(), size, "%s%s", directory, file);
  return name;
}

BOOL FillAttributes(const char *name, const char *section, VXR_FILEINFO *facts, const Caller &trace) {
  WIN32_FILE_ATTRIBUTE_DATA data = {};
  if (!platform::GetFileAttributesExA(name, GetFileExInfoStandard, &data)) {
    trace.Failed("GetFileAttributesEx", name);
    return FALSE;
  }
  trace.Check("GetFileAttributesEx() ok\n");
  StoreText(facts->FileName, name);
  if (section != nullptr) StoreText(facts->Section, section);
  facts->FileSize = StoreHalves(data.nFileSizeLow, data.nFileSizeHigh);
  facts->CreationTime = Store(data.ftCreationTime);
  facts->LastAccessTime = Store(data.ftLastAccessTime);
  facts->LastWriteTime = Store(data.ftLastWriteTime);
  return TRUE;
}

// The file's version block; null when it has none, which is the usual case and not logged, or when it cannot be read.
HeapText ReadVersionBlock(const char *name, const Caller &trace) {
  DWORD handle = 0;
  const DWORD size = platform::GetFileVersionInfoSizeA(name, &handle);
  if (size == 0) {
    if (platform::GetLastError() != ERROR_RESOURCE_DATA_NOT_FOUND) trace.Failed("GetFileVersionInfoSize", name);
    return nullptr;
  }
  trace.Check("GetFileVersionInfoSize():dwSize=%d\n", size);
  HeapText block = AllocText(size, "pVerInfo", trace);
  if (block == nullptr) return nullptr;
  if (!platform::GetFileVersionInfoA(name, 0, size, block.get())) {
    trace.Failed("GetFileVersionInfo", name);
    return nullptr;
  }
  trace.Check("GetFileVersionInfoSize():ok\n");
  return block;
}

template <SIZE_T kSize>
void FillVersionText(const void *block, const char *name, const WORD *codePage, char (&field)[kSize]) {
  UINT length = 0;
  const char *text = VXRDev_GetFileVersionField(block, name, &length, codePage);
  if (text != nullptr && length != 0) StoreText(field, text, length);
}

// The texts in the first language that the block lists. What is missing leaves its field as it was.
void FillVersionTexts(const void *block, VXR_FILEINFO *facts) {
  void *table = nullptr;
  UINT length = 0;
  WORD codePage[2];  // language, code page
  if (!platform::VerQueryValueA(block, "\\VarFileInfo\\Translation", &table, &length) || length < sizeof codePage) {
    return;
  }
  std::memcpy(codePage, table, sizeof codePage);
  FillVersionText(block, "CompanyName", codePage, facts->CompanyName);
  FillVersionText(block, "FileDescription", codePage, facts->FileDescription);
  FillVersionText(block, "FileVersion", codePage, facts->FileVersion);
  FillVersionText(block, "ProductVersion", codePage, facts->ProductVersion);
  FillVersionText(block, "ProductName", codePage, facts->ProductName);
}

}  // namespace

BOOL VXRDev_GetVXRFileInfo(const char *szFile, const char *szDirectory, const char *szSection,
                           VXR_FILEINFO *pVXRDrvFile) {
  const CallTrace trace = TraceCall();
  if (!Given(szFile, "szFile") || !Given(pVXRDrvFile, "pVXRDrvFile")) return FALSE;
  trace.Check("input file = %s\n", szFile);
  const HeapText name = FullName(szDirectory, szFile, trace);
  if (name == nullptr || !FillAttributes(name.get(), szSection, pVXRDrvFile, trace)) return FALSE;
  const HeapText block = ReadVersionBlock(name.get(), trace);
  if (block == nullptr) return FALSE;
  FillVersionTexts(block.get(), pVXRDrvFile);
  return TRUE;
}

const char *VXRDev_GetFileVersionField(const void *pVerInfo, const char *szField, UINT *length, const WORD *pCodePage) {
  const CallTrace trace = TraceCall();
  *length = 0;
  if (!Given(pVerInfo, "pVerInfo") || !Given(szField, "szField") || !Given(pCodePage, "pCodePage")) return nullptr;
  const SIZE_T size = std::strlen(kVersionBlock) + std::strlen(szField) + kVersionSpare;
  const HeapText name = AllocText(size, "szFieldBlock");
  if (name == nullptr) return nullptr;
  std::snprintf(name.get(), size, "\\StringFileInfo\\%04x%04x\\%s", pCodePage[0], pCodePage[1], szField);
  void *value = nullptr;
  if (!platform::VerQueryValueA(pVerInfo, name.get(), &value, length)) {
    *length = 0;
    return nullptr;
  }
  return static_cast<const char *>(value);
}
