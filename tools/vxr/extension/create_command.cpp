#include "tools/vxr/extension/create_command.h"

#include <array>

#include "tools/vxr/base/host_file.h"
#include "tools/vxr/base/machine_session.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/base/program.h"
#include "tools/vxr/extension/create_arguments.h"
#include "tools/vxr/extension/create_record.h"
#include "tools/vxr/extension/extension_file.h"
#include "vxrcore/vxrcore.h"

namespace {

constexpr int kExitFailed = 9;  // as the library's result

struct Creation {
  std::uint32_t code = 0;
  unsigned codePage = 0;
  std::string hostPath;  // of the extension file
  CreateRecord record;
};

void OnCreateEvent(void *context, const VXRMachine_Event *event) {
  AddEvent(&static_cast<Creation *>(context)->record, *event);
}

const char *NullIfEmpty(const std::string &text) { return text.empty() ? nullptr : text.c_str(); }

void RecordOpenMachine(const CreateOptions &options, Creation *outcome) {
  const std::string file = MachinePath(options.extension);
  const std::string includes = MachinePath(options.includes), map = MachinePath(options.map);
  outcome->code = VXREng_CreateBMExtFile(file.c_str(), NullIfEmpty(includes), NullIfEmpty(map));
  outcome->codePage = VXRMachine_CodePage();
}

// Opens, records, closes. False, with a message, when the machine or the arguments cannot be used.
bool RecordMachine(const CreateOptions &options, Creation *outcome) {
  if (!OpenMachine(options.machine, OnCreateEvent, outcome)) return false;
  if (!PathInCodePage(options.extension) || !PathInCodePage(options.includes) || !PathInCodePage(options.map)) {
    CloseMachine();
    return false;
  }
  outcome->hostPath = HostPath(options.extension);
  const std::string refusal = RefuseArguments(options);
  if (refusal.empty()) {
    RecordOpenMachine(options, outcome);
  } else {
    PrintError(refusal);
  }
  CloseMachine();
  return refusal.empty();
}

// --- The summary ----------------------------------------------------------------------------------------------------

void PrintVolumes(const VXR_VOLUMES &volumes, unsigned codePage) {
  const std::uint32_t volumeCount = UsableVolumes(volumes);
  PrintLine(volumeCount == 0 ? "Volumes: none" : "Volumes", Style::kBold);
  for (std::uint32_t i = 0; i < volumeCount; ++i) {
    const VXR_VOLUME &volume = volumes.Vols[i];
    const std::uint32_t disks = UsableDisks(volume.VolDisks);
    const std::string count = std::to_string(disks) + (disks == 1 ? " disk" : " disks"), held = HeldText(volumes, i);
    PrintLine("  " + Padded(FieldText(volume.MntPnt, codePage), 4) + Padded(FieldText(volume.Label, codePage), 16) +
              (held.empty() ? count : Padded(count, 9) + held));
  }
}

// A map file that cannot be read is no failure, and neither is one of another machine.
bool NamesNoVolume(const VXR_VOLUMES &volumes, unsigned codePage) {
  for (std::uint32_t i = 0; i < UsableVolumes(volumes); ++i) {
    if (HasBackupName(volumes.Vols[i], codePage)) return false;
  }
  return true;
}

void PrintShortfalls(const char *title, const std::vector<CreateRecord::Shortfall> &shortfalls) {
  if (shortfalls.empty()) return;
  PrintLine(title, Style::kBold);
  for (const CreateRecord::Shortfall &shortfall : shortfalls) {
    const std::string root = shortfall.root.empty() ? "a drive: " : shortfall.root;
    PrintLine("  " + Padded(root, 4) + shortfall.reason, Style::kBad);
  }
}

void PrintSummary(const CreateOptions &options, const Creation &outcome, const VXR_EXTIMAGE &image) {
  const CreateRecord &record = outcome.record;
  const bool hot = VxrGet32(image.Header.Magic) == VXR_EXT_MAGIC_HOT;
  PrintLine(options.extension + ": " + Bytes(sizeof image) +
                (hot ? ", hot: the running system is on a fixed disk"
                     : ", cold: the running system was started from another medium"),
            Style::kGood);
  PrintVolumes(image.Extension.Volumes, outcome.codePage);
  if (!options.map.empty() && NamesNoVolume(image.Extension.Volumes, outcome.codePage)) {
    PrintLine("  None has its name in the backup from " + options.map +
                  ": it is missing, is no regular file, or has no [C] with a DeviceName; check it and record the "
                  "machine again",
              Style::kBad);
  }
  PrintShortfalls("Left out", record.leftOut);
  PrintShortfalls("Recorded without all drivers", record.incomplete);
  if (record.full) PrintLine("Four volumes are recorded, the most that fit: later drives were not looked at");
  if (!options.includes.empty()) PrintLine("Listed in " + options.includes);
  if (!record.logFile.empty() && !record.incomplete.empty()) PrintLine("Log: " + record.logFile);
}

}  // namespace

int CreateCommand(const CreateOptions &options) {
  BeginWork();
  Creation outcome;
  if (!RecordMachine(options, &outcome)) return kExitUsage;
  if (outcome.code != 0) {
    PrintError(ExplainFailure(outcome.record, options.extension, options.includes));
    return static_cast<int>(outcome.code);
  }
  VXR_EXTIMAGE image;
  std::string problem;
  if (!ReadExtensionFile(outcome.hostPath, &image, &problem)) {
    PrintError(options.extension + ": written, but it cannot be read back: " + problem);
    return kExitFailed;
  }
  PrintSummary(options, outcome, image);
  return 0;
}
