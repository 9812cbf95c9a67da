// Each call of platform.h, passed to Windows as it is: inlined, so that it costs nothing. Where more is done, the
// comment says why.
#pragma once

namespace platform {

// Releases run on the way out of a failure, before somebody logs its reason, which the set-up library and the registry
// do not promise to leave alone. Kernel objects do: there a release that goes well leaves the last error as it was.
struct KeptError {
  DWORD code = ::GetLastError();
  ~KeptError() { ::SetLastError(code); }
};

// --- Errors, heap, code page of texts ------------------------------------------------------------------------------

inline DWORD GetLastError() { return ::GetLastError(); }
inline void SetLastError(DWORD code) { ::SetLastError(code); }
inline HANDLE GetProcessHeap() { return ::GetProcessHeap(); }

// Windows leaves the last error unset when memory runs out, and we log it.
inline void *HeapAlloc(HANDLE heap, DWORD flags, SIZE_T size) {
  void *memory = ::HeapAlloc(heap, flags, size);
  if (memory == nullptr) ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return memory;
}

inline BOOL HeapFree(HANDLE heap, DWORD flags, void *memory) { return ::HeapFree(heap, flags, memory); }
inline BOOL IsDBCSLeadByte(BYTE byte) { return ::IsDBCSLeadByte(byte); }
inline UINT GetACP() { return ::GetACP(); }
inline DWORD CharUpperBuffA(char *text, DWORD length) { return ::CharUpperBuffA(text, length); }
inline DWORD CharLowerBuffA(char *text, DWORD length) { return ::CharLowerBuffA(text, length); }

// A system whose code page is UTF-8 takes no flags, and lacks no character.
inline int WideCharToMultiByte(UINT codePage, DWORD flags, const WCHAR *wide, int length, char *buffer, int size,
                               const char *replacement, BOOL *replaced) {
  if (::GetACP() == CP_UTF8) flags = 0;
  return ::WideCharToMultiByte(codePage, flags, wide, length, buffer, size, replacement, replaced);
}

// --- Registry ------------------------------------------------------------------------------------------------------

inline LSTATUS RegOpenKeyA(HKEY root, const char *subKey, HKEY *key) { return ::RegOpenKeyA(root, subKey, key); }
inline LSTATUS RegCreateKeyA(HKEY root, const char *subKey, HKEY *key) { return ::RegCreateKeyA(root, subKey, key); }

inline LSTATUS RegQueryValueExA(HKEY key, const char *valueName, DWORD *reserved, DWORD *type, BYTE *data,
                                DWORD *size) {
  return ::RegQueryValueExA(key, valueName, reserved, type, data, size);
}

inline LSTATUS RegSetValueExA(HKEY key, const char *valueName, DWORD reserved, DWORD type, const BYTE *data,
                              DWORD size) {
  return ::RegSetValueExA(key, valueName, reserved, type, data, size);
}

inline LSTATUS RegEnumKeyExA(HKEY key, DWORD index, char *name, DWORD *length, DWORD *reserved, char *className,
                             DWORD *classLength, FILETIME *written) {
  return ::RegEnumKeyExA(key, index, name, length, reserved, className, classLength, written);
}

inline LSTATUS RegEnumValueA(HKEY key, DWORD index, char *name, DWORD *length, DWORD *reserved, DWORD *type, BYTE *data,
                             DWORD *size) {
  return ::RegEnumValueA(key, index, name, length, reserved, type, data, size);
}

inline LSTATUS RegDeleteKeyA(HKEY root, const char *subKey) { return ::RegDeleteKeyA(root, subKey); }
inline LSTATUS RegDeleteValueA(HKEY key, const char *valueName) { return ::RegDeleteValueA(key, valueName); }

inline LSTATUS RegCloseKey(HKEY key) {
  const KeptError kept;
  return ::RegCloseKey(key);
}

// --- Processes -----------------------------------------------------------------------------------------------------

inline BOOL CreateProcessA(const char *application, char *commandLine, void *processSecurity, void *threadSecurity,
                           BOOL inheritHandles, DWORD flags, void *environment, const char *directory,
                           STARTUPINFOA *startup, PROCESS_INFORMATION *process) {
  return ::CreateProcessA(application, commandLine, static_cast<SECURITY_ATTRIBUTES *>(processSecurity),
                          static_cast<SECURITY_ATTRIBUTES *>(threadSecurity), inheritHandles, flags, environment,
                          directory, startup, process);
}

inline DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  return ::WaitForSingleObject(handle, milliseconds);
}

