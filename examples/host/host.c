/* A host of vxrcore.dll, step by step: what a backup product does with it at backup time and after a restore.
 *
 *   host DIRECTORY
 *
 * DIRECTORY is the host's own: product\ with master.ini and logs.dir\ (the product's install directory), drivers\ with
 * INF files, map.ini and includes.ini of a backup. It gets machine.bme, and the log of each step as STEP.log. Prints a
 * line for what was done and what came back, and judges nothing: the exit status tells only whether the library could
 * be loaded. Writes below HKEY_LOCAL_MACHINE, so it wants an administrator; it changes no disk. */
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <windows.h>

#include "vxrcore/bmext.h"
#include "vxrcore/vxrcore.h"

#define PRODUCT_KEY "SOFTWARE\\Varnelt\\Halcyra"
#define JOB_KEY "SOFTWARE\\Varnelt\\Relmar\\7"
enum { kJob = 7, kLoads = 50, kMostText = 1024 };

static const char *work; /* DIRECTORY */

static void FormPath(char (*path)[MAX_PATH], const char *name) { snprintf(*path, MAX_PATH, "%s\\%s", work, name); }

/* --- The library -------------------------------------------------------------------------------------------------- */

typedef struct Library {
  HMODULE module;
  int32_t (*DbgInitialize)(int32_t level, int32_t flags, void *window);
  int32_t (*DbgCleanup)(void);
  void (*DbgSetLevel)(uint32_t level);
  int32_t (*Initialize)(uint32_t inject, uint32_t job);
  int32_t (*Cleanup)(void);
  int32_t (*FileExists)(const char *path);
  uint32_t (*RunVXR)(uint32_t job, uint32_t inject, void *header, void *window);
  int32_t (*FixBootVolume)(const char *disk);
  uint32_t (*CreateBMExtFile)(const char *extension, const char *includes, const char *map);
  int32_t (*QueryData)(uint32_t queryClass, uint32_t query, uint8_t *out, uint32_t *outSize, const int32_t *in,
                       uint32_t inValue, const void *head);
} Library;

static const struct {
  const char *name;
  size_t offset; /* of its pointer in Library */
} kFunctions[] = {
    {"VXRDbg_Initialize", offsetof(Library, DbgInitialize)},
    {"VXRDbg_Cleanup", offsetof(Library, DbgCleanup)},
    {"VXRDbg_SetLevel", offsetof(Library, DbgSetLevel)},
    {"VXREng_Initialize", offsetof(Library, Initialize)},
    {"VXREng_Cleanup", offsetof(Library, Cleanup)},
    {"VXREng_FileExists", offsetof(Library, FileExists)},
    {"VXREng_RunVXR", offsetof(Library, RunVXR)},
    {"VXREng_FixBootVolume", offsetof(Library, FixBootVolume)},
    {"VXREng_CreateBMExtFile", offsetof(Library, CreateBMExtFile)},
    {"VXRExt_QueryData", offsetof(Library, QueryData)},
};

/* Loads vxrcore.dll, which is looked for beside this program first. 0 after a message. */
static int Load(Library *vxr) {
  vxr->module = LoadLibraryA("vxrcore.dll");
  if (vxr->module == NULL) {
    fprintf(stderr, "host: vxrcore.dll cannot be loaded (error %lu); put it beside host.exe\n", GetLastError());
    return 0;
  }
  for (size_t i = 0; i < sizeof kFunctions / sizeof *kFunctions; ++i) {
    const FARPROC function = GetProcAddress(vxr->module, kFunctions[i].name);
    if (function == NULL) {
      fprintf(stderr, "host: vxrcore.dll has no %s; it is of another version\n", kFunctions[i].name);
      return 0;
    }
    memcpy((char *)vxr + kFunctions[i].offset, &function, sizeof function);
  }
  return 1;
}

/* What loading and unloading costs; the library is not loaded before and after. The best of several, since other programs
 * take time too. */
static void ShowLoadTime(void) {
  LARGE_INTEGER frequency, before, after;
  LONGLONG best = MAXLONGLONG;
  QueryPerformanceFrequency(&frequency);
  for (int i = 0; i < kLoads; ++i) {
    QueryPerformanceCounter(&before);
    const HMODULE module = LoadLibraryA("vxrcore.dll");
    if (module != NULL) FreeLibrary(module);
    QueryPerformanceCounter(&after);
    if (after.QuadPart - before.QuadPart < best) best = after.QuadPart - before.QuadPart;
  }
  printf("load: best of %d loads and unloads: %.3f ms\n", kLoads, 1000.0 * (double)best / (double)frequency.QuadPart);
}

