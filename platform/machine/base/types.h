// The Windows types, records and constants that the platform layer trades in, with the sizes of 64-bit Windows.
// On Windows the SDK headers give the same names; the assertions of platform/layout.h hold both to one layout.
#pragma once

#include <cstddef>
#include <cstdint>

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using DWORD64 = std::uint64_t;
using BOOL = std::int32_t;
using UINT = std::uint32_t;
using LONG = std::int32_t;
using LONG64 = std::int64_t;
using WCHAR = char16_t;
using ULONG_PTR = std::uintptr_t;
using UINT_PTR = std::uintptr_t;
using LONG_PTR = std::intptr_t;
using SIZE_T = std::size_t;
using WPARAM = UINT_PTR;
using LPARAM = LONG_PTR;
using LRESULT = LONG_PTR;
using LSTATUS = LONG;
using CONFIGRET = DWORD;
using DEVINST = DWORD;

using HANDLE = void *;
using HINF = void *;
using HDEVINFO = void *;
using HKEY = struct HKEY__ *;
using HWND = struct HWND__ *;

inline constexpr BOOL TRUE = 1;
inline constexpr BOOL FALSE = 0;
inline constexpr std::size_t MAX_PATH = 260;
inline constexpr std::size_t LINE_LEN = 256;

// Handle values that Windows forms by casting a number; constexpr cannot hold such a pointer, hence the macros.
#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))
#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(static_cast<LONG_PTR>(static_cast<LONG>(0x80000002))))

// --- Error codes -------------------------------------------------------------------------------------------------

inline constexpr DWORD NO_ERROR = 0;
inline constexpr LSTATUS ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_INVALID_FUNCTION = 1;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr DWORD ERROR_TOO_MANY_OPEN_FILES = 4;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_INVALID_DATA = 13;
inline constexpr DWORD ERROR_NO_MORE_FILES = 18;
inline constexpr DWORD ERROR_WRITE_PROTECT = 19;
inline constexpr DWORD ERROR_NOT_READY = 21;
inline constexpr DWORD ERROR_BAD_LENGTH = 24;
inline constexpr DWORD ERROR_SECTOR_NOT_FOUND = 27;
inline constexpr DWORD ERROR_GEN_FAILURE = 31;
inline constexpr DWORD ERROR_SHARING_VIOLATION = 32;
inline constexpr DWORD ERROR_NOT_SUPPORTED = 50;
inline constexpr DWORD ERROR_FILE_EXISTS = 80;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_BUFFER_OVERFLOW = 111;
inline constexpr DWORD ERROR_DISK_FULL = 112;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_INVALID_NAME = 123;
inline constexpr DWORD ERROR_NEGATIVE_SEEK = 131;
inline constexpr DWORD ERROR_DIR_NOT_EMPTY = 145;
inline constexpr DWORD ERROR_BAD_PATHNAME = 161;
inline constexpr DWORD ERROR_ALREADY_EXISTS = 183;
inline constexpr DWORD ERROR_BAD_EXE_FORMAT = 193;
inline constexpr DWORD ERROR_FILENAME_EXCED_RANGE = 206;
inline constexpr DWORD ERROR_FILE_TOO_LARGE = 223;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
inline constexpr DWORD ERROR_DIRECTORY = 267;
inline constexpr DWORD ERROR_INVALID_ADDRESS = 487;
inline constexpr DWORD ERROR_NOACCESS = 998;
inline constexpr DWORD ERROR_FILE_INVALID = 1006;
inline constexpr DWORD ERROR_BADDB = 1009;
inline constexpr DWORD ERROR_INVALID_USER_BUFFER = 1784;
inline constexpr DWORD ERROR_IO_DEVICE = 1117;
inline constexpr DWORD ERROR_MAPPED_ALIGNMENT = 1132;
inline constexpr DWORD ERROR_INVALID_WINDOW_HANDLE = 1400;
inline constexpr DWORD ERROR_RESOURCE_DATA_NOT_FOUND = 1812;
inline constexpr DWORD ERROR_RESOURCE_TYPE_NOT_FOUND = 1813;
inline constexpr DWORD ERROR_EXPECTED_SECTION_NAME = 0xE0000000;
inline constexpr DWORD ERROR_BAD_SECTION_NAME_LINE = 0xE0000001;
inline constexpr DWORD ERROR_SECTION_NAME_TOO_LONG = 0xE0000002;
inline constexpr DWORD ERROR_GENERAL_SYNTAX = 0xE0000003;
inline constexpr DWORD ERROR_WRONG_INF_STYLE = 0xE0000100;
inline constexpr DWORD ERROR_SECTION_NOT_FOUND = 0xE0000101;
inline constexpr DWORD ERROR_LINE_NOT_FOUND = 0xE0000102;
inline constexpr DWORD ERROR_CLASS_MISMATCH = 0xE0000201;
inline constexpr DWORD ERROR_NO_DRIVER_SELECTED = 0xE0000203;
inline constexpr DWORD ERROR_INVALID_CLASS = 0xE0000206;
inline constexpr DWORD ERROR_NO_SUCH_DEVINST = 0xE000020B;

