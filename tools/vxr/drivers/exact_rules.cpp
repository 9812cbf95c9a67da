#include "tools/vxr/drivers/exact_rules.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>

#include "platform/text/ansi_case.h"
#include "platform/text/code_page.h"
#include "tools/vxr/base/host_file.h"
#include "tools/vxr/base/machine_session.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/base/refusal_text.h"
#include "tools/vxr/drivers/search_machine.h"
#include "vxrcore/bmext.h"
#include "vxrcore/machine.h"

namespace {

constexpr std::uint32_t kJob = 1;

// What the narrow reading says, in the words of VXRDRV_CANDIDATE.
const char *ReasonWord(std::uint32_t reason) {
  switch (reason) {
    case VXRMACHINE_REFUSED_NO_SECTION:
    case VXRMACHINE_REFUSED_COPY_SECTION:
    case VXRMACHINE_REFUSED_SERVICE_SECTION:
      return "section-missing";
    case VXRMACHINE_REFUSED_DIRECTIVE:
    case VXRMACHINE_REFUSED_EMPTY_DIRECTIVE:
    case VXRMACHINE_REFUSED_BARE_LINE:
      return "directive";
    case VXRMACHINE_REFUSED_FILE_NAME:
    case VXRMACHINE_REFUSED_FILE_MISSING:
      return "file-missing";
    case VXRMACHINE_REFUSED_NO_SERVICE:
    case VXRMACHINE_REFUSED_SERVICE_VALUE:
      return "no-binary";
    default:
      return "decoration";
  }
}

// What a check of one id in one file found.
struct Attempt {
  bool taken = false;
  std::uint32_t reason = 0;
  std::string detail, description;
};

void OnAttemptEvent(void *context, const VXRMachine_Event *event) {
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
  VXRMachine_SetObserver(OnAttemptEvent, &attempt);
  attempt.taken = VXREng_RunVXR(kJob, 0, image, nullptr) == VXR_RESULT_SUCCESS;
  VXRMachine_SetObserver(nullptr, nullptr);
  return attempt;
}

void Take(const std::string &id, const Attempt &attempt, DriverRow *row) {
  row->id = id;
  row->description = attempt.description;
  row->reason.clear();
  row->reasonText.clear();
}

// Which system it is that the file is not for, the target or the one that the search is made on, is the same here.
std::string ReasonText(const DriversOptions &options, const Attempt &attempt) {
  if (attempt.reason <= VXRMACHINE_REFUSED_RESTORED_SYSTEM) {
    return "The narrow reading finds the device in no section for this system.";
  }
  if (attempt.reason == VXRMACHINE_REFUSED_FILE_MISSING) {
    return "The file " + GivenPath(Given(options), attempt.detail) + " is missing.";
  }
  return Sentence(RefusalText(attempt.reason, attempt.detail));
}

void Refuse(const DriversOptions &options, const Attempt &attempt, DriverRow *row) {
  row->reason = ReasonWord(attempt.reason);
  row->reasonText = ReasonText(options, attempt);
}

// A run reads no folders below the directory.
bool InFolderBelow(const std::string &machinePath) { return machinePath.find('\\', 3) != std::string::npos; }

// Leaves the files of the directories themselves.
void LeaveTop(const DriversOptions &options, DriverList *list) {
  std::erase_if(list->rows, [](const DriverRow &row) { return InFolderBelow(row.machinePath); });
  std::erase_if(list->unread, [](const UnreadRow &row) { return InFolderBelow(row.machinePath); });
  const std::uint32_t all = list->files;
  list->files = 0;
  for (const std::string &directory : options.directories) {
    std::error_code error;
    for (std::filesystem::directory_iterator at(HostFile(directory), error), end; !error && at != end;
         at.increment(error)) {
      const bool file = std::filesystem::is_regular_file(at->status(error));
      if (file && machine::SameUtf8(HostName(at->path().extension()), ".inf")) ++list->files;
    }
  }
  for (const UnreadRow &row : list->unread) {
    std::error_code error;
    if (std::filesystem::is_regular_file(HostFile(row.inf), error)) --list->files;
  }
  list->below = all - list->files;
}

std::size_t IdPlace(const std::vector<std::string> &ids, const std::string &id) {
  return static_cast<std::size_t>(
      std::find_if(ids.begin(), ids.end(), [&](const auto &other) { return machine::SameUtf8(other, id); }) -
      ids.begin());
}

// Windows' rules may look at other sections of the file: where none of its rows can be taken, its first row stands for
// the id that can.
void TryOtherIds(const std::vector<std::string> &ids, VXR_EXTIMAGE *image, std::vector<DriverRow> *rows) {
  std::map<std::string, std::vector<DriverRow *>> files;
  for (DriverRow &row : *rows) files[row.machinePath].push_back(&row);
  for (const auto &[path, of] : files) {
    const auto taken = [](const DriverRow *row) { return row->reason.empty(); };
    if (std::any_of(of.begin(), of.end(), taken)) continue;
    for (const std::string &id : ids) {
      const Attempt attempt = TryId(path, id, image);
      if (!attempt.taken) continue;
      Take(id, attempt, of.front());
      break;
    }
  }
}

}  // namespace

void ReadExactly(const DriverQuery &query, DriverList *list) {
  std::vector<std::string> ids = query.hardwareIds;
  ids.insert(ids.end(), query.compatibleIds.begin(), query.compatibleIds.end());
  VXR_EXTIMAGE image;
  DescribeTarget(query.target, &image);
  LeaveTop(*query.options, list);
  std::vector<DriverRow> &rows = list->rows;
  for (DriverRow &row : rows) {
    const Attempt attempt = TryId(row.machinePath, row.id, &image);
    if (attempt.taken) {
      Take(row.id, attempt, &row);
    } else {
      Refuse(*query.options, attempt, &row);
    }
  }
  TryOtherIds(ids, &image, &rows);
  std::stable_sort(rows.begin(), rows.end(), [&](const DriverRow &a, const DriverRow &b) {
    const auto order = [&](const DriverRow &row) {
      return std::tuple(!row.reason.empty(), IdPlace(ids, row.id), machine::FoldAnsiName(row.machinePath));
    };
    return order(a) < order(b);
  });
}
