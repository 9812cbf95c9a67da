// One device's driver as a list of changes: printed by a verification, made by an injection.
#pragma once

#include <string>
#include <vector>

#include "package/choose/candidates.h"
#include "package/choose/own_drivers.h"
#include "package/read/sources.h"
#include "registry/edits.h"

namespace package {

struct PlannedFile {
  std::string source, target;
  DWORD64 size = 0;
  bool needed = false;  // a service's own; when it cannot be copied, nothing is done
};

struct Plan {
  std::vector<std::string> directories;  // to be made, each after the one above it
  std::vector<PlannedFile> files;
  RegistryEdits edits;
  std::vector<std::string> warnings;  // a sentence each
  std::vector<std::string> notes;
  std::string service;        // empty: none needed
  std::string publishedName;  // see PlanBootRecord
  // Of a package of its own: whether it names a catalogue that is there, and whether the device's driver holds a
  // signature. Neither is verified.
  bool fromPackage = false, hasCatalog = false, signedInside = false;
};

// What a plan is made for.
struct PlanContext {
  Target target;
  RestoredPlaces places;
  std::string systemDrive;       // of `places.root` as the restored system itself will name it; empty: "C:"
  std::string controlSet;        // of the mounted hive, "ControlSet001"
  bool automaticRecord = false;  // the record that the hive needs; false: critical-device entries
  GUID classGuid = {};           // of the device
  DeviceIds device;
  // Of earlier plans that were not carried out and count as made.
  std::vector<PlannedFile> earlierFiles;
  std::vector<std::string> earlierDirectories;
};

// Why a package cannot be put into the restored system.
struct PlanRefusal {
  Refusal kind = Refusal::kNone;  // kNone: it is the hive that could not be read
  std::string text;               // a sentence
};

// Plans a package's driver: files, services, the registry lines that belong in the mounted hive, the boot record.
// `plan->edits` may hold changes of earlier devices, which count as made too. False, with the reason, when a needed
// file is missing, a needed name is not plain, or the hive could not be read (`plan->edits.unread`); the plan is then
// not to be used.
bool PlanPackage(const Candidate &candidate, const Installation &installation, const PlanContext &context, Plan *plan,
                 PlanRefusal *refusal);
// Plans the system's own driver: lets it start, and puts its file in place from the driver store. This and the next
// ones may fail to read the hive; `plan->edits.unread` then tells, and the plan is not to be used.
void PlanOwnDriver(const OwnDriver &driver, const PlanContext &context, Plan *plan);
// Lets the system's own driver start beside a package's, where the restored kernel may prefer it all the same.
void PlanOwnDriverBeside(const OwnDriver &driver, const PlanContext &context, Plan *plan);
// Lets the drivers of the devices above start, where the system holds them back; each with its ids. Warns of one on a
// bus that has none.
void PlanDevicesAbove(const std::vector<DeviceIds> &above, const PlanContext &context, Plan *plan);

}  // namespace package