// --- Texts -------------------------------------------------------------------------------------------------------

inline constexpr UINT CP_ACP = 0;
inline constexpr DWORD WC_NO_BEST_FIT_CHARS = 0x400;

// --- Heap --------------------------------------------------------------------------------------------------------

inline constexpr DWORD HEAP_ZERO_MEMORY = 0x8;

// --- Files, processes --------------------------------------------------------------------------------------------

inline constexpr DWORD GENERIC_READ = 0x80000000;
inline constexpr DWORD GENERIC_WRITE = 0x40000000;
inline constexpr DWORD GENERIC_ALL = 0x10000000;
inline constexpr DWORD FILE_BEGIN = 0;
inline constexpr DWORD FILE_CURRENT = 1;
inline constexpr DWORD FILE_END = 2;
inline constexpr DWORD INVALID_SET_FILE_POINTER = 0xFFFFFFFF;
inline constexpr DWORD FILE_SHARE_READ = 0x1;
inline constexpr DWORD FILE_SHARE_WRITE = 0x2;
inline constexpr DWORD CREATE_NEW = 1;
inline constexpr DWORD CREATE_ALWAYS = 2;
inline constexpr DWORD OPEN_EXISTING = 3;
inline constexpr DWORD OPEN_ALWAYS = 4;
inline constexpr DWORD TRUNCATE_EXISTING = 5;
inline constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x1;
inline constexpr DWORD FILE_ATTRIBUTE_HIDDEN = 0x2;
inline constexpr DWORD FILE_ATTRIBUTE_SYSTEM = 0x4;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
inline constexpr DWORD FILE_ATTRIBUTE_ARCHIVE = 0x20;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
inline constexpr DWORD FILE_ATTRIBUTE_REPARSE_POINT = 0x400;
inline constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFF;
inline constexpr DWORD INVALID_FILE_SIZE = 0xFFFFFFFF;
inline constexpr DWORD PAGE_READONLY = 0x2;
inline constexpr DWORD PAGE_READWRITE = 0x4;
inline constexpr DWORD FILE_MAP_WRITE = 0x2;
inline constexpr DWORD FILE_MAP_READ = 0x4;
inline constexpr DWORD CREATE_NO_WINDOW = 0x08000000;
inline constexpr DWORD INFINITE = 0xFFFFFFFF;
inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;

union ULARGE_INTEGER {
  struct {
    DWORD LowPart, HighPart;
  };
  DWORD64 QuadPart;
};
struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

struct SYSTEMTIME {
  WORD wYear, wMonth, wDayOfWeek, wDay, wHour, wMinute, wSecond, wMilliseconds;
};

enum GET_FILEEX_INFO_LEVELS { GetFileExInfoStandard, GetFileExMaxInfoLevel };

struct WIN32_FILE_ATTRIBUTE_DATA {
  DWORD dwFileAttributes;
  FILETIME ftCreationTime, ftLastAccessTime, ftLastWriteTime;
  DWORD nFileSizeHigh, nFileSizeLow;
};

struct WIN32_FIND_DATAA {
  DWORD dwFileAttributes;
  FILETIME ftCreationTime, ftLastAccessTime, ftLastWriteTime;
  DWORD nFileSizeHigh, nFileSizeLow;
  DWORD dwReserved0, dwReserved1;
  char cFileName[MAX_PATH];
  char cAlternateFileName[14];
};

struct STARTUPINFOA {
  DWORD cb;
  char *lpReserved;
  char *lpDesktop;
  char *lpTitle;
  DWORD dwX, dwY, dwXSize, dwYSize, dwXCountChars, dwYCountChars, dwFillAttribute, dwFlags;
  WORD wShowWindow, cbReserved2;
  BYTE *lpReserved2;
  HANDLE hStdInput, hStdOutput, hStdError;
};

struct PROCESS_INFORMATION {
  HANDLE hProcess;
  HANDLE hThread;
  DWORD dwProcessId;
  DWORD dwThreadId;
};

// --- Registry ----------------------------------------------------------------------------------------------------

