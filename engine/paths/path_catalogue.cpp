#include "engine/paths/path_catalogue.h"

#include <cstring>
#include <iterator>

#include "bmext/load.h"
#include "engine/base/parameters.h"
#include "log/log.h"
#include "restore/settings.h"

namespace {

const char *RunningWindows() { return gpVXRParaBlock->szWindowsPath; }
const char *RunningSystem() { return gpVXRParaBlock->szSystemPath; }

// How a path id is built: the directory, a fixed part behind it, then a backslash and the caller's name.
struct PathRule {
  const char *(*directory)();  // null: no such id
  const char *fixed;
  bool takesName;
  bool restored;  // the drive letter gives way to the one under which the restored volume is reachable
};

constexpr PathRule kPathRules[] = {
    {VXRRlm_GetInfDir, "", true, false},                                     // VXR_DIR_RLMINF
    {VXREng_GetProductPath, "\\vxr.dir\\2k3\\drv", true, false},             // VXR_DIR_VXRDRV
    {VXREng_GetProductPath, "\\profiles.dir\\vxrimport.reg", false, false},  // VXR_FILE_REGIMPORT
    {VXREng_GetProductPath, "\\profiles.dir\\vxrdkpart.txt", false, false},  // VXR_FILE_DKPART
    {nullptr, "", false, false},                                             // 4
    {VXREng_GetProductPath, "", true, false},                                // VXR_DIR_PRODUCT
    {VXRExt_GetWindowsPath, "\\inf", true, true},                            // VXR_DIR_WININF
    {VXRExt_GetSystemPath, "\\drivers", true, true},                         // VXR_DIR_WINDRV
    {VXRExt_GetSystemPath, "\\config", true, true},                          // VXR_DIR_WINCFG
    {VXRExt_GetSystemPath, "", true, true},                                  // VXR_DIR_WINSYS
    {RunningWindows, "\\inf", true, false},                                  // VXR_DIR_WPEINF
    {RunningSystem, "\\drivers", true, false},                               // VXR_DIR_WPEDRV
    {RunningSystem, "", true, false},                                        // VXR_DIR_WPESYS
};
static_assert(std::size(kPathRules) == VXR_STR_SERVICES);

// The parts one behind the other; null without memory, which the caller logs. `*size` gets the bytes asked for.
HeapText Concatenate(const char *const (&parts)[4], SIZE_T *size) {
  *size = 2;  // zero bytes behind the text
  for (const char *part : parts) *size += std::strlen(part);
  HeapText text = AllocTextUnlogged(*size);
  if (text == nullptr) return nullptr;
  char *end = text.get();
  for (const char *part : parts) {
    std::strcpy(end, part);
    end += std::strlen(part);
  }
  return text;
}

HeapText BuildPath(DWORD id, const char *name, SIZE_T *size, const Caller &trace) {
  if (id == VXR_STR_SERVICES) return name == nullptr ? nullptr : Concatenate({name, ".Services", "", ""}, size);
  if (id >= std::size(kPathRules) || kPathRules[id].directory == nullptr) {
    trace.Check("UNKNOWN!\n");
    return nullptr;
  }
  const PathRule &rule = kPathRules[id];
  const char *directory = rule.directory();
  if (directory == nullptr) return nullptr;
  const char drive = VXRRlm_GetRootDrive();
  if (rule.restored && (*directory == '\0' || drive == '\0')) {
    // A drive letter over nothing would name a place in the current directory.
    trace.Error("restored system's directory or drive is empty, set the job's RootPath\n");
    return nullptr;
  }
  const bool named = rule.takesName && name != nullptr;
  HeapText path = Concatenate({directory, rule.fixed, named ? "\\" : "", named ? name : ""}, size);
  if (path != nullptr && rule.restored) path.get()[0] = drive;
  return path;
}

}  // namespace

HeapText VXREng_GetStringAs(DWORD id, const char *name) {
  const CallTrace trace = TraceCall();
  const LeaveLine secondExitLine(trace.name);
  if (gpVXRParaBlock == nullptr) {
    trace.Null("gpVXRParaBlock");
    return nullptr;
  }
  SIZE_T size = 0;
  HeapText path = BuildPath(id, name, &size, trace);
  if (path == nullptr) {
    trace.Log(kError, "CHECK", "AllocHeap(%d bytes) failed for type %d!ec=%d\n", static_cast<DWORD>(size), id,
              platform::GetLastError());
  } else if (id == VXR_DIR_WINCFG) {
    VXRDbg_Log(kCheck, "VXR_DIR_WINCFG:%s:%s\n", path.get(), VXRExt_GetSystemPath());
  }
  return path;
}
