// Every Windows call that the system makes, under its own name and with its own parameters. On Windows each is an
// inline pass-through; elsewhere the described machine (platform/machine/) answers. Where our reliance is narrower than
// what Windows promises, the comment says what we rely on; anything else keeps Windows' documented contract.
//
// All texts are in the ANSI code page. A failing call leaves its reason in GetLastError, in Windows' own codes.
#pragma once

#include <cstdarg>
#include <cstdio>

#ifdef _WIN32
#include "platform/win32/types.h"
#else
#include "platform/machine/base/types.h"
#endif

namespace platform {

// --- Errors ------------------------------------------------------------------------------------------------------

DWORD GetLastError();
void SetLastError(DWORD code);

// --- Formatted text ----------------------------------------------------------------------------------------------

// Formats as the log promises on every build: %I64u %I64X %0I64u, %S (UTF-16 text), %C, %p (16 upper-case digits, no
// 0x), "(null)" for a null text. Writes at most `size` bytes, terminator included. Returns the count of characters
// without the terminator, or -1 when the text was cut; a cut text is terminated inside the buffer.
int FormatText(char *buffer, SIZE_T size, const char *format, va_list arguments);

// --- Heap --------------------------------------------------------------------------------------------------------

HANDLE GetProcessHeap();
// Only HEAP_ZERO_MEMORY is used. Null when memory runs out; the last error is then ERROR_NOT_ENOUGH_MEMORY (unlike
// Windows, which leaves it unset: we log it).
void *HeapAlloc(HANDLE heap, DWORD flags, SIZE_T size);
BOOL HeapFree(HANDLE heap, DWORD flags, void *memory);

// --- Code page of texts ------------------------------------------------------------------------------------------

// Whether `byte` begins a two-byte character of the ANSI code page.
BOOL IsDBCSLeadByte(BYTE byte);
UINT GetACP();
// Case conversion by the ANSI code page, in place; return the count of bytes processed.
DWORD CharUpperBuffA(char *text, DWORD length);
DWORD CharLowerBuffA(char *text, DWORD length);
// UTF-16 to the code page, which is always CP_ACP, with WC_NO_BEST_FIT_CHARS: a character that it lacks becomes '?',
// also where Windows has a similar one. `length` counts units. Returns the count of bytes; 0 when they do not fit.
int WideCharToMultiByte(UINT codePage, DWORD flags, const WCHAR *wide, int length, char *buffer, int size,
                        const char *replacement, BOOL *replaced);

// --- Registry (HKEY_LOCAL_MACHINE only) --------------------------------------------------------------------------

// These return the error code and do not promise to set GetLastError.
LSTATUS RegOpenKeyA(HKEY root, const char *subKey, HKEY *key);
LSTATUS RegCreateKeyA(HKEY root, const char *subKey, HKEY *key);
// With null `data` stores the size alone. REG_SZ, REG_EXPAND_SZ and REG_MULTI_SZ are converted to the ANSI code page
// and sized in ANSI bytes; other types are raw. A stored text without terminator comes back without one, or where the
// buffer has room for it with one that the size does not count.
LSTATUS RegQueryValueExA(HKEY key, const char *valueName, DWORD *reserved, DWORD *type, BYTE *data, DWORD *size);
LSTATUS RegSetValueExA(HKEY key, const char *valueName, DWORD reserved, DWORD type, const BYTE *data, DWORD size);
LSTATUS RegCloseKey(HKEY key);
// The key's sub-keys and values by number from 0 on, in an order that stays while nothing changes; ERROR_NO_MORE_ITEMS
// behind the last. `*length` is the buffer's size in bytes and gets the name's, without terminator; a name that does
// not fit gives ERROR_MORE_DATA. `className` and `written` are always null; data is sized as by RegQueryValueExA.
LSTATUS RegEnumKeyExA(HKEY key, DWORD index, char *name, DWORD *length, DWORD *reserved, char *className,
                      DWORD *classLength, FILETIME *written);
LSTATUS RegEnumValueA(HKEY key, DWORD index, char *name, DWORD *length, DWORD *reserved, DWORD *type, BYTE *data,
                      DWORD *size);
// A key that has sub-keys is not deleted (ERROR_ACCESS_DENIED).
LSTATUS RegDeleteKeyA(HKEY root, const char *subKey);
LSTATUS RegDeleteValueA(HKEY key, const char *valueName);

// --- Processes ---------------------------------------------------------------------------------------------------

// The described machine answers `reg.exe LOAD|UNLOAD` and `cmd.exe /c copy /y`; any other command line fails to start
// with error 2.
BOOL CreateProcessA(const char *application, char *commandLine, void *processSecurity, void *threadSecurity,
                    BOOL inheritHandles, DWORD flags, void *environment, const char *directory, STARTUPINFOA *startup,
                    PROCESS_INFORMATION *process);
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
BOOL GetExitCodeProcess(HANDLE process, DWORD *exitCode);

// --- Files -------------------------------------------------------------------------------------------------------

// Opens a file, a disk ("\\.\PhysicalDriveN"), a device interface path, or a volume by its GUID path without trailing
// backslash. Without access rights a disk or volume can be asked questions (DeviceIoControl) and no more; we open
// volumes only so. Returns INVALID_HANDLE_VALUE on failure: ERROR_FILE_NOT_FOUND no such file or device,
// ERROR_PATH_NOT_FOUND no such directory, ERROR_ACCESS_DENIED, ERROR_WRITE_PROTECT, ERROR_NOT_READY (a disk without
// medium) and others.
HANDLE CreateFileA(const char *name, DWORD access, DWORD share, void *security, DWORD disposition, DWORD flags,
                   HANDLE templateFile);
BOOL CloseHandle(HANDLE handle);
DWORD GetFileSize(HANDLE file, DWORD *sizeHigh);
// Transfer `size` bytes at the handle's position, which moves on after a success. On a disk both are whole sectors
// (ERROR_INVALID_PARAMETER), and what reaches past its end fails without any transfer (ERROR_SECTOR_NOT_FOUND); reading
// past a file's end gives fewer bytes, or none, which is a success. `overlapped` is always null. `*read` and `*written`
// get the bytes transferred. Without the access right: ERROR_ACCESS_DENIED.
BOOL ReadFile(HANDLE file, void *buffer, DWORD size, DWORD *read, void *overlapped);
BOOL WriteFile(HANDLE file, const void *buffer, DWORD size, DWORD *written, void *overlapped);
// Moves by the signed 64-bit distance of both halves when `distanceHigh` is given, which then gets the high half of the
// new position; without it a position of more than 32 bits fails. INVALID_SET_FILE_POINTER may be a low half too: only
// the last error tells (NO_ERROR then). ERROR_NEGATIVE_SEEK before the beginning, ERROR_INVALID_PARAMETER no such
// method or position; the position is then as it was.
DWORD SetFilePointer(HANDLE file, LONG distance, LONG *distanceHigh, DWORD method);
// Returns when what was written is on the medium. Needs the right to write.
BOOL FlushFileBuffers(HANDLE file);
// We ask disks for their number and geometry, volumes for their unique id, device name and extents; `*returned` gets
// the bytes stored. Of an id or name that does not fit the buffer the length is stored, and the last error is
// ERROR_MORE_DATA. Of extents that do not fit the count is stored, and it is ERROR_MORE_DATA too, or
// ERROR_INSUFFICIENT_BUFFER when not even one fits; any other answer that does not fit fails with the latter.
BOOL DeviceIoControl(HANDLE device, DWORD code, void *in, DWORD inSize, void *out, DWORD outSize, DWORD *returned,
                     void *overlapped);
HANDLE CreateFileMappingA(HANDLE file, void *security, DWORD protect, DWORD sizeHigh, DWORD sizeLow, const char *name);
void *MapViewOfFile(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow, SIZE_T length);
BOOL UnmapViewOfFile(const void *view);
DWORD GetFileAttributesA(const char *name);
BOOL SetFileAttributesA(const char *name, DWORD attributes);
// `data` is a WIN32_FILE_ATTRIBUTE_DATA; GetFileExInfoStandard is the only level. Fails as GetFileAttributesA does.
BOOL GetFileAttributesExA(const char *name, GET_FILEEX_INFO_LEVELS level, void *data);
// Copies contents and attributes, replacing `target` when `failIfExists` is FALSE. On failure an old target is whole.
BOOL CopyFileA(const char *source, const char *target, BOOL failIfExists);
// ERROR_ALREADY_EXISTS when there is a file or directory of that name, ERROR_PATH_NOT_FOUND without the one above it.
// `security` is always null.
BOOL CreateDirectoryA(const char *name, void *security);
// Bytes that a file in the directory can still take up, for this caller. `total` and `totalFree` are always null.
BOOL GetDiskFreeSpaceExA(const char *directory, ULARGE_INTEGER *available, ULARGE_INTEGER *total,
                         ULARGE_INTEGER *totalFree);
// The last component may hold wildcards. Of the data we take name, size, and whether it is a directory or a link
// (FILE_ATTRIBUTE_REPARSE_POINT).
HANDLE FindFirstFileA(const char *pattern, WIN32_FIND_DATAA *data);
// The next match, each once, in no order that we rely on; FALSE with ERROR_NO_MORE_FILES behind the last.
BOOL FindNextFileA(HANDLE search, WIN32_FIND_DATAA *data);
BOOL FindClose(HANDLE search);
// fopen by Windows path, always in binary mode, so that line ends reach the file as they are written. `mode` is "r",
// "w" or "a", with or without "+". Null on failure, with the last error set; the caller closes the stream with fclose.
std::FILE *OpenStream(const char *name, const char *mode);

// --- Settings files ----------------------------------------------------------------------------------------------

UINT GetPrivateProfileIntA(const char *section, const char *key, int fallback, const char *file);
// Stores the value, or `fallback` without blanks at its end, cut to the buffer (never inside a character) and
// terminated. Returns the characters stored, without terminator. We always name section, key and fallback.
DWORD GetPrivateProfileStringA(const char *section, const char *key, const char *fallback, char *buffer, DWORD size,
                               const char *file);
// Sets one value, creating section and file (not its directory) when missing; every other line stays as it is. We
// always name all four. On failure the file is as it was: ERROR_ACCESS_DENIED read-only or a directory,
// ERROR_PATH_NOT_FOUND no such directory, ERROR_INVALID_PARAMETER a line end in a text or a name that could not be read
// back, ERROR_INVALID_DATA a file in UTF-16BE; others of the disk.
BOOL WritePrivateProfileStringA(const char *section, const char *key, const char *value, const char *file);

// --- Version resources -------------------------------------------------------------------------------------------

// Size in bytes of a file's version block, 0 on failure: ERROR_RESOURCE_DATA_NOT_FOUND when it has none, or is no
// executable; ERROR_INVALID_DATA when its headers or its resource are damaged; ERROR_FILE_NOT_FOUND and the others of
// opening a file. `*handle` gets 0.
DWORD GetFileVersionInfoSizeA(const char *file, DWORD *handle);
// Stores the block, at most `size` bytes of it. The same errors; ERROR_INSUFFICIENT_BUFFER for fewer than 16 bytes,
// which could not tell how much of the block there is.
BOOL GetFileVersionInfoA(const char *file, DWORD handle, DWORD size, void *block);
// Points `*value` to a value inside the block, which GetFileVersionInfoA filled: "\VarFileInfo\Translation" (bytes)
// or "\StringFileInfo\040904b0\FileVersion" (ANSI text; its length with terminator, as Windows counts it; 0 for a text
// without a value). On failure null and 0: ERROR_RESOURCE_TYPE_NOT_FOUND no such value; ERROR_INVALID_DATA the block is
// cut before the value's end, or is none.
BOOL VerQueryValueA(const void *block, const char *subBlock, void **value, UINT *length);

// --- User interaction --------------------------------------------------------------------------------------------

void OutputDebugStringA(const char *text);
BOOL SetWindowTextA(HWND window, const char *text);
int GetWindowTextLengthA(HWND window);
LRESULT SendMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
int MessageBoxA(HWND owner, const char *text, const char *caption, UINT type);
// Returns a DPROMPT_ code; on DPROMPT_SUCCESS `pathBuffer` holds the directory that the user gave.
UINT SetupPromptForDiskA(HWND owner, const char *title, const char *diskName, const char *pathToSource,
                         const char *fileSought, const char *tagFile, DWORD style, char *pathBuffer,
                         DWORD pathBufferSize, DWORD *requiredSize);

// --- What the host hears beside the log --------------------------------------------------------------------------

// Tells a host that watches the run what was decided, in fields: a kind of vxrcore/events.h, and for a refusal its
// reason. On Windows nobody listens. Leaves the last error as it was.
void ReportDecision(DWORD kind, const char *subject, const char *detail = nullptr, DWORD type = 0, DWORD64 size = 0,
                    const char *text = nullptr);
// The same of a registry value, in the fields that the event of writing it has: `key` below HKEY_LOCAL_MACHINE, data as
// RegSetValueExA takes it.
void ReportValue(DWORD kind, const char *key, const char *name, DWORD type, const BYTE *data, DWORD size);
// The same of an error that the log tells: the function that met it, the line behind the function's name, and of a call
// that failed its name and the system's error code; null and 0 for another.
void ReportError(const char *function, const char *line, const char *call, DWORD code);

// --- Machine facts -----------------------------------------------------------------------------------------------

// With a buffer too small (or null and 0) return the size needed, terminator included; else the length written.
UINT GetSystemDirectoryA(char *buffer, UINT size);
UINT GetWindowsDirectoryA(char *buffer, UINT size);
// That of the machine, also where each user has one of their own.
UINT GetSystemWindowsDirectoryA(char *buffer, UINT size);
UINT GetDriveTypeA(const char *root);
BOOL GlobalMemoryStatusEx(MEMORYSTATUSEX *status);
// The extended record, by its size field; another size fails with ERROR_INSUFFICIENT_BUFFER. (Windows declares the
// parameter as the shorter record.)
BOOL GetVersionExA(OSVERSIONINFOEXA *version);
// `*size` is the buffer's; on success the characters stored, without terminator. A name that does not fit fails with
// ERROR_BUFFER_OVERFLOW (GetComputerNameA) or ERROR_MORE_DATA, `*size` the size needed and the buffer as it was.
BOOL GetComputerNameA(char *buffer, DWORD *size);
BOOL GetComputerNameExA(COMPUTER_NAME_FORMAT format, char *buffer, DWORD *size);
void GetSystemInfo(SYSTEM_INFO *info);
void GetSystemTime(SYSTEMTIME *time);
BOOL FileTimeToSystemTime(const FILETIME *fileTime, SYSTEMTIME *systemTime);
// The host's first command-line argument (argv[0]), or null when there is none. Never freed by the caller; good until
// the next call. What the code page lacks stands in it as '?'.
const char *GetProgramName();

// --- Volumes -----------------------------------------------------------------------------------------------------

// The roots of all drives by letter, such as "C:\", as a multi-string. Returns its size without the last NUL, or with a
// buffer too small (or null and 0) the size with it; 0 on failure.
DWORD GetLogicalDriveStringsA(DWORD size, char *buffer);
// `root` ends in a backslash. Any output may be null. A text that does not fit fails the call with ERROR_BAD_LENGTH; a
// drive without medium, with ERROR_NOT_READY.
BOOL GetVolumeInformationA(const char *root, char *label, DWORD labelSize, DWORD *serial, DWORD *maxComponent,
                           DWORD *flags, char *fileSystem, DWORD fileSystemSize);
// The volume's GUID path, with a trailing backslash. `mountPoint` ends in a backslash too. A path that does not fit
// fails with ERROR_FILENAME_EXCED_RANGE.
BOOL GetVolumeNameForVolumeMountPointA(const char *mountPoint, char *name, DWORD size);

// --- Set-up library: INF files -----------------------------------------------------------------------------------

HINF SetupOpenInfFileA(const char *fileName, const char *infClass, DWORD style, UINT *errorLine);
void SetupCloseInfFile(HINF inf);
BOOL SetupFindFirstLineA(HINF inf, const char *section, const char *key, INFCONTEXT *context);
BOOL SetupFindNextLine(INFCONTEXT *contextIn, INFCONTEXT *contextOut);
DWORD SetupGetFieldCount(INFCONTEXT *context);
// Each stores the size needed in `*requiredSize`; with a null buffer and size 0 that alone is a success. A list ends at
// the first empty field, which would end it for its reader.
BOOL SetupGetStringFieldA(INFCONTEXT *context, DWORD index, char *buffer, DWORD size, DWORD *requiredSize);
BOOL SetupGetMultiSzFieldA(INFCONTEXT *context, DWORD index, char *buffer, DWORD size, DWORD *requiredSize);
BOOL SetupGetIntField(INFCONTEXT *context, DWORD index, int *value);
BOOL SetupGetBinaryField(INFCONTEXT *context, DWORD index, BYTE *buffer, DWORD size, DWORD *requiredSize);
// Bare names of the modern-style INF files of a directory, as a multi-string.
BOOL SetupGetInfFileListA(const char *directory, DWORD style, char *buffer, DWORD size, DWORD *requiredSize);
BOOL SetupGetInfInformationA(const void *infSpec, DWORD searchControl, SP_INF_INFORMATION *buffer, DWORD size,
                             DWORD *requiredSize);
BOOL SetupQueryInfVersionInformationA(SP_INF_INFORMATION *information, UINT infIndex, const char *key, char *buffer,
                                      DWORD size, DWORD *requiredSize);

// --- Set-up library: devices -------------------------------------------------------------------------------------

HDEVINFO SetupDiGetClassDevsA(const GUID *classGuid, const char *enumerator, HWND owner, DWORD flags);
BOOL SetupDiDestroyDeviceInfoList(HDEVINFO set);
BOOL SetupDiEnumDeviceInfo(HDEVINFO set, DWORD index, SP_DEVINFO_DATA *device);
BOOL SetupDiGetDeviceInstanceIdA(HDEVINFO set, SP_DEVINFO_DATA *device, char *buffer, DWORD size, DWORD *requiredSize);
BOOL SetupDiGetDeviceRegistryPropertyA(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD property, DWORD *type, BYTE *buffer,
                                       DWORD size, DWORD *requiredSize);
BOOL SetupDiEnumDeviceInterfaces(HDEVINFO set, SP_DEVINFO_DATA *device, const GUID *interfaceGuid, DWORD index,
                                 SP_DEVICE_INTERFACE_DATA *interfaceData);
BOOL SetupDiGetDeviceInterfaceDetailA(HDEVINFO set, SP_DEVICE_INTERFACE_DATA *interfaceData,
                                      SP_DEVICE_INTERFACE_DETAIL_DATA_A *detail, DWORD size, DWORD *requiredSize,
                                      SP_DEVINFO_DATA *device);
BOOL SetupDiClassNameFromGuidA(const GUID *classGuid, char *name, DWORD size, DWORD *requiredSize);
CONFIGRET CM_Get_Parent(DEVINST *parent, DEVINST child, DWORD flags);
CONFIGRET CM_Get_Device_ID_Size(DWORD *length, DEVINST device, DWORD flags);
CONFIGRET CM_Get_Device_IDA(DEVINST device, char *buffer, DWORD length, DWORD flags);

// --- Set-up library: drivers -------------------------------------------------------------------------------------

BOOL SetupDiGetDeviceInstallParamsA(HDEVINFO set, SP_DEVINFO_DATA *device, SP_DEVINSTALL_PARAMS_A *parameters);
BOOL SetupDiSetDeviceInstallParamsA(HDEVINFO set, SP_DEVINFO_DATA *device, SP_DEVINSTALL_PARAMS_A *parameters);
BOOL SetupDiBuildDriverInfoList(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD driverType);
BOOL SetupDiEnumDriverInfoA(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD driverType, DWORD index,
                            SP_DRVINFO_DATA_A *driver);
// Asked without a buffer and with size 0, reports success with the size needed (on Windows the pass-through turns the
// insufficient-buffer answer into that success, since the caller reads the detail only then).
BOOL SetupDiGetDriverInfoDetailA(HDEVINFO set, SP_DEVINFO_DATA *device, SP_DRVINFO_DATA_A *driver,
                                 SP_DRVINFO_DETAIL_DATA_A *detail, DWORD size, DWORD *requiredSize);

}  // namespace platform

#ifdef _WIN32
#include "platform/win32/calls.h"
#endif