inline constexpr DWORD REG_NONE = 0;
inline constexpr DWORD REG_SZ = 1;
inline constexpr DWORD REG_EXPAND_SZ = 2;
inline constexpr DWORD REG_BINARY = 3;
inline constexpr DWORD REG_DWORD = 4;
inline constexpr DWORD REG_LINK = 6;
inline constexpr DWORD REG_MULTI_SZ = 7;
inline constexpr DWORD REG_QWORD = 11;

// --- Windows of the user interface -------------------------------------------------------------------------------

inline constexpr UINT EM_SETSEL = 0x00B1;
inline constexpr UINT EM_REPLACESEL = 0x00C2;
inline constexpr UINT MB_YESNO = 0x4;
inline constexpr int IDYES = 6;
inline constexpr int IDNO = 7;
inline constexpr UINT DPROMPT_SUCCESS = 0;
inline constexpr UINT DPROMPT_CANCEL = 1;
inline constexpr UINT DPROMPT_SKIPFILE = 2;
inline constexpr UINT DPROMPT_BUFFERTOOSMALL = 3;
inline constexpr UINT DPROMPT_OUTOFMEMORY = 4;
inline constexpr DWORD IDF_NOCOMPRESSED = 0x8;
inline constexpr DWORD IDF_CHECKFIRST = 0x100;
inline constexpr DWORD IDF_OEMDISK = 0x80000000;

// --- Machine facts -----------------------------------------------------------------------------------------------

inline constexpr UINT DRIVE_UNKNOWN = 0;
inline constexpr UINT DRIVE_NO_ROOT_DIR = 1;
inline constexpr UINT DRIVE_REMOVABLE = 2;
inline constexpr UINT DRIVE_FIXED = 3;
inline constexpr UINT DRIVE_REMOTE = 4;
inline constexpr UINT DRIVE_CDROM = 5;
inline constexpr UINT DRIVE_RAMDISK = 6;

struct MEMORYSTATUSEX {
  DWORD dwLength;
  DWORD dwMemoryLoad;
  DWORD64 ullTotalPhys, ullAvailPhys, ullTotalPageFile, ullAvailPageFile, ullTotalVirtual, ullAvailVirtual;
  DWORD64 ullAvailExtendedVirtual;
};

struct SYSTEM_INFO {
  union {
    DWORD dwOemId;
    struct {
      WORD wProcessorArchitecture;
      WORD wReserved;
    };
  };
  DWORD dwPageSize;
  void *lpMinimumApplicationAddress;
  void *lpMaximumApplicationAddress;
  ULONG_PTR dwActiveProcessorMask;
  DWORD dwNumberOfProcessors;
  DWORD dwProcessorType;
  DWORD dwAllocationGranularity;
  WORD wProcessorLevel;
  WORD wProcessorRevision;
};

struct OSVERSIONINFOEXA {
  DWORD dwOSVersionInfoSize;
  DWORD dwMajorVersion, dwMinorVersion, dwBuildNumber, dwPlatformId;
  char szCSDVersion[128];
  WORD wServicePackMajor, wServicePackMinor, wSuiteMask;
  BYTE wProductType, wReserved;
};

enum COMPUTER_NAME_FORMAT {
  ComputerNameNetBIOS,
  ComputerNameDnsHostname,
  ComputerNameDnsDomain,
  ComputerNameDnsFullyQualified,
  ComputerNamePhysicalNetBIOS,
  ComputerNamePhysicalDnsHostname,
  ComputerNamePhysicalDnsDomain,
  ComputerNamePhysicalDnsFullyQualified,
  ComputerNameMax
};

// --- Disks and volumes -------------------------------------------------------------------------------------------

inline constexpr DWORD IOCTL_STORAGE_GET_DEVICE_NUMBER = 0x002D1080;
inline constexpr DWORD IOCTL_DISK_GET_DRIVE_GEOMETRY = 0x00070000;
inline constexpr DWORD IOCTL_MOUNTDEV_QUERY_UNIQUE_ID = 0x004D0000;
inline constexpr DWORD IOCTL_MOUNTDEV_QUERY_DEVICE_NAME = 0x004D0008;
inline constexpr DWORD IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS = 0x00560000;
inline constexpr DWORD FILE_DEVICE_DISK = 7;

struct STORAGE_DEVICE_NUMBER {
  DWORD DeviceType;
  DWORD DeviceNumber;
  DWORD PartitionNumber;
};

struct LARGE_INTEGER {
  LONG64 QuadPart;
};

enum MEDIA_TYPE : DWORD { FixedMedia = 12 };