/* --- Windows that show what the library says ---------------------------------------------------------------------- */

/* The library sets a window's text for every line; this kind prints them, behind the name it was made with. */
static LRESULT CALLBACK OnMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message != WM_SETTEXT) return DefWindowProcA(window, message, wParam, lParam);
  const char *text = (const char *)lParam, *name = (const char *)GetWindowLongPtrA(window, GWLP_USERDATA);
  printf("%s: %.*s\n", name, (int)strcspn(text, "\n"), text);
  return TRUE;
}

static HWND MakeWindow(const char *name) {
  WNDCLASSA type = {.lpfnWndProc = OnMessage, .lpszClassName = "vxr host"};
  RegisterClassA(&type);
  const HWND window = CreateWindowA("vxr host", "", 0, 0, 0, 0, 0, HWND_MESSAGE, NULL, NULL, NULL);
  if (window != NULL) SetWindowLongPtrA(window, GWLP_USERDATA, (LONG_PTR)name);
  return window;
}

/* --- Settings ----------------------------------------------------------------------------------------------------- */

static void SetValue(const char *key, const char *name, DWORD type, const void *data, size_t size) {
  HKEY handle;
  LSTATUS status = RegCreateKeyExA(HKEY_LOCAL_MACHINE, key, 0, NULL, 0, KEY_WRITE, NULL, &handle, NULL);
  if (status == ERROR_SUCCESS) {
    status = RegSetValueExA(handle, name, 0, type, data, (DWORD)size);
    RegCloseKey(handle);
  }
  if (status != ERROR_SUCCESS) printf("settings: %s %s: error %ld\n", key, name, status);
}

static void SetText(const char *key, const char *name, const char *text) {
  printf("settings: %s %s = %s\n", key, name, text);
  SetValue(key, name, REG_SZ, text, strlen(text) + 1);
}

static void SetNumber(const char *key, const char *name, DWORD number) {
  printf("settings: %s %s = %lu\n", key, name, number);
  SetValue(key, name, REG_DWORD, &number, sizeof number);
}

/* What a restore job needs beside the directory with drivers. */
static void WriteJob(void) {
  RegDeleteKeyA(HKEY_LOCAL_MACHINE, JOB_KEY);
  SetText(JOB_KEY, "Disk", "\\\\.\\PhysicalDrive0");
  SetText(JOB_KEY, "BootPart", "\\\\.\\PhysicalDrive0\\Partition1");
  SetText(JOB_KEY, "RootPath", "R:\\");
}

/* --- The log ------------------------------------------------------------------------------------------------------ */

/* The size of the day's log, complete once the log is closed; its path in `path`. 0 without a log. */
static DWORD FindLog(char (*path)[MAX_PATH]) {
  WIN32_FIND_DATAA found;
  FormPath(path, "product\\logs.dir\\*-vxr-*.log");
  const HANDLE search = FindFirstFileA(*path, &found);
  if (search == INVALID_HANDLE_VALUE) return 0;
  FindClose(search);
  snprintf(*path, MAX_PATH, "%s\\product\\logs.dir\\%s", work, found.cFileName);
  return found.nFileSizeLow;
}

/* Ends the log and puts its file away, which the next line that the library logs would empty. */
static void KeepLog(const Library *vxr, const char *step) {
  char from[MAX_PATH], to[MAX_PATH];
  vxr->DbgCleanup();
  FindLog(&from);
  snprintf(to, sizeof to, "%s\\%s.log", work, step);
  printf("%s: log %s\n", step, MoveFileExA(from, to, MOVEFILE_REPLACE_EXISTING) ? "kept" : "not kept");
}

static void ShowLog(const Library *vxr) {
  char path[MAX_PATH];
  const HWND window = MakeWindow("log window");
  /* The level is what master.ini says; 1 holds only without it. */
  printf("log: VXRDbg_Initialize: %d\n", vxr->DbgInitialize(1, 0, window));
  printf("log: VXREng_FileExists: %d\n", vxr->FileExists(work));
  FormPath(&path, "no such file");
  printf("log: VXREng_FileExists, a missing file: %d\n", vxr->FileExists(path));
  vxr->DbgSetLevel(0);
  printf("log: VXRDbg_Cleanup: %d\n", vxr->DbgCleanup());
  printf("log: log of %lu bytes\n", FindLog(&path));
  vxr->DbgInitialize(1, 0, NULL);
  vxr->DbgCleanup();
  printf("log: started again, %lu bytes\n", FindLog(&path));
  KeepLog(vxr, "log");
  DestroyWindow(window);
}

