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
#include "platform/machine/types.h"
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
// Case conversion by the ANSI code page, in place; return the count of bytes processed.
DWORD CharUpperBuffA(char *text, DWORD length);
DWORD CharLowerBuffA(char *text, DWORD length);

// --- Registry (HKEY_LOCAL_MACHINE only) --------------------------------------------------------------------------

// These return the error code and do not promise to set GetLastError.
LSTATUS RegOpenKeyA(HKEY root, const char *subKey, HKEY *key);
LSTATUS RegCreateKeyA(HKEY root, const char *subKey, HKEY *key);
// With null `data` stores the size alone. REG_SZ, REG_EXPAND_SZ and REG_MULTI_SZ are converted to the ANSI code page
// and sized in ANSI bytes; other types are raw. A stored text without terminator comes back without one.
LSTATUS RegQueryValueExA(HKEY key, const char *valueName, DWORD *reserved, DWORD *type, BYTE *data, DWORD *size);
LSTATUS RegSetValueExA(HKEY key, const char *valueName, DWORD reserved, DWORD type, const BYTE *data, DWORD size);
LSTATUS RegCloseKey(HKEY key);

// --- Processes ---------------------------------------------------------------------------------------------------

// The described machine answers `reg.exe LOAD|UNLOAD` and `cmd.exe /c copy /y`; any other command line fails to start
// with error 2.
BOOL CreateProcessA(const char *application, char *commandLine, void *processSecurity, void *threadSecurity,
                    BOOL inheritHandles, DWORD flags, void *environment, const char *directory, STARTUPINFOA *startup,
                    PROCESS_INFORMATION *process);
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
BOOL GetExitCodeProcess(HANDLE process, DWORD *exitCode);

// --- Files -------------------------------------------------------------------------------------------------------

// Opens a file, a disk ("\\.\PhysicalDriveN") or a device interface path. Returns INVALID_HANDLE_VALUE on failure.
HANDLE CreateFileA(const char *name, DWORD access, DWORD share, void *security, DWORD disposition, DWORD flags,
                   HANDLE templateFile);
BOOL CloseHandle(HANDLE handle);
DWORD GetFileSize(HANDLE file, DWORD *sizeHigh);
BOOL DeviceIoControl(HANDLE device, DWORD code, void *in, DWORD inSize, void *out, DWORD outSize, DWORD *returned,
                     void *overlapped);
HANDLE CreateFileMappingA(HANDLE file, void *security, DWORD protect, DWORD sizeHigh, DWORD sizeLow, const char *name);
void *MapViewOfFile(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow, SIZE_T length);
BOOL UnmapViewOfFile(const void *view);
DWORD GetFileAttributesA(const char *name);
BOOL SetFileAttributesA(const char *name, DWORD attributes);
// Copies contents and attributes, replacing `target` when `failIfExists` is FALSE. On failure an old target is whole.
BOOL CopyFileA(const char *source, const char *target, BOOL failIfExists);
// The last component may hold wildcards. We take the first match only, and of its data name, size and whether it is a
// directory.
HANDLE FindFirstFileA(const char *pattern, WIN32_FIND_DATAA *data);
BOOL FindClose(HANDLE search);
// fopen by Windows path, always in binary mode, so that line ends reach the file as they are written. `mode` is "r",
// "w" or "a", with or without "+". Null on failure, with the last error set; the caller closes the stream with fclose.
std::FILE *OpenStream(const char *name, const char *mode);

// --- Settings files ----------------------------------------------------------------------------------------------

UINT GetPrivateProfileIntA(const char *section, const char *key, int fallback, const char *file);

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

// --- Machine facts -----------------------------------------------------------------------------------------------

// With a buffer too small (or null and 0) return the size needed, terminator included; else the length written.
UINT GetSystemDirectoryA(char *buffer, UINT size);
UINT GetWindowsDirectoryA(char *buffer, UINT size);
UINT GetDriveTypeA(const char *root);
BOOL GlobalMemoryStatusEx(MEMORYSTATUSEX *status);
void GetSystemInfo(SYSTEM_INFO *info);
void GetSystemTime(SYSTEMTIME *time);
BOOL FileTimeToSystemTime(const FILETIME *fileTime, SYSTEMTIME *systemTime);
// The host's first command-line argument (argv[0]), or null when there is none. Never freed by the caller.
const char *GetProgramName();

// --- Set-up library: INF files -----------------------------------------------------------------------------------

HINF SetupOpenInfFileA(const char *fileName, const char *infClass, DWORD style, UINT *errorLine);
void SetupCloseInfFile(HINF inf);
BOOL SetupFindFirstLineA(HINF inf, const char *section, const char *key, INFCONTEXT *context);
BOOL SetupFindNextLine(INFCONTEXT *contextIn, INFCONTEXT *contextOut);
DWORD SetupGetFieldCount(INFCONTEXT *context);
// Each stores the size needed in `*requiredSize`; with a null buffer and size 0 that alone is a success.
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