inline BOOL GetExitCodeProcess(HANDLE process, DWORD *exitCode) { return ::GetExitCodeProcess(process, exitCode); }

// --- Files ---------------------------------------------------------------------------------------------------------

inline HANDLE CreateFileA(const char *name, DWORD access, DWORD share, void *security, DWORD disposition, DWORD flags,
                          HANDLE templateFile) {
  return ::CreateFileA(name, access, share, static_cast<SECURITY_ATTRIBUTES *>(security), disposition, flags,
                       templateFile);
}

inline BOOL CloseHandle(HANDLE handle) { return ::CloseHandle(handle); }
inline DWORD GetFileSize(HANDLE file, DWORD *sizeHigh) { return ::GetFileSize(file, sizeHigh); }

inline BOOL ReadFile(HANDLE file, void *buffer, DWORD size, DWORD *read, void *overlapped) {
  return ::ReadFile(file, buffer, size, read, static_cast<OVERLAPPED *>(overlapped));
}

inline BOOL WriteFile(HANDLE file, const void *buffer, DWORD size, DWORD *written, void *overlapped) {
  return ::WriteFile(file, buffer, size, written, static_cast<OVERLAPPED *>(overlapped));
}

// A move that succeeds leaves the last error as it was, which a position whose low half is INVALID_SET_FILE_POINTER
// must not be judged by.
inline DWORD SetFilePointer(HANDLE file, LONG distance, LONG *distanceHigh, DWORD method) {
  ::SetLastError(NO_ERROR);
  return ::SetFilePointer(file, distance, distanceHigh, method);
}

inline BOOL FlushFileBuffers(HANDLE file) { return ::FlushFileBuffers(file); }

inline BOOL DeviceIoControl(HANDLE device, DWORD code, void *in, DWORD inSize, void *out, DWORD outSize,
                            DWORD *returned, void *overlapped) {
  return ::DeviceIoControl(device, code, in, inSize, out, outSize, returned, static_cast<OVERLAPPED *>(overlapped));
}

// A mapping of that name made by somebody else would be given instead of ours, over another file: refused.
inline HANDLE CreateFileMappingA(HANDLE file, void *security, DWORD protect, DWORD sizeHigh, DWORD sizeLow,
                                 const char *name) {
  const HANDLE mapping =
      ::CreateFileMappingA(file, static_cast<SECURITY_ATTRIBUTES *>(security), protect, sizeHigh, sizeLow, name);
  if (mapping == nullptr || ::GetLastError() != ERROR_ALREADY_EXISTS) return mapping;
  ::CloseHandle(mapping);
  ::SetLastError(ERROR_ALREADY_EXISTS);
  return nullptr;
}

inline void *MapViewOfFile(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow, SIZE_T length) {
  return ::MapViewOfFile(mapping, access, offsetHigh, offsetLow, length);
}

inline BOOL UnmapViewOfFile(const void *view) { return ::UnmapViewOfFile(view); }
inline DWORD GetFileAttributesA(const char *name) { return ::GetFileAttributesA(name); }
inline BOOL SetFileAttributesA(const char *name, DWORD attributes) { return ::SetFileAttributesA(name, attributes); }

inline BOOL GetFileAttributesExA(const char *name, GET_FILEEX_INFO_LEVELS level, void *data) {
  return ::GetFileAttributesExA(name, level, data);
}

inline BOOL CopyFileA(const char *source, const char *target, BOOL failIfExists) {
  return ::CopyFileA(source, target, failIfExists);
}

inline BOOL CreateDirectoryA(const char *name, void *security) {
  return ::CreateDirectoryA(name, static_cast<SECURITY_ATTRIBUTES *>(security));
}

inline BOOL GetDiskFreeSpaceExA(const char *directory, ULARGE_INTEGER *available, ULARGE_INTEGER *total,
                                ULARGE_INTEGER *totalFree) {
  return ::GetDiskFreeSpaceExA(directory, available, total, totalFree);
}