/* --- Backup time: record this machine, ask the file --------------------------------------------------------------- */

enum Kind { kNumber, kText, kBytes };

static const struct {
  uint32_t queryClass, code;
  enum Kind kind;
  const char *name;
} kQueries[] = {
    {VXREQ_System, VXREQS_BootMedia, kNumber, "system BootMedia"},
    {VXREQ_System, VXREQS_SystemPath, kText, "system SystemPath"},
    {VXREQ_System, VXREQS_WindowsPath, kText, "system WindowsPath"},
    {VXREQ_System, VXREQS_SysOs, kBytes, "system SysOs"},
    {VXREQ_Network, VXREQN_Name, kText, "network Name"},
    {VXREQ_Architect, VXREQA_KernelType, kNumber, "architect KernelType"},
    {VXREQ_Architect, VXREQA_HalType, kNumber, "architect HalType"},
    {VXREQ_Volume, VXREQV_VolCount, kNumber, "volume VolCount"},
    {VXREQ_Volume, VXREQV_SystVolInd, kNumber, "volume SystVolInd"},
    {VXREQ_Volume, VXREQV_BootVolInd, kNumber, "volume BootVolInd"},
    {VXREQ_Volume, VXREQV_MntPnt, kText, "volume MntPnt"},
    {VXREQ_Volume, VXREQV_BMName, kText, "volume BMName"},
    {VXREQ_Volume, VXREQV_Label, kText, "volume Label"},
    {VXREQ_Volume, VXREQV_FSName, kText, "volume FSName"},
    {VXREQ_Volume, VXREQV_Serial, kNumber, "volume Serial"},
    {VXREQ_Volume, VXREQV_DiskCount, kNumber, "volume DiskCount"},
    {VXREQ_Volume, VXREQV_DiskDriver | VXREQV_DiskNumber, kNumber, "volume DiskNumber"},
    {VXREQ_Volume, VXREQV_CtrlDriver | VXREQV_DiskInstanceId, kText, "volume DiskInstanceId of the controller"},
};

/* Asks about the first volume and its first disk. */
static void ShowAnswer(const Library *vxr, const uint8_t *image, size_t query) {
  uint8_t answer[kMostText];
  uint32_t size = 0;
  const int32_t disk = 0;
  const uint32_t queryClass = kQueries[query].queryClass, code = kQueries[query].code;
  /* No room gets the size alone, unless the answer is empty. */
  vxr->QueryData(queryClass, code, NULL, &size, &disk, 0, image);
  const int tooLong = size > sizeof answer;
  printf("query: %s: ", kQueries[query].name);
  if (tooLong || !vxr->QueryData(queryClass, code, answer, &size, &disk, 0, image)) {
    printf("no answer\n");
  } else if (kQueries[query].kind == kText) {
    printf("\"%.*s\"\n", (int)size, (const char *)answer); /* answers bring no terminator */
  } else if (kQueries[query].kind == kNumber && size == sizeof(VXR_LE32)) {
    VXR_LE32 number;
    memcpy(&number, answer, sizeof number);
    printf("%u\n", VxrGet32(number));
  } else {
    for (uint32_t i = 0; i < size; ++i) printf("%02X", answer[i]);
    printf("\n");
  }
}

/* The extension file's bytes; null when it is not there or not whole. To be freed. */
static uint8_t *ReadExtension(const char *path) {
  uint8_t *image = malloc(VXR_EXT_FILE_SIZE);
  FILE *file = fopen(path, "rb");
  const size_t size = image != NULL && file != NULL ? fread(image, 1, VXR_EXT_FILE_SIZE, file) : 0;
  if (file != NULL) fclose(file);
  if (size == VXR_EXT_FILE_SIZE) return image;
  free(image);
  return NULL;
}

/* Gives the image for the steps after the restore; null when the machine could not be recorded. To be freed. */
static uint8_t *Backup(const Library *vxr) {
  char extension[MAX_PATH], includes[MAX_PATH], map[MAX_PATH];
  FormPath(&extension, "machine.bme");
  FormPath(&includes, "includes.ini");
  FormPath(&map, "map.ini");
  printf("create: VXREng_CreateBMExtFile: %u\n", vxr->CreateBMExtFile(extension, includes, map));
  KeepLog(vxr, "create");
  uint8_t *image = ReadExtension(extension);
  for (size_t i = 0; image != NULL && i < sizeof kQueries / sizeof *kQueries; ++i) ShowAnswer(vxr, image, i);
  KeepLog(vxr, "query");
  return image;
}

