#include "tools/vxr/drivers/exact_rules.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "platform/text/ansi_case.h"
#include "platform/text/code_page.h"
#include "tools/vxr/base/machine_session.h"
#include "tools/vxr/drivers/search_machine.h"
#include "vxrcore/bmext.h"
#include "vxrcore/machine.h"

namespace {

constexpr std::uint32_t kJob = 1;

struct Reason {
  const char *word, *text;
};

// By VXRMACHINE_REFUSED_...; %s is what the reason is about.
const std::map<std::uint32_t, Reason> kReasons = {
    {VXRMACHINE_REFUSED_RESTORED_SYSTEM, {"decoration", "lists the id in no section for this system"}},
    {VXRMACHINE_REFUSED_NO_SECTION, {"section-missing", "its install section is not there or empty: "}},
    {VXRMACHINE_REFUSED_DIRECTIVE, {"directive", "its install section has a directive that is not known: "}},
    {VXRMACHINE_REFUSED_EMPTY_DIRECTIVE, {"directive", "its install section has a directive without a value: "}},
    {VXRMACHINE_REFUSED_BARE_LINE, {"directive", "the last line of its install section is no directive: "}},
    {VXRMACHINE_REFUSED_COPY_SECTION, {"section-missing", "a list of files is not there or empty: "}},
    {VXRMACHINE_REFUSED_FILE_NAME, {"file-missing", "names more than a plain file: "}},
    {VXRMACHINE_REFUSED_FILE_MISSING, {"file-missing", "a file that it names is not there: "}},
    {VXRMACHINE_REFUSED_NO_SERVICE, {"no-binary", "names no service: "}},
    {VXRMACHINE_REFUSED_SERVICE_SECTION, {"section-missing", "its service's section is not there or empty: "}},
    {VXRMACHINE_REFUSED_SERVICE_VALUE, {"no-binary", "its service's section cannot be read"}},
};
const Reason kOtherReason = {"decoration", "the narrow reading finds no driver for the id in it"};

// What a check of one id in one file found.
struct Attempt {
  bool taken = false;
  std::uint32_t reason = 0;
  std::string detail, description;
};

void OnEvent(void *context, const VXRMachine_Event *event) {
  Attempt *attempt = static_cast<Attempt *>(context);
  if (event->kind == VXRMACHINE_INF_REFUSED && event->type >= attempt->reason) {
    attempt->reason = event->type;
    attempt->detail = MachineText(event->detail);
  } else if (event->kind == VXRMACHINE_DRIVER_TAKEN) {
    attempt->description = MachineText(event->subject);
  }
}

// The extension of a system of that version.
void DescribeTarget(const VXRDRV_TARGET &target, VXR_EXTIMAGE *image) {
  std::memset(image, 0, sizeof *image);
  image->Header.Magic = VxrPut32(VXR_EXT_MAGIC_HOT);
  image->Header.Version = VxrPut32(VXR_EXT_VERSION);
  VXR_SYSINFO &system = image->Extension.SysInfo;
  std::strcpy(system.WindowsPath, "C:\\Windows");
  std::strcpy(system.SystemPath, "C:\\Windows\\System32");
  system.SysOs.MajorVersion = VxrPut32(target.major);
  system.SysOs.MinorVersion = VxrPut32(target.minor);
  system.SysOs.BuildNumber = VxrPut32(target.build);
  system.SysOs.SuiteMask = VxrPut32(target.suite);
  system.SysOs.ProductType = VxrPut32(target.product);
  system.SysOs.ProcessorArchitecture = VxrPut32(target.architecture);
}

Attempt TryId(const std::string &inf, const std::string &id, VXR_EXTIMAGE *image) {
  Attempt attempt;
  const std::string ansiId = machine::Utf8ToAnsi(id, VXRMachine_CodePage());
  VXRMachine_SetValue(kSearchJobKey, "InfDir", inf.c_str());
  VXRMachine_SetValue(kSearchJobKey, "HardwareID", ansiId.c_str());
  VXRMachine_SetObserver(OnEvent, &attempt);
  attempt.taken = VXREng_RunVXR(kJob, 0, image, nullptr) == VXR_RESULT_SUCCESS;
  VXRMachine_SetObserver(nullptr, nullptr);
  return attempt;
}

void Refuse(const Attempt &attempt, DriverRow *row) {
  const auto known = kReasons.find(attempt.reason);
  const Reason &reason = known != kReasons.end() ? known->second : kOtherReason;
  row->reason = reason.word;
  row->reasonText = reason.text + attempt.detail;
}

// A run reads no folders below the directory.
bool InFolderBelow(const DriverRow &row) { return row.machinePath.find('\\', 3) != std::string::npos; }

std::size_t IdPlace(const std::vector<std::string> &ids, const DriverRow &row) {
  return static_cast<std::size_t>(
      std::find_if(ids.begin(), ids.end(), [&](const auto &id) { return machine::SameUtf8(id, row.id); }) -
      ids.begin());
}

}  // namespace

void ReadExactly(const DriverQuery &query, DriverList *list) {
  std::vector<std::string> ids = query.hardwareIds;
  ids.insert(ids.end(), query.compatibleIds.begin(), query.compatibleIds.end());
  VXR_EXTIMAGE image;
  DescribeTarget(query.target, &image);
  std::vector<DriverRow> &rows = list->rows;
  std::erase_if(rows, InFolderBelow);
  for (DriverRow &row : rows) {
    row.reason.clear();
    row.reasonText.clear();
    const Attempt attempt = TryId(row.machinePath, row.id, &image);
    if (!attempt.taken) Refuse(attempt, &row);
  }
  std::stable_sort(rows.begin(), rows.end(), [&](const DriverRow &a, const DriverRow &b) {
    const auto order = [&](const DriverRow &row) {
      return std::tuple(!row.reason.empty(), IdPlace(ids, row), machine::FoldAnsiName(row.machinePath));
    };
    return order(a) < order(b);
  });
}
