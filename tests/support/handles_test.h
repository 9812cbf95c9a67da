// Tests of the described machine's handles: every one that is opened is closed again.
#pragma once

#include "platform/machine/base/handles.h"
#include "tests/support/test_machine.h"

class HandlesTest : public MachineTest {
 protected:
  HandlesTest() : handlesBefore(machine::OpenHandles()) {}
  ~HandlesTest() override { EXPECT_EQ(machine::OpenHandles(), handlesBefore); }

  // NO_ERROR when the file, disk or volume could be opened, which also closes it again.
  static DWORD OpenError(const char *name, DWORD access, DWORD disposition, DWORD attributes = 0) {
    const HANDLE handle = platform::CreateFileA(name, access, 0, nullptr, disposition, attributes, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return platform::GetLastError();
    EXPECT_TRUE(platform::CloseHandle(handle));
    return NO_ERROR;
  }

  std::size_t handlesBefore;
};