/* What the file is to say, asked of the system itself. */
static void ShowSystem(void) {
  OSVERSIONINFOEXA version = {.dwOSVersionInfoSize = sizeof version};
  MEMORYSTATUSEX memory = {.dwLength = sizeof memory};
  SYSTEM_INFO system;
  char name[MAX_COMPUTERNAME_LENGTH + 1] = "", directory[MAX_PATH] = "", drives[kMostText] = "";
  DWORD size = sizeof name;
  GetVersionExA((OSVERSIONINFOA *)&version);
  GlobalMemoryStatusEx(&memory);
  GetSystemInfo(&system);
  GetComputerNameA(name, &size);
  GetSystemDirectoryA(directory, sizeof directory);
  printf("system: version %lu.%lu.%lu platform %lu pack %u.%u suite %u product %u\n", version.dwMajorVersion,
         version.dwMinorVersion, version.dwBuildNumber, version.dwPlatformId, version.wServicePackMajor,
         version.wServicePackMinor, version.wSuiteMask, version.wProductType);
  printf("system: memory %llu processors %lu architecture %u\n", memory.ullTotalPhys, system.dwNumberOfProcessors,
         system.wProcessorArchitecture);
  printf("system: computer %s directory %s\n", name, directory);
  GetLogicalDriveStringsA(sizeof drives, drives);
  for (const char *root = drives; *root != '\0'; root += strlen(root) + 1) {
    printf("system: drive %s type %u\n", root, GetDriveTypeA(root));
  }
}

/* --- After a restore ---------------------------------------------------------------------------------------------- */

/* Which of the INF files has a driver for one id, for a Windows 5.2 on amd64 of which no extension file tells? Nothing
 * is copied or installed. */
static void CheckHardwareId(const Library *vxr, const char *hardwareId) {
  char path[MAX_PATH];
  WIN32_FIND_DATAA found;
  WriteJob();
  SetNumber(JOB_KEY, "OSVerMaj", 5);
  SetNumber(JOB_KEY, "OSVerMin", 2);
  SetNumber(JOB_KEY, "HAL", PROCESSOR_ARCHITECTURE_AMD64);
  SetText(JOB_KEY, "HardwareID", hardwareId);
  FormPath(&path, "drivers\\*.inf");
  const HANDLE search = FindFirstFileA(path, &found);
  for (BOOL more = search != INVALID_HANDLE_VALUE; more; more = FindNextFileA(search, &found)) {
    snprintf(path, sizeof path, "%s\\drivers\\%s", work, found.cFileName);
    SetText(JOB_KEY, "InfDir", path);
    printf("check: %s in %s: %u\n", hardwareId, found.cFileName, vxr->RunVXR(kJob, 0, NULL, NULL));
  }
  if (search != INVALID_HANDLE_VALUE) FindClose(search);
  KeepLog(vxr, "check");
}

/* Would all drivers be found for the boot disk's controllers? The restored system is not touched. */
static void Verify(const Library *vxr, uint8_t *image) {
  char drivers[MAX_PATH];
  const HWND window = MakeWindow("status");
  WriteJob();
  FormPath(&drivers, "drivers");
  SetText(JOB_KEY, "InfDir", drivers);
  printf("verify: VXREng_RunVXR: %u\n", vxr->RunVXR(kJob, 0, image, window));
  KeepLog(vxr, "verify");
  DestroyWindow(window);
}

int main(int argc, char **argv) {
  Library vxr = {0};
  char product[MAX_PATH];
  if (argc != 2) {
    fprintf(stderr, "usage: host DIRECTORY\n");
    return 2;
  }
  work = argv[1];
  ShowLoadTime();
  if (!Load(&vxr)) return 1;
  FormPath(&product, "product");
  SetText(PRODUCT_KEY, "HCDIR", product);
  ShowLog(&vxr);
  printf("engine: VXREng_Initialize: %d\n", vxr.Initialize(0, kJob));
  printf("engine: VXREng_Cleanup: %d\n", vxr.Cleanup());
  KeepLog(&vxr, "engine");
  ShowSystem();
  uint8_t *image = Backup(&vxr);
  CheckHardwareId(&vxr, "PCI\\VEN_1000&DEV_0030");
  Verify(&vxr, image);
  free(image);
  printf("boot sector: VXREng_FixBootVolume: %d\n", vxr.FixBootVolume("\\\\.\\PhysicalDrive99"));
  KeepLog(&vxr, "boot");
  FreeLibrary(vxr.module);
  return 0;
}