inline HANDLE FindFirstFileA(const char *pattern, WIN32_FIND_DATAA *data) { return ::FindFirstFileA(pattern, data); }
inline BOOL FindNextFileA(HANDLE search, WIN32_FIND_DATAA *data) { return ::FindNextFileA(search, data); }
inline BOOL FindClose(HANDLE search) { return ::FindClose(search); }

// --- Settings files ------------------------------------------------------------------------------------------------

inline UINT GetPrivateProfileIntA(const char *section, const char *key, int fallback, const char *file) {
  return ::GetPrivateProfileIntA(section, key, fallback, file);
}

inline DWORD GetPrivateProfileStringA(const char *section, const char *key, const char *fallback, char *buffer,
                                      DWORD size, const char *file) {
  return ::GetPrivateProfileStringA(section, key, fallback, buffer, size, file);
}

inline BOOL WritePrivateProfileStringA(const char *section, const char *key, const char *value, const char *file) {
  return ::WritePrivateProfileStringA(section, key, value, file);
}

// --- Version resources ---------------------------------------------------------------------------------------------

// A file without version resource has no resource section at all or, on Windows from 6.0 on with an error of its own,
// none of that type. It is one fact to us, for which the logic has one error.
inline DWORD GetFileVersionInfoSizeA(const char *file, DWORD *handle) {
  const DWORD size = ::GetFileVersionInfoSizeA(file, handle);
  if (size == 0 && ::GetLastError() == ERROR_RESOURCE_TYPE_NOT_FOUND) ::SetLastError(ERROR_RESOURCE_DATA_NOT_FOUND);
  return size;
}

inline BOOL GetFileVersionInfoA(const char *file, DWORD handle, DWORD size, void *block) {
  return ::GetFileVersionInfoA(file, handle, size, block);
}

inline BOOL VerQueryValueA(const void *block, const char *subBlock, void **value, UINT *length) {
  return ::VerQueryValueA(block, subBlock, value, length);
}

// --- User interaction ----------------------------------------------------------------------------------------------

inline void OutputDebugStringA(const char *text) { ::OutputDebugStringA(text); }
inline void ReportDecision(DWORD, const char *, const char *, DWORD, DWORD64, const char *) {}
inline void ReportValue(DWORD, const char *, const char *, DWORD, const BYTE *, DWORD) {}
inline void ReportError(const char *, const char *, const char *, DWORD) {}
inline BOOL SetWindowTextA(HWND window, const char *text) { return ::SetWindowTextA(window, text); }
inline int GetWindowTextLengthA(HWND window) { return ::GetWindowTextLengthA(window); }

inline LRESULT SendMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  return ::SendMessageA(window, message, wParam, lParam);
}

inline int MessageBoxA(HWND owner, const char *text, const char *caption, UINT type) {
  return ::MessageBoxA(owner, text, caption, type);
}

inline UINT SetupPromptForDiskA(HWND owner, const char *title, const char *diskName, const char *pathToSource,
                                const char *fileSought, const char *tagFile, DWORD style, char *pathBuffer,
                                DWORD pathBufferSize, DWORD *requiredSize) {
  return ::SetupPromptForDiskA(owner, title, diskName, pathToSource, fileSought, tagFile, style, pathBuffer,
                               pathBufferSize, requiredSize);
}

// --- Machine facts -------------------------------------------------------------------------------------------------

inline UINT GetSystemDirectoryA(char *buffer, UINT size) { return ::GetSystemDirectoryA(buffer, size); }
inline UINT GetWindowsDirectoryA(char *buffer, UINT size) { return ::GetWindowsDirectoryA(buffer, size); }
inline UINT GetSystemWindowsDirectoryA(char *buffer, UINT size) { return ::GetSystemWindowsDirectoryA(buffer, size); }
inline UINT GetDriveTypeA(const char *root) { return ::GetDriveTypeA(root); }
inline BOOL GlobalMemoryStatusEx(MEMORYSTATUSEX *status) { return ::GlobalMemoryStatusEx(status); }

inline BOOL GetVersionExA(OSVERSIONINFOEXA *version) {
  return ::GetVersionExA(reinterpret_cast<OSVERSIONINFOA *>(version));
}

inline BOOL GetComputerNameA(char *buffer, DWORD *size) { return ::GetComputerNameA(buffer, size); }

inline BOOL GetComputerNameExA(COMPUTER_NAME_FORMAT format, char *buffer, DWORD *size) {
  return ::GetComputerNameExA(format, buffer, size);
}

