#include "package/restored_system.h"

#include <cstdlib>
#include <cstring>
#include <iterator>

#include "bmext/load.h"
#include "engine/base/parameters.h"
#include "engine/paths/path_catalogue.h"
#include "log/log.h"
#include "package/plan/file_bytes.h"
#include "package/read/driver_store.h"
#include "restore/settings.h"

namespace package {
namespace {

// The language of a system whose hive does not tell.
constexpr WORD kEnglish = 0x0409;

// Windows keeps it as a text of hexadecimal digits.
WORD ReadLanguage(const RegistryEdits &edits, const std::string &controlSet) {
  std::string text;
  if (!ReadText(edits, controlSet + "\\Control\\Nls\\Language", "Default", &text)) return kEnglish;
  const unsigned long language = std::strtoul(text.c_str(), nullptr, 16);
  return language == 0 || language > 0xFFFF ? kEnglish : static_cast<WORD>(language);
}

bool ReadPath(DWORD id, std::string *path) {
  const HeapText text = VXREng_GetStringAs(id, nullptr);
  if (text == nullptr) return false;
  *path = text.get();
  while (path->ends_with('\\')) path->pop_back();
  return true;
}

// As the hive has it; 0 when it does not tell.
DWORD ReadProduct(const RegistryEdits &edits, const std::string &controlSet) {
  constexpr const char *kProducts[] = {"WinNT", "LanmanNT", "ServerNT"};
  std::string text;
  ReadText(edits, controlSet + "\\Control\\ProductOptions", "ProductType", &text);
  for (DWORD i = 0; i < std::size(kProducts); ++i) {
    if (machine::SameName(text, kProducts[i])) return i + 1;
  }
  return 0;
}

// As its kernel has it; 0 without one. An update that only switches on what is there already counts on from it, which
// no INF file asks for.
DWORD ReadBuild() {
  std::string system;
  return ReadPath(VXR_DIR_WINSYS, &system) ? FileVersion(system + "\\ntoskrnl.exe") >> 16 & 0xFFFF : 0;
}

}  // namespace

bool ReadRestoredTarget(const RegistryEdits &edits, const std::string &controlSet, Target *target) {
  const CallTrace trace = TraceCall();
  const VXR_SYSOSINFO *os = VXRExt_GetSysOsInfo();
  if (os == nullptr) {
    trace.Failed("VXRExt_GetSysOsInfo", "None");
    return false;
  }
  target->major = VxrGet32(os->MajorVersion);
  target->minor = VxrGet32(os->MinorVersion);
  const RestoreChoices &choices = VXRRlm_GetChoices();
  target->build = choices.osBuild.value_or(VxrGet32(os->BuildNumber));
  // A job without an extension file names no more than the version.
  if (target->build == 0) target->build = ReadBuild();
  target->architecture = static_cast<WORD>(VxrGet32(os->ProcessorArchitecture));
  target->product = choices.osProduct.value_or(VxrGet32(os->ProductType));
  if (target->product == 0) target->product = ReadProduct(edits, controlSet);
  target->suite = choices.osSuite.value_or(VxrGet32(os->SuiteMask));
  target->language = ReadLanguage(edits, controlSet);
  const char *architecture = ArchitectureName(target->architecture);
  if (!AtLeast(*target, 5, 0) || architecture == nullptr) {
    trace.Error("no drivers are known for a system of version %u.%u and architecture %u, check the extension file\n",
                target->major, target->minor, target->architecture);
    return false;
  }
  trace.Check("%s:%u.%u.%u:product=%u:suite=0x%x:language=0x%04x\n", architecture, target->major, target->minor,
              target->build, target->product, target->suite, target->language);
  return true;
}

bool ReadRestoredPlaces(RestoredPlaces *places) {
  if (!ReadPath(VXR_DIR_WINSYS, &places->system) || !ReadPath(VXR_DIR_WININF, &places->inf)) return false;
  places->windows = places->inf.substr(0, places->inf.size() - std::strlen("\\inf"));
  places->root = places->windows.substr(0, 2);
  return true;
}

IncludePlaces RestoredIncludes(const RestoredPlaces &places) { return {places.inf, FileRepository(places.system)}; }

std::string RestoredControlSet() { return ControlSetName(gpVXRParaBlock->dwCtrlSetIndex); }

}  // namespace package
