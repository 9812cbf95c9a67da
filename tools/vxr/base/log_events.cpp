#include "tools/vxr/base/log_events.h"

#include <charconv>
#include <cstdio>
#include <optional>
#include <string>

#include "tools/vxr/base/choice_lines.h"
#include "vxrcore/vxrcore.h"

// clang-format off
#include "platform/win32/types.h"
// clang-format on

namespace {

struct Fields {
  std::string subject, detail;
  std::uint32_t type = 0;
  std::uint64_t size = 0;
};

void Tell(EventSink sink, std::uint32_t kind, const Fields &fields = {}) {
  sink({kind, fields.type, fields.size, fields.subject.c_str(), fields.detail.c_str(), nullptr});
}

std::string_view WithoutLineEnd(std::string_view line) {
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  return line;
}

bool Holds(std::string_view text, std::string_view part) { return text.find(part) != text.npos; }

// What stands between a fixed beginning and a fixed end; nothing when the line has another form.
std::optional<std::string_view> Between(std::string_view line, std::string_view begin, std::string_view end) {
  if (line.size() < begin.size() + end.size() || !line.starts_with(begin) || !line.ends_with(end)) return std::nullopt;
  return line.substr(begin.size(), line.size() - begin.size() - end.size());
}

// --- Status lines ---------------------------------------------------------------------------------------------------

struct FailureLine {
  std::string_view begin;
  std::uint32_t code;
};

constexpr FailureLine kFailureLines[] = {
    {"Failed to locate driver files for device ", VXR_RESULT_NO_DRIVER},
    {"Failed to load the original registry hive file ", VXR_RESULT_NO_HIVE},
    {"Failed to initialize Vexmorph engine", VXR_RESULT_NO_ENGINE},
    {"Failed to initialize the Bare Metal restore information", VXR_RESULT_NO_SETTINGS},
    {"Failed to initialize the Bare Metal extension information", VXR_RESULT_NO_EXTENSION},
    {"Failed to locate file ", VXR_RESULT_FILE_MISSING},
    {"Failed to copy ", VXR_RESULT_FILE_NOT_COPIED},
    {"Failed to locate the restored system volume", VXR_RESULT_NO_VOLUME},
    {"User cancelled searching for driver files", VXR_RESULT_CANCELLED},
};

std::uint32_t CodeOf(std::string_view line) {
  for (const FailureLine &failure : kFailureLines) {
    if (line.starts_with(failure.begin)) return failure.code;
  }
  return VXR_STATUS_PROGRESS;
}

std::uint64_t SizeOf(const std::string &file) {
  WIN32_FILE_ATTRIBUTE_DATA data = {};
  GetFileAttributesExA(file.c_str(), GetFileExInfoStandard, &data);
  return static_cast<std::uint64_t>(data.nFileSizeHigh) << 32 | data.nFileSizeLow;
}

// "<source> -> <target>", as the target and its source.
std::optional<Fields> Copy(std::optional<std::string_view> paths) {
  constexpr std::string_view kArrow = " -> ";
  const std::size_t arrow = paths ? paths->find(kArrow) : std::string_view::npos;
  if (arrow == std::string_view::npos) return std::nullopt;
  return Fields{std::string(paths->substr(arrow + kArrow.size())), std::string(paths->substr(0, arrow)), 0, 0};
}

void TellCopies(std::string_view line, EventSink sink) {
  if (auto copied = Copy(Between(line, "Successfully copied ", "..."))) {
    copied->size = SizeOf(copied->subject);
    Tell(sink, VXRMACHINE_FILE_COPIED, *copied);
  }
  if (const auto bypassed = Copy(Between(line, "Check only, bypassed copying ", "..."))) {
    Tell(sink, VXRMACHINE_COPY_BYPASSED, *bypassed);
  }
}

void TellDevices(std::string_view line, EventSink sink) {
  constexpr std::string_view kFor = " for ";
  const auto tell = [&](std::uint32_t kind, std::optional<std::string_view> subject) {
    if (subject) Tell(sink, kind, {std::string(*subject), "", 0, 0});
  };
  tell(VXRMACHINE_DEVICE_CHECKED, Between(line, "Checking device with id ", "..."));
  tell(VXRMACHINE_DIRECTORY_SEARCHED, Between(line, "Looking for driver information in ", "..."));
  tell(VXRMACHINE_DEVICE_SET_UP, Between(line, "Successful in driver files injection for ", "..."));
  tell(VXRMACHINE_DEVICE_SET_UP, Between(line, "Successful in driver files verification for ", "..."));
  if (const auto failed = Between(line, "Failed to locate driver files for device ", "")) {
    const std::string instance(*failed);
    sink({VXRMACHINE_DEVICE_FAILED, 0, 0, instance == "N/A" ? nullptr : instance.c_str(), nullptr, nullptr});
  }
  if (const auto processed = Between(line, "Successfully processed ", "...")) {
    const std::size_t end = processed->rfind(kFor);
    if (end == processed->npos) return;
    const std::string inf(processed->substr(0, end)), instance(processed->substr(end + kFor.size()));
    Tell(sink, VXRMACHINE_INF_PROCESSED, {inf, instance, 0, 0});
  }
}

// --- Errors in the log ----------------------------------------------------------------------------------------------

struct ErrorLine {
  std::string function, text, call;
  std::uint32_t code = 0;
};

ErrorLine ReadErrorLine(std::string_view line) {
  constexpr std::string_view kFailed = "():failed!ec=", kHeapCall = "AllocHeap";
  const std::size_t colon = line.find(':');
  if (colon == line.npos) return {"", std::string(line), "", 0};
  const std::string_view text = line.substr(colon + 1);
  ErrorLine error = {std::string(line.substr(0, colon)), std::string(text), "", 0};
  const std::size_t failed = text.find(kFailed);
  if (failed != text.npos) {
    error.call = text.substr(0, failed);
    const std::string_view number = text.substr(failed + kFailed.size());
    std::from_chars(number.data(), number.data() + number.size(), error.code);
  } else if (text.starts_with(kHeapCall)) {
    error.call = kHeapCall;
    error.code = ERROR_NOT_ENOUGH_MEMORY;
  }
  return error;
}

// What an error of a restore run means.
void TellRunError(const ErrorLine &error, EventSink sink) {
  const auto is = [&](std::string_view function, std::string_view call) {
    return error.function == function && error.call == call;
  };
  if (Holds(error.text, "\\HardwareID) failed")) {
    Tell(sink, VXRMACHINE_VALUE_NOT_READ, {"", "HardwareID", 0, 0});
    // The job's own, not the computer's.
    const bool unread = Holds(error.text, "\\Relmar\\") && !Holds(error.text, "rc=2 ");
    if (unread) Tell(sink, VXRMACHINE_NAMED_ID_UNREAD);
  }
  if (Holds(error.text, ") failed!create it...")) Tell(sink, VXRMACHINE_KEY_MISSING);
  if (error.function == "VXRDev_ProcessModSect") Tell(sink, VXRMACHINE_MODEL_GIVEN_UP);
  if (is("VXRDev_GetDriverInfDirs", "VXRDev_PostGetDriver")) {
    Tell(sink, VXRMACHINE_INF_REFUSED, {"", "", VXRMACHINE_REFUSED_NOT_REGISTERED, 0});
  }
  if (is("VXREng_RunVXR", "VXRReg_UnloadHive")) Tell(sink, VXRMACHINE_HIVE_NOT_UNLOADED, {"", "", error.code, 0});
  if (is("VXRDev_ScanDiskDevices", "VXRRlm_GetBootDisk") || is("VXRDev_ScanDiskDevices", "VXRDev_GetDiskInstanceID")) {
    Tell(sink, VXRMACHINE_BOOT_DISK_NOT_FOUND);
  }
}

// What one of a recording or a boot-sector repair means.
void TellOtherError(const ErrorLine &error, EventSink sink) {
  constexpr std::string_view kMessage = ":msg=";
  if (error.function == "VXRExt_BuildVXRVolumesHBM" && error.call == "VXRExt_BuildVXRVolumeHBM") {
    Tell(sink, VXRMACHINE_VOLUME_LEFT_OUT);
  }
  if (error.function == "VXRExt_BuildVXRVolumesHBM" && error.text.starts_with("max ")) {
    Tell(sink, VXRMACHINE_VOLUMES_FULL);
  }
  if (error.function == "VXRExt_BuildVXRVolDisk" && error.call == "VXRDev_GetVXRDevDriver") {
    const std::size_t at = error.text.find(kMessage);
    const std::string device = at == error.text.npos ? "" : error.text.substr(at + kMessage.size());
    Tell(sink, VXRMACHINE_DEVICE_WITHOUT_DRIVER, {device, "", 0, 0});
  } else if (error.function == "VXRExt_BuildVXRVolDisk") {
    Tell(sink, VXRMACHINE_DISK_NOT_PRESENT);
  }
  if (error.function != "VXREng_FixBootVolume") return;
  if (Holds(error.text, "DiskGeo.BytesPerSector"))
    Tell(sink, VXRMACHINE_BOOT_REFUSED, {"", "", VXRMACHINE_BOOT_BYTES, 0});
  if (Holds(error.text, "rel_sect =0")) Tell(sink, VXRMACHINE_BOOT_REFUSED, {"", "", VXRMACHINE_BOOT_FIRST, 0});
}

void TellError(std::string_view line, EventSink sink) {
  const ErrorLine error = ReadErrorLine(line);
  sink({VXRMACHINE_ERROR_LOGGED, error.code, 0, error.function.c_str(), error.text.c_str(),
        error.call.empty() ? nullptr : error.call.c_str()});
  TellRunError(error, sink);
  TellOtherError(error, sink);
}

// --- The boot-sector repair -----------------------------------------------------------------------------------------

void TellFact(EventSink sink, std::uint32_t fact, std::uint64_t value) {
  Tell(sink, VXRMACHINE_BOOT_FACT, {"", "", fact, value});
}

void TellBootFacts(const std::string &line, EventSink sink) {
  unsigned long long cylinders = 0;
  unsigned a = 0, b = 0, c = 0, d = 0;
  if (std::sscanf(line.c_str(),
                  "IOCTL_DISK_GET_DRIVE_GEOMETRY: Cylinder =%llu (%*x) Tracks =%u (%*x) Sectors =%u (%*x) Bytes =%u",
                  &cylinders, &a, &b, &c) == 4) {
    TellFact(sink, VXRMACHINE_BOOT_CYLINDERS, cylinders);
    TellFact(sink, VXRMACHINE_BOOT_HEADS, a);
    TellFact(sink, VXRMACHINE_BOOT_SECTORS, b);
    TellFact(sink, VXRMACHINE_BOOT_BYTES, c);
  }
  if (std::sscanf(line.c_str(), "Active partitin found:Index=%u:Type=%x:SecTotal=%u:SecRelative=%u", &a, &b, &c, &d) ==
      4) {
    TellFact(sink, VXRMACHINE_BOOT_ENTRY, a);
    TellFact(sink, VXRMACHINE_BOOT_TYPE, b);
    TellFact(sink, VXRMACHINE_BOOT_LENGTH, c);
    TellFact(sink, VXRMACHINE_BOOT_FIRST, d);
  }
  if (std::sscanf(line.c_str(),
                  "Boot Volume BPB: SectorsPerTrack =%u TracksPerCylinder=%u HiddenSectors =%u TotalSectors =%u", &a,
                  &b, &c, &d) == 4) {
    TellFact(sink, VXRMACHINE_BOOT_FIELD_SECTORS, a);
    TellFact(sink, VXRMACHINE_BOOT_FIELD_HEADS, b);
    TellFact(sink, VXRMACHINE_BOOT_FIELD_HIDDEN, c);
    TellFact(sink, VXRMACHINE_BOOT_FIELD_TOTAL, d);
  }
}

void TellSetField(std::string_view line, EventSink sink) {
  constexpr struct {
    std::string_view name;
    std::uint32_t field;
  } kFields[] = {{"BPB.SecsPerTrack=", VXRMACHINE_BOOT_FIELD_SECTORS},
                 {"BPB.TracksPerCyl=", VXRMACHINE_BOOT_FIELD_HEADS},
                 {"BPB.HiddenSect=", VXRMACHINE_BOOT_FIELD_HIDDEN},
                 {"BPB.TotalSect=", VXRMACHINE_BOOT_FIELD_TOTAL}};
  if (!Holds(line, ", setting BPB")) return;
  for (const auto &[name, field] : kFields) {
    if (Holds(line, name)) Tell(sink, VXRMACHINE_BOOT_FIELD_SET, {"", "", field, 0});
  }
}

// --- The log's file -------------------------------------------------------------------------------------------------

// The log names it in its first line, behind its level and outputs.
void TellLogFile(std::string_view line, EventSink sink) {
  constexpr std::string_view kFlags = ":F=";
  const std::size_t flags = line.find(kFlags), end = line.rfind(']');
  if (flags == line.npos || end == line.npos) return;
  const std::size_t path = line.find(':', flags + kFlags.size());
  if (path == line.npos || path > end) return;
  const std::string file(line.substr(path + 1, end - path - 1));
  if (file != "N/A") Tell(sink, VXRMACHINE_LOG_OPENED, {file, "", 0, 0});
}

}  // namespace

