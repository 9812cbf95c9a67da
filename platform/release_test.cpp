// What lies between a failure and the line that logs it must not change the reason.
#include <functional>

#include "tests/support/test_machine.h"

namespace {

using ReleaseTest = MachineTest;

TEST_F(ReleaseTest, LastErrorSurvives) {
  Open();
  WriteFile("ram/some.inf", "[Version]\nSignature = \"$Windows NT$\"\n");
  const HINF inf = platform::SetupOpenInfFileA("X:\\some.inf", nullptr, INF_STYLE_WIN4, nullptr);
  const HDEVINFO set = platform::SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES);
  HKEY key = nullptr;
  ASSERT_EQ(platform::RegOpenKeyA(HKEY_LOCAL_MACHINE, "SOFTWARE", &key), ERROR_SUCCESS);
  WIN32_FIND_DATAA found;
  const HANDLE search = platform::FindFirstFileA("X:\\some.inf", &found);
  const HANDLE file = platform::CreateFileA("X:\\some.inf", GENERIC_ALL, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  const HANDLE mapping = platform::CreateFileMappingA(file, nullptr, PAGE_READWRITE, 0, 0, nullptr);
  const void *view = platform::MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0);
  void *memory = platform::HeapAlloc(platform::GetProcessHeap(), 0, 100000);
  ASSERT_TRUE(inf != INVALID_HANDLE_VALUE && set != INVALID_HANDLE_VALUE && search != INVALID_HANDLE_VALUE && view);
  const struct {
    const char *call;
    std::function<bool()> release;
  } cases[] = {{"SetupCloseInfFile", [&] { return platform::SetupCloseInfFile(inf), true; }},
               {"SetupDiDestroyDeviceInfoList", [&] { return platform::SetupDiDestroyDeviceInfoList(set) != FALSE; }},
               {"RegCloseKey", [&] { return platform::RegCloseKey(key) == ERROR_SUCCESS; }},
               {"FindClose", [&] { return platform::FindClose(search) != FALSE; }},
               {"UnmapViewOfFile", [&] { return platform::UnmapViewOfFile(view) != FALSE; }},
               {"CloseHandle of a mapping", [&] { return platform::CloseHandle(mapping) != FALSE; }},
               {"CloseHandle of a file", [&] { return platform::CloseHandle(file) != FALSE; }},
               {"HeapFree", [&] { return platform::HeapFree(platform::GetProcessHeap(), 0, memory) != FALSE; }}};
  for (const auto &c : cases) {
    platform::SetLastError(1234);
    EXPECT_TRUE(c.release()) << c.call;
    EXPECT_EQ(platform::GetLastError(), 1234u) << c.call;
  }
  EXPECT_EQ(OpenHandles(), 0u);
}

}  // namespace
