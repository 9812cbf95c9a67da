#include "volume/volume.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "engine/base/status.h"
#include "engine/base/strings.h"
#include "log/log.h"
#include "restore/settings.h"

namespace {

constexpr DWORD kAnyVolume = 0x400;

// Upper-cased first character of the running system's directory, and the directory in `buffer`; NUL when it is unknown.
char SystemDrive(char *buffer, const Caller &trace) {
  const UINT length = platform::GetSystemDirectoryA(buffer, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) {
    trace.Failed("GetSystemDirectory", "None");
    return '\0';
  }
  VXREng_StrUpr(buffer);
  return buffer[0];
}

// Passes `prefix` and the decimal number behind it; one of more than 32 bits becomes the largest. False when either is
// not there, with the number as it was.
bool TakeNumber(const char **text, const char *prefix, DWORD *number) {
  const SIZE_T length = std::strlen(prefix);
  if (std::strncmp(*text, prefix, length) != 0) return false;
  const char *at = *text + length;
  if (*at < '0' || *at > '9') return false;
  uint64_t value = 0;
  for (; *at >= '0' && *at <= '9'; ++at) {
    value = std::min<uint64_t>(value * 10 + static_cast<uint64_t>(*at - '0'), UINT32_MAX);
  }
  *number = static_cast<DWORD>(value);
  *text = at;
  return true;
}

}  // namespace

BOOL VXRVol_LocateVolume([[maybe_unused]] DWORD job, VXR_PARABLOCK *pVXRParaBlock) {
  const CallTrace trace = TraceCall();
  if (pVXRParaBlock == nullptr) {
    trace.Null("pVXRParaBlock");
    return FALSE;
  }
  if (!pVXRParaBlock->bInject) {
    VXREng_StatusMsg(VXR_STATUS_PROGRESS, "Check only, bypass mounting the restored volume...\n");
    return TRUE;
  }
  const char *bootPart = VXRRlm_GetBootPart();
  if (bootPart == nullptr) {
    trace.Failed("VXRRlm_GetBootPart", "None");
    return FALSE;
  }
  // The numbers serve the log alone, so a text of another form is no error.
  DWORD disk = 0, part = 0;
  const DWORD volume = 1;
  const char *rest = bootPart;
  if (TakeNumber(&rest, "\\\\.\\PHYSICALDRIVE", &disk)) TakeNumber(&rest, "\\PARTITION", &part);
  trace.Check("szBootPart=%s:Disk=%d:Part=%d:Vol=%d\n", bootPart, disk, part, volume);
  const char *rootPath = VXRRlm_GetRootPath();
  if (rootPath == nullptr) {
    trace.Failed("VXRRlm_GetRootPath", "None");
    return FALSE;
  }
  trace.Check("szRootPath=%s:chRootDrive=%c\n", rootPath, rootPath[0]);
  return TRUE;
}

DWORD VXRVol_CheckVolumeType(char driveLetter) {
  const CallTrace trace = TraceCall();
  DWORD flags = kAnyVolume;
  const char bootIni[] = {driveLetter, ':', '\\', 'b', 'o', 'o', 't', '.', 'i', 'n', 'i', '\0'};
  WIN32_FIND_DATAA found = {};
  const HANDLE search = platform::FindFirstFileA(bootIni, &found);
  if (search != INVALID_HANDLE_VALUE) {
    trace.Check("volume %c has %s\n", driveLetter, bootIni);
    flags |= kHoldsBootIni;
    platform::FindClose(search);
  }
  const HeapText buffer = AllocText(MAX_PATH, "szBuffer");
  if (buffer != nullptr && driveLetter != '\0' && SystemDrive(buffer.get(), trace) == driveLetter) {
    trace.Check("boot volume %c is system drive=%s\n", driveLetter, buffer.get());
    flags |= kHoldsSystem;
  }
  trace.Fixme("drive=%C:add more volume type check here...\n", driveLetter);
  return flags;
}
