// Facts about the machine.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/layout.h"
#include "platform/machine/base/answer.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/base/file_time.h"
#include "platform/machine/description/current.h"
#include "platform/machine/description/records.h"
#include "platform/machine/files/storage.h"
#include "platform/text/code_page.h"

namespace {

using machine::FailWith;

constexpr DWORD kArchitectureX86 = 0;
constexpr DWORD64 kLowestAddress = 0x10000;
constexpr DWORD64 kHighestAddress = 0x7FFFFFEFFFF;  // of a 64-bit process up to 6.2
constexpr DWORD64 kHighestAddressX86 = 0x7FFEFFFF;
constexpr DWORD kGranularity = 0x10000;

UINT GiveDirectory(std::string machine::System::*which, char *buffer, UINT size) {
  const machine::Description *machine = machine::Current();
  if (machine == nullptr) return FailWith(ERROR_NOT_READY, 0);
  const std::string &path = machine->system.*which;
  const auto length = static_cast<UINT>(path.size());
  if (buffer == nullptr || size <= length) return length + 1;
  std::memcpy(buffer, path.c_str(), length + 1);
  return length;
}

DWORD64 HighestAddress(const machine::Description &machine) {
  return machine.system.processorArchitecture == kArchitectureX86 ? kHighestAddressX86 : kHighestAddress;
}

void StoreTime(std::chrono::sys_time<std::chrono::milliseconds> time, SYSTEMTIME *target) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  target->wYear = static_cast<WORD>(static_cast<int>(date.year()));
  target->wMonth = static_cast<WORD>(static_cast<unsigned>(date.month()));
  target->wDay = static_cast<WORD>(static_cast<unsigned>(date.day()));
  target->wDayOfWeek = static_cast<WORD>(std::chrono::weekday(day).c_encoding());
  target->wHour = static_cast<WORD>(clock.hours().count());
  target->wMinute = static_cast<WORD>(clock.minutes().count());
  target->wSecond = static_cast<WORD>(clock.seconds().count());
  target->wMilliseconds = static_cast<WORD>(clock.subseconds().count());
}

// The names of GetComputerNameExA by their formats.
constexpr std::string machine::Names::*kNames[] = {
    &machine::Names::netbios,           &machine::Names::dnsHostname,
    &machine::Names::dnsDomain,         &machine::Names::dnsFullyQualified,
    &machine::Names::physicalNetbios,   &machine::Names::physicalDnsHostname,
    &machine::Names::physicalDnsDomain, &machine::Names::physicalDnsFullyQualified,
};
static_assert(std::size(kNames) == ComputerNameMax);

BOOL GiveName(std::string machine::Names::*which, char *buffer, DWORD *size, DWORD tooLong) {
  const machine::Description *machine = machine::Current();
  if (machine == nullptr) return FailWith(ERROR_NOT_READY);
  if (size == nullptr || (buffer == nullptr && *size != 0)) return FailWith(ERROR_INVALID_PARAMETER);
  const std::string &name = machine->names.*which;
  const auto length = static_cast<DWORD>(name.size());
  const bool fits = length < *size;
  *size = fits ? length : length + 1;
  if (!fits) return FailWith(tooLong);
  std::memcpy(buffer, name.c_str(), length + 1);
  return TRUE;
}

// The host process's own first argument, in UTF-8, with the separators of Windows: callers take the name behind the
// last one.
std::string ReadOwnProgramName() {
  std::ifstream arguments("/proc/self/cmdline", std::ios::binary);
  std::string name;
  std::getline(arguments, name, '\0');
  std::replace(name.begin(), name.end(), '/', '\\');
  return name;
}

}  // namespace