inline void GetSystemInfo(SYSTEM_INFO *info) { ::GetSystemInfo(info); }
inline void GetSystemTime(SYSTEMTIME *time) { ::GetSystemTime(time); }

inline BOOL FileTimeToSystemTime(const FILETIME *fileTime, SYSTEMTIME *systemTime) {
  return ::FileTimeToSystemTime(fileTime, systemTime);
}

// --- Volumes -------------------------------------------------------------------------------------------------------

inline DWORD GetLogicalDriveStringsA(DWORD size, char *buffer) { return ::GetLogicalDriveStringsA(size, buffer); }

inline BOOL GetVolumeInformationA(const char *root, char *label, DWORD labelSize, DWORD *serial, DWORD *maxComponent,
                                  DWORD *flags, char *fileSystem, DWORD fileSystemSize) {
  return ::GetVolumeInformationA(root, label, labelSize, serial, maxComponent, flags, fileSystem, fileSystemSize);
}

inline BOOL GetVolumeNameForVolumeMountPointA(const char *mountPoint, char *name, DWORD size) {
  return ::GetVolumeNameForVolumeMountPointA(mountPoint, name, size);
}

// --- Set-up library: INF files -------------------------------------------------------------------------------------

inline HINF SetupOpenInfFileA(const char *fileName, const char *infClass, DWORD style, UINT *errorLine) {
  return ::SetupOpenInfFileA(fileName, infClass, style, errorLine);
}

inline void SetupCloseInfFile(HINF inf) {
  const KeptError kept;
  ::SetupCloseInfFile(inf);
}

inline BOOL SetupFindFirstLineA(HINF inf, const char *section, const char *key, INFCONTEXT *context) {
  return ::SetupFindFirstLineA(inf, section, key, context);
}

inline BOOL SetupFindNextLine(INFCONTEXT *contextIn, INFCONTEXT *contextOut) {
  return ::SetupFindNextLine(contextIn, contextOut);
}

inline DWORD SetupGetFieldCount(INFCONTEXT *context) { return ::SetupGetFieldCount(context); }

inline BOOL SetupGetStringFieldA(INFCONTEXT *context, DWORD index, char *buffer, DWORD size, DWORD *requiredSize) {
  return ::SetupGetStringFieldA(context, index, buffer, size, requiredSize);
}

inline BOOL SetupGetMultiSzFieldA(INFCONTEXT *context, DWORD index, char *buffer, DWORD size, DWORD *requiredSize) {
  return ::SetupGetMultiSzFieldA(context, index, buffer, size, requiredSize);
}

inline BOOL SetupGetIntField(INFCONTEXT *context, DWORD index, int *value) {
  return ::SetupGetIntField(context, index, value);
}

inline BOOL SetupGetBinaryField(INFCONTEXT *context, DWORD index, BYTE *buffer, DWORD size, DWORD *requiredSize) {
  return ::SetupGetBinaryField(context, index, buffer, size, requiredSize);
}

inline BOOL SetupGetInfFileListA(const char *directory, DWORD style, char *buffer, DWORD size, DWORD *requiredSize) {
  return ::SetupGetInfFileListA(directory, style, buffer, size, requiredSize);
}

inline BOOL SetupGetInfInformationA(const void *infSpec, DWORD searchControl, SP_INF_INFORMATION *buffer, DWORD size,
                                    DWORD *requiredSize) {
  return ::SetupGetInfInformationA(infSpec, searchControl, buffer, size, requiredSize);
}

inline BOOL SetupQueryInfVersionInformationA(SP_INF_INFORMATION *information, UINT infIndex, const char *key,
                                             char *buffer, DWORD size, DWORD *requiredSize) {
  return ::SetupQueryInfVersionInformationA(information, infIndex, key, buffer, size, requiredSize);
}

// --- Set-up library: devices ---------------------------------------------------------------------------------------

inline HDEVINFO SetupDiGetClassDevsA(const GUID *classGuid, const char *enumerator, HWND owner, DWORD flags) {
  return ::SetupDiGetClassDevsA(classGuid, enumerator, owner, flags);
}

inline BOOL SetupDiDestroyDeviceInfoList(HDEVINFO set) {
  const DWORD before = ::GetLastError();
  if (!::SetupDiDestroyDeviceInfoList(set)) return FALSE;
  ::SetLastError(before);
  return TRUE;
}

