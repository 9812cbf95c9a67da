#include "bmext/load.h"

#include <cstring>
#include <utility>

#include "engine/base/files.h"
#include "engine/base/parameters.h"
#include "engine/base/status.h"
#include "log/heap.h"
#include "log/log.h"
#include "log/record_dump.h"
#include "registry/values.h"

namespace {

constexpr char kSystemFolder[] = "\\system32";

VXR_BMEXTNSON *currentExtension = nullptr;
HeapPtr<VXR_FILEMAP> currentMapping;
HeapPtr<VXR_EXTIMAGE> blankImage;  // until the next load, or the end of the process

// The current extension's paths with a terminator of our own. An image from outside may lack one, and other programs
// may write to a mapped file or to a host's image after any check.
char systemPath[sizeof(VXR_SYSINFO::SystemPath) + 1];
char windowsPath[sizeof(VXR_SYSINFO::WindowsPath) + 1];

// A value of the job's key; null when it is missing, or when there is no job.
HeapText ReadJobValue(const char *value, DWORD *size) {
  DWORD type = 0;
  *size = 0;
  const char *jobKey = VXREng_GetJobKey();
  return jobKey == nullptr ? nullptr : VXRReg_GetRegistryValue(HKEY_LOCAL_MACHINE, jobKey, value, &type, size);
}

// An empty value overrides nothing.
HeapText ReadOverride(const char *value) {
  DWORD size = 0;
  HeapText data = ReadJobValue(value, &size);
  return size == 0 ? nullptr : std::move(data);
}

// The value's first byte, whatever its type.
void OverrideNumber(const char *value, VXR_LE32 *field) {
  const HeapText data = ReadOverride(value);
  if (data != nullptr) *field = VxrPut32(static_cast<BYTE>(*data));
}

// Fills an empty path with the root and what stands below it; leaves it empty when that does not fit.
void FillPath(char (&field)[MAX_PATH], const char *root, const char *below, const Caller &trace) {
  if (field[0] != '\0') return;
  const SIZE_T rootLength = std::strlen(root);
  const SIZE_T belowLength = std::strlen(below);
  if (rootLength + belowLength >= sizeof(field)) {
    trace.Error("RootPath of %u characters does not fit the extension's %u, shorten it in the job:%s%s\n",
                static_cast<DWORD>(rootLength), static_cast<DWORD>(sizeof(field) - 1), root, below);
    return;
  }
  std::memset(field, 0, sizeof(field));
  std::memcpy(field, root, rootLength);
  std::memcpy(field + rootLength, below, belowLength);
}

void ApplyOverrides(VXR_SYSINFO *info, const Caller &trace) {
  OverrideNumber("HAL", &info->SysOs.ProcessorArchitecture);
  OverrideNumber("OSVerMaj", &info->SysOs.MajorVersion);
  OverrideNumber("OSVerMin", &info->SysOs.MinorVersion);
  const HeapText root = ReadOverride("RootPath");
  if (root == nullptr) return;
  FillPath(info->SystemPath, root.get(), kSystemFolder, trace);
  FillPath(info->WindowsPath, root.get(), "", trace);
}

VXR_EXTIMAGE *MakeBlankImage(const Caller &trace) {
  blankImage.reset(reinterpret_cast<VXR_EXTIMAGE *>(AllocTextUnlogged(sizeof(VXR_EXTIMAGE)).release()));
  if (blankImage == nullptr) trace.Error("Allocating memory for pMBEHead failed!\n");
  return blankImage.get();
}

// Maps the file into the current mapping; null when it cannot be, or is too short to be read as an extension.
VXR_EXTIMAGE *MapImage(const char *path, const Caller &trace) {
  trace.Check("szBMExtFile=%s\n", path);
  currentMapping = VXREng_MapFile(path);
  if (currentMapping == nullptr) {
    trace.Failed("VXREng_MapFile", path);
    return nullptr;
  }
  trace.Check("file mapped ok as %s\n", currentMapping->Name);
  if (currentMapping->Size < sizeof(VXR_EXTIMAGE)) {
    trace.Error("%s has %u bytes, an extension file has %u, take it from the backup again\n", path,
                currentMapping->Size, VXR_EXT_FILE_SIZE);
    return nullptr;
  }
  return static_cast<VXR_EXTIMAGE *>(currentMapping->Start);
}

// A host's image or a file's, with a good magic; null otherwise.
VXR_EXTIMAGE *CheckedImage(VXR_EXTIMAGE *image, const Caller &trace) {
  if (image == nullptr) return nullptr;
  if (VXRExt_CheckHeader(&image->Header)) return image;
  trace.Failed("VXRExt_CheckHeader", "None");
  return nullptr;
}

// The image to use, checked unless it is the blank one; null on failure.
VXR_EXTIMAGE *FindImage(void *header, const Caller &trace) {
  if (header != nullptr) {
    trace.Check("input bme head addr=0x%08X\n", LowHalf(header));
    return CheckedImage(static_cast<VXR_EXTIMAGE *>(header), trace);
  }
  DWORD size = 0;
  const HeapText path = ReadJobValue("BMEFile", &size);
  if (path != nullptr) return CheckedImage(MapImage(path.get(), trace), trace);
  trace.Error("VXRReg_GetRegistryValue(%s) failed!\n", "BMEFile");
  return MakeBlankImage(trace);
}

void ReleaseMapping() {
  if (currentMapping == nullptr) return;
  VXREng_UnmapFile(currentMapping.get());
  currentMapping.reset();
}

}  // namespace