namespace platform {

UINT GetSystemDirectoryA(char *buffer, UINT size) {
  VXR_FAULT(0, ERROR_NOT_ENOUGH_MEMORY);
  return GiveDirectory(&machine::System::systemDirectory, buffer, size);
}

UINT GetWindowsDirectoryA(char *buffer, UINT size) {
  VXR_FAULT(0, ERROR_NOT_ENOUGH_MEMORY);
  return GiveDirectory(&machine::System::windowsDirectory, buffer, size);
}

UINT GetSystemWindowsDirectoryA(char *buffer, UINT size) {
  VXR_FAULT(0, ERROR_NOT_ENOUGH_MEMORY);
  return GiveDirectory(&machine::System::windowsDirectory, buffer, size);
}

// A null root stands for the current directory's; the machine's is on the drive of the system directory.
UINT GetDriveTypeA(const char *root) {
  VXR_FAULT(DRIVE_UNKNOWN, ERROR_GEN_FAILURE);
  const machine::Description *machine = machine::Current();
  if (machine == nullptr) return FailWith(ERROR_NOT_READY, DRIVE_UNKNOWN);
  std::string wanted = root == nullptr ? machine->system.systemDirectory.substr(0, 3) : root;
  if (wanted.empty() || wanted.back() != '\\') wanted += '\\';
  const machine::Drive *drive = machine::FindDrive(wanted);
  return drive == nullptr ? DRIVE_NO_ROOT_DIR : drive->type;
}

UINT GetACP() {
  const machine::Description *description = machine::Current();
  return description == nullptr ? machine::kDefaultCodePage : description->system.codePage;
}

// Nothing is known of the memory's use, so all of it is free, and no page file adds to it.
BOOL GlobalMemoryStatusEx(MEMORYSTATUSEX *status) {
  VXR_FAULT(FALSE, ERROR_INVALID_PARAMETER);
  const machine::Description *machine = machine::Current();
  if (machine == nullptr) return FailWith(ERROR_NOT_READY);
  if (status == nullptr || status->dwLength != sizeof *status) return FailWith(ERROR_INVALID_PARAMETER);
  *status = {};
  status->dwLength = sizeof *status;
  status->ullTotalPhys = status->ullAvailPhys = machine->system.memory;
  status->ullTotalPageFile = status->ullAvailPageFile = machine->system.memory;
  status->ullTotalVirtual = status->ullAvailVirtual = HighestAddress(*machine) + 1 - kLowestAddress;
  return TRUE;
}

BOOL GetVersionExA(OSVERSIONINFOEXA *version) {
  VXR_FAULT(FALSE, ERROR_INSUFFICIENT_BUFFER);
  const machine::Description *machine = machine::Current();
  if (machine == nullptr) return FailWith(ERROR_NOT_READY);
  if (version == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
  if (version->dwOSVersionInfoSize != sizeof *version) return FailWith(ERROR_INSUFFICIENT_BUFFER);
  const machine::System &system = machine->system;
  *version = {};
  version->dwOSVersionInfoSize = sizeof *version;
  version->dwMajorVersion = system.osMajor;
  version->dwMinorVersion = system.osMinor;
  version->dwBuildNumber = system.osBuild;
  version->dwPlatformId = system.osPlatform;
  version->wServicePackMajor = static_cast<WORD>(system.servicePackMajor);
  version->wServicePackMinor = static_cast<WORD>(system.servicePackMinor);
  version->wSuiteMask = static_cast<WORD>(system.suite);
  version->wProductType = static_cast<BYTE>(system.product);
  if (system.servicePackMajor != 0) {
    std::snprintf(version->szCSDVersion, sizeof version->szCSDVersion, "Service Pack %u", system.servicePackMajor);
  }
  return TRUE;
}

BOOL GetComputerNameA(char *buffer, DWORD *size) {
  VXR_FAULT(FALSE, ERROR_GEN_FAILURE);
  return GiveName(&machine::Names::computer, buffer, size, ERROR_BUFFER_OVERFLOW);
}

BOOL GetComputerNameExA(COMPUTER_NAME_FORMAT format, char *buffer, DWORD *size) {
  VXR_FAULT(FALSE, ERROR_GEN_FAILURE);
  const auto index = static_cast<std::size_t>(format);
  if (index >= std::size(kNames)) return FailWith(ERROR_INVALID_PARAMETER);
  return GiveName(kNames[index], buffer, size, ERROR_MORE_DATA);
}

void GetSystemInfo(SYSTEM_INFO *info) {
  *info = {};
  const machine::Description *machine = machine::Current();
  if (machine == nullptr) return SetLastError(ERROR_NOT_READY);
  const machine::System &system = machine->system;
  info->wProcessorArchitecture = static_cast<WORD>(system.processorArchitecture);
  info->dwPageSize = system.pageSize;
  info->lpMinimumApplicationAddress = reinterpret_cast<void *>(kLowestAddress);
  info->lpMaximumApplicationAddress = reinterpret_cast<void *>(HighestAddress(*machine));
  info->dwActiveProcessorMask = ~ULONG_PTR{0} >> (64 - system.processorCount);
  info->dwNumberOfProcessors = system.processorCount;
  info->dwProcessorType = system.processorType;
  info->dwAllocationGranularity = kGranularity;
  info->wProcessorLevel = static_cast<WORD>(system.processorLevel);
  info->wProcessorRevision = static_cast<WORD>(system.processorRevision);
}

void GetSystemTime(SYSTEMTIME *time) {
  const machine::Description *machine = machine::Current();
  auto now = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
  if (machine != nullptr && machine->system.clock) {
    now = std::chrono::sys_time<std::chrono::milliseconds>(std::chrono::seconds(*machine->system.clock));
  }
  StoreTime(now, time);
}

BOOL FileTimeToSystemTime(const FILETIME *fileTime, SYSTEMTIME *systemTime) {
  VXR_FAULT(FALSE, ERROR_INVALID_PARAMETER);
  const DWORD64 ticks = machine::TicksOf(*fileTime);
  if (ticks > INT64_MAX) return FailWith(ERROR_INVALID_PARAMETER);
  constexpr std::chrono::sys_days kBegin = std::chrono::year(1601) / 1 / 1;
  const std::chrono::sys_time<std::chrono::milliseconds> begin = kBegin;
  StoreTime(begin + std::chrono::milliseconds(ticks / 10000), systemTime);  // ticks of 100 nanoseconds
  return TRUE;
}

const char *GetProgramName() {
  VXR_FAULT(nullptr, ERROR_NOT_ENOUGH_MEMORY);
  static const std::string own = ReadOwnProgramName();
  static std::string name;  // as it was last given, in the code page of the machine that was open then
  const machine::Description *machine = machine::Current();
  name = machine != nullptr && machine->system.program ? *machine->system.program : machine::Utf8ToAnsi(own);
  return name.empty() ? nullptr : name.c_str();
}

}  // namespace platform