inline BOOL SetupDiEnumDeviceInfo(HDEVINFO set, DWORD index, SP_DEVINFO_DATA *device) {
  return ::SetupDiEnumDeviceInfo(set, index, device);
}

inline BOOL SetupDiGetDeviceInstanceIdA(HDEVINFO set, SP_DEVINFO_DATA *device, char *buffer, DWORD size,
                                        DWORD *requiredSize) {
  return ::SetupDiGetDeviceInstanceIdA(set, device, buffer, size, requiredSize);
}

inline BOOL SetupDiGetDeviceRegistryPropertyA(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD property, DWORD *type,
                                              BYTE *buffer, DWORD size, DWORD *requiredSize) {
  return ::SetupDiGetDeviceRegistryPropertyA(set, device, property, type, buffer, size, requiredSize);
}

inline BOOL SetupDiEnumDeviceInterfaces(HDEVINFO set, SP_DEVINFO_DATA *device, const GUID *interfaceGuid, DWORD index,
                                        SP_DEVICE_INTERFACE_DATA *interfaceData) {
  return ::SetupDiEnumDeviceInterfaces(set, device, interfaceGuid, index, interfaceData);
}

inline BOOL SetupDiGetDeviceInterfaceDetailA(HDEVINFO set, SP_DEVICE_INTERFACE_DATA *interfaceData,
                                             SP_DEVICE_INTERFACE_DETAIL_DATA_A *detail, DWORD size, DWORD *requiredSize,
                                             SP_DEVINFO_DATA *device) {
  return ::SetupDiGetDeviceInterfaceDetailA(set, interfaceData, detail, size, requiredSize, device);
}

inline BOOL SetupDiClassNameFromGuidA(const GUID *classGuid, char *name, DWORD size, DWORD *requiredSize) {
  return ::SetupDiClassNameFromGuidA(classGuid, name, size, requiredSize);
}

inline CONFIGRET CM_Get_Parent(DEVINST *parent, DEVINST child, DWORD flags) {
  return ::CM_Get_Parent(parent, child, flags);
}

inline CONFIGRET CM_Get_Device_ID_Size(DWORD *length, DEVINST device, DWORD flags) {
  return ::CM_Get_Device_ID_Size(length, device, flags);
}

inline CONFIGRET CM_Get_Device_IDA(DEVINST device, char *buffer, DWORD length, DWORD flags) {
  return ::CM_Get_Device_IDA(device, buffer, length, flags);
}

// --- Set-up library: drivers ---------------------------------------------------------------------------------------

inline BOOL SetupDiGetDeviceInstallParamsA(HDEVINFO set, SP_DEVINFO_DATA *device, SP_DEVINSTALL_PARAMS_A *parameters) {
  return ::SetupDiGetDeviceInstallParamsA(set, device, parameters);
}

inline BOOL SetupDiSetDeviceInstallParamsA(HDEVINFO set, SP_DEVINFO_DATA *device, SP_DEVINSTALL_PARAMS_A *parameters) {
  return ::SetupDiSetDeviceInstallParamsA(set, device, parameters);
}

inline BOOL SetupDiBuildDriverInfoList(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD driverType) {
  return ::SetupDiBuildDriverInfoList(set, device, driverType);
}

inline BOOL SetupDiEnumDriverInfoA(HDEVINFO set, SP_DEVINFO_DATA *device, DWORD driverType, DWORD index,
                                   SP_DRVINFO_DATA_A *driver) {
  return ::SetupDiEnumDriverInfoA(set, device, driverType, index, driver);
}

// Windows answers the question for the size alone with ERROR_INSUFFICIENT_BUFFER; the callers wait for a success.
inline BOOL SetupDiGetDriverInfoDetailA(HDEVINFO set, SP_DEVINFO_DATA *device, SP_DRVINFO_DATA_A *driver,
                                        SP_DRVINFO_DETAIL_DATA_A *detail, DWORD size, DWORD *requiredSize) {
  const BOOL answered = ::SetupDiGetDriverInfoDetailA(set, device, driver, detail, size, requiredSize);
  const bool sizeAlone = detail == nullptr && size == 0 && requiredSize != nullptr;
  return answered || (sizeAlone && ::GetLastError() == ERROR_INSUFFICIENT_BUFFER);
}

}  // namespace platform