struct DISK_GEOMETRY {
  LARGE_INTEGER Cylinders;
  MEDIA_TYPE MediaType;
  DWORD TracksPerCylinder;
  DWORD SectorsPerTrack;
  DWORD BytesPerSector;
};

struct DISK_EXTENT {
  DWORD DiskNumber;
  LARGE_INTEGER StartingOffset;
  LARGE_INTEGER ExtentLength;
};

struct VOLUME_DISK_EXTENTS {
  DWORD NumberOfDiskExtents;
  DISK_EXTENT Extents[1];
};

struct MOUNTDEV_NAME {
  WORD NameLength;  // bytes
  WCHAR Name[1];
};

struct MOUNTDEV_UNIQUE_ID {
  WORD UniqueIdLength;
  BYTE UniqueId[1];
};

// --- Set-up library ----------------------------------------------------------------------------------------------

inline constexpr DWORD INF_STYLE_WIN4 = 0x2;
inline constexpr DWORD INFINFO_INF_SPEC_IS_HINF = 1;
inline constexpr DWORD DIGCF_PRESENT = 0x2;
inline constexpr DWORD DIGCF_ALLCLASSES = 0x4;
inline constexpr DWORD DIGCF_DEVICEINTERFACE = 0x10;
inline constexpr DWORD SPDRP_DEVICEDESC = 0;
inline constexpr DWORD SPDRP_HARDWAREID = 1;
inline constexpr DWORD SPDRP_COMPATIBLEIDS = 2;
inline constexpr DWORD SPDRP_SERVICE = 4;
inline constexpr DWORD SPDRP_CLASS = 7;
inline constexpr DWORD SPDRP_CLASSGUID = 8;
inline constexpr DWORD SPDRP_DRIVER = 9;
inline constexpr DWORD SPDRP_MFG = 11;
inline constexpr DWORD SPDRP_FRIENDLYNAME = 12;
inline constexpr DWORD SPDRP_ENUMERATOR_NAME = 22;
inline constexpr DWORD SPDIT_COMPATDRIVER = 2;
inline constexpr DWORD DI_ENUMSINGLEINF = 0x00010000;
inline constexpr CONFIGRET CR_SUCCESS = 0;
inline constexpr CONFIGRET CR_OUT_OF_MEMORY = 0x2;
inline constexpr CONFIGRET CR_INVALID_POINTER = 0x3;
inline constexpr CONFIGRET CR_INVALID_DEVNODE = 0x5;
inline constexpr CONFIGRET CR_NO_SUCH_DEVNODE = 0xD;
inline constexpr CONFIGRET CR_BUFFER_SMALL = 0x1A;
inline constexpr CONFIGRET CR_FAILURE = 0x13;

struct GUID {
  DWORD Data1;
  WORD Data2;
  WORD Data3;
  BYTE Data4[8];
};

struct INFCONTEXT {
  void *Inf;
  void *CurrentInf;
  UINT Section;
  UINT Line;
};

struct SP_INF_INFORMATION {
  DWORD InfStyle;
  DWORD InfCount;
  BYTE VersionData[1];
};

struct SP_DEVINFO_DATA {
  DWORD cbSize;
  GUID ClassGuid;
  DWORD DevInst;
  ULONG_PTR Reserved;
};

struct SP_DEVICE_INTERFACE_DATA {
  DWORD cbSize;
  GUID InterfaceClassGuid;
  DWORD Flags;
  ULONG_PTR Reserved;
};

struct SP_DEVICE_INTERFACE_DETAIL_DATA_A {
  DWORD cbSize;
  char DevicePath[1];
};

struct SP_DEVINSTALL_PARAMS_A {
  DWORD cbSize;
  DWORD Flags;
  DWORD FlagsEx;
  HWND hwndParent;
  void *InstallMsgHandler;
  void *InstallMsgHandlerContext;
  void *FileQueue;
  ULONG_PTR ClassInstallReserved;
  DWORD Reserved;
  char DriverPath[MAX_PATH];
};

struct SP_DRVINFO_DATA_A {
  DWORD cbSize;
  DWORD DriverType;
  ULONG_PTR Reserved;
  char Description[LINE_LEN];
  char MfgName[LINE_LEN];
  char ProviderName[LINE_LEN];
  FILETIME DriverDate;
  DWORD64 DriverVersion;
};

struct SP_DRVINFO_DETAIL_DATA_A {
  DWORD cbSize;
  FILETIME InfDate;
  DWORD CompatIDsOffset;
  DWORD CompatIDsLength;
  ULONG_PTR Reserved;
  char SectionName[LINE_LEN];
  char InfFileName[MAX_PATH];
  char DrvDescription[LINE_LEN];
  char HardwareID[1];
};