void TellStatusLine(std::string_view line, EventSink sink) {
  const std::string_view text = WithoutLineEnd(line);
  TellCopies(text, sink);
  TellDevices(text, sink);
  Tell(sink, VXRMACHINE_STATUS_LINE, {std::string(text), "", CodeOf(text), 0});
}

void TellLogLine(std::string_view line, EventSink sink) {
  constexpr std::string_view kError = "ERROR:", kBootFact = "CHECK:VXREng_FixBootVolume:",
                             kBootWarning = "WARNG:VXREng_FixBootVolume:";
  const std::string_view text = WithoutLineEnd(line);
  if (text.starts_with("*** Varnelt VXRCORE LOG STARTS:")) TellLogFile(text, sink);
  if (text.starts_with(kError)) TellError(text.substr(kError.size()), sink);
  TellChoiceLine(text, sink);
  if (text.starts_with(kBootFact)) TellBootFacts(std::string(text.substr(kBootFact.size())), sink);
  if (text.starts_with(kBootWarning)) TellSetField(text.substr(kBootWarning.size()), sink);
  if (const auto root = Between(text, "CHECK:VXRExt_BuildVXRVolumesHBM:checking mnpnt = ", "...")) {
    Tell(sink, VXRMACHINE_VOLUME_CHECKED, {std::string(*root), "", 0, 0});
  }
}