BOOL VXRExt_Initialize([[maybe_unused]] DWORD job, void *header) {
  const CallTrace trace = TraceCall();
  VXRExt_Cleanup();
  currentExtension = nullptr;
  blankImage.reset();
  VXR_EXTIMAGE *image = FindImage(header, trace);
  if (image == nullptr) {
    ReleaseMapping();
    return FALSE;
  }
  currentExtension = &image->Extension;
  VXR_SYSINFO *info = &image->Extension.SysInfo;
  ApplyOverrides(info, trace);
  std::memcpy(systemPath, info->SystemPath, sizeof(info->SystemPath));
  std::memcpy(windowsPath, info->WindowsPath, sizeof(info->WindowsPath));
  VXRDbg_Log(kCheck, "DLC:System Path==>%s<==   WindowsPath==>%s<==\n", systemPath, windowsPath);
  trace.Check("initialized ok:ExtHead=%p:Extnson=%p\n", &image->Header, currentExtension);
  VXREng_StatusMsg(VXR_STATUS_PROGRESS, "Found Bare Metal extension with Magic = 0x%08x Version = 0x%08x\n",
                   VxrGet32(image->Header.Magic), VxrGet32(image->Header.Version));
  return TRUE;
}

BOOL VXRExt_CheckHeader(const VXR_EXTHEADER *header) {
  const CallTrace trace = TraceCall();
  if (header == nullptr) {
    trace.Null("pBMEHead");
    return FALSE;
  }
  const DWORD magic = VxrGet32(header->Magic);
  if (magic != VXR_EXT_MAGIC_COLD && magic != VXR_EXT_MAGIC_HOT) {
    trace.Error("wrong bme head magic = 0x%08X:CBM=0x%08x HBM=9x%08x!\n", magic, VXR_EXT_MAGIC_COLD, VXR_EXT_MAGIC_HOT);
    return FALSE;
  }
  VXRDbg_DumpExtHeader(header, trace.name);
  return TRUE;
}

BOOL VXRExt_Cleanup() {
  const CallTrace trace = TraceCall();
  if (currentExtension != nullptr && currentMapping != nullptr) {
    ReleaseMapping();
    currentExtension = nullptr;
  }
  return TRUE;
}

const VXR_SYSOSINFO *VXRExt_GetSysOsInfo() {
  return currentExtension == nullptr ? nullptr : &currentExtension->SysInfo.SysOs;
}

const char *VXRExt_GetSystemPath() { return currentExtension == nullptr ? nullptr : systemPath; }

const char *VXRExt_GetWindowsPath() { return currentExtension == nullptr ? nullptr : windowsPath; }

DWORD VXRExt_GetBootMedia() {
  return currentExtension == nullptr ? DWORD{VXR_BOOTMEDIA_UNKNOWN} : VxrGet32(currentExtension->SysInfo.BootMedia);
}
