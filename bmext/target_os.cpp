#include "bmext/target_os.h"

#include <cstdio>
#include <cstring>

#include "bmext/load.h"
#include "log/dump.h"
#include "log/log.h"

namespace {

constexpr SIZE_T kEntrySize = sizeof("NTamd64.05.01.0x12345678.0x12345678");
constexpr DWORD kMaximumEntries = 11;  // the closing one included
constexpr DWORD kLowestMajorVersion = 5;

struct Target {
  const char *architecture;
  unsigned major, minor, product, suite;
};

// Null for an architecture that no driver is looked for.
const char *ArchitectureName(DWORD code) {
  switch (code) {
    case 0:
      return "x86";
    case 6:
      return "ia64";
    case 9:
      return "amd64";
    default:
      return nullptr;
  }
}

// Reads the record into `target`; FALSE, after logging, when its system is not supported.
BOOL ReadTarget(Target *target, const Caller &trace) {
  const VXR_SYSOSINFO *os = VXRExt_GetSysOsInfo();
  if (os == nullptr) {
    trace.Failed("VXRExt_GetSysOsInfo", "None");
    return FALSE;
  }
  target->major = VxrGet32(os->MajorVersion);
  target->minor = VxrGet32(os->MinorVersion);
  target->product = VxrGet32(os->ProductType);
  target->suite = VxrGet32(os->SuiteMask);
  if (target->major < kLowestMajorVersion) {
    trace.Log(2, "WARNG", "major version:0x%x too low to support target os!\n", target->major);
    return FALSE;
  }
  const DWORD code = VxrGet32(os->ProcessorArchitecture);
  target->architecture = ArchitectureName(code);
  if (target->architecture == nullptr) {
    trace.Error("unknwon processor arch type= %u\n", code);
    return FALSE;
  }
  return TRUE;
}

// Formats decoration `number` (0 the most specific) into `entry`; the length it needs, as snprintf gives it.
int FormatDecoration(int number, const Target &t, char *entry) {
  // Each depth twice: for the architecture, then for any.
  const char *architecture = number % 2 == 0 ? t.architecture : "";
  switch (number / 2) {
    case 0:
      return std::snprintf(entry, kEntrySize, "nt%s.%u.%u.0x%x.0x%x", architecture, t.major, t.minor, t.product,
                           t.suite);
    case 1:
      return std::snprintf(entry, kEntrySize, "nt%s.%u.%u.0x%x", architecture, t.major, t.minor, t.product);
    case 2:
      return std::snprintf(entry, kEntrySize, "nt%s.%u.%u", architecture, t.major, t.minor);
    case 3:
      return std::snprintf(entry, kEntrySize, "nt%s.%u", architecture, t.major);
    default:
      return std::snprintf(entry, kEntrySize, "nt%s", architecture);
  }
}

// Appends the ten decorations to the zero-filled list. FALSE, after logging, when one does not fit an entry: a cut one
// would name another system's sections.
BOOL AppendDecorations(const Target &target, char *entry, char *list, const Caller &trace) {
  for (int number = 0; number < 10; ++number) {
    const int length = FormatDecoration(number, target, entry);
    if (length < 0 || static_cast<SIZE_T>(length) >= kEntrySize) {
      trace.Error("version numbers too large for a decoration, extension is damaged:%s...\n", entry);
      return FALSE;
    }
    VXRDbg_Log(0, "CHECK:MultiStrCat:append %s(%p) to %s(%p)\n", entry, entry, list, list);
    std::memcpy(list, entry, static_cast<SIZE_T>(length));
    list += length + 1;
  }
  return TRUE;
}

}  // namespace

HeapText VXRExt_GetTargetOS() {
  const CallTrace trace = TraceCall();
  Target target = {};
  if (!ReadTarget(&target, trace)) return nullptr;
  const HeapText entry = AllocText(kEntrySize, "szTgtOs");
  if (entry == nullptr) return nullptr;
  HeapText list = AllocText((kEntrySize + 1) * kMaximumEntries, "szTgtOss");
  if (list == nullptr || !AppendDecorations(target, entry.get(), list.get(), trace)) return nullptr;
  VXRDbg_DumpMultiString(list.get(), trace.name, kMaximumEntries);
  return list;
}
