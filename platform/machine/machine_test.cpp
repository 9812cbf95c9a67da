
#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "platform/machine/base/errors.h"
#include "platform/machine/base/fault.h"
#include "platform/machine/description/current.h"
#include "platform/machine/description/records.h"
#include "platform/machine/files/paths.h"
#include "tests/support/standard_machine.h"
#include "tests/support/test_machine.h"

extern "C" {
int32_t OpenFromC(const char *file, char *message, uint32_t messageSize);
size_t ExtensionSizeFromC(void);
}

namespace {

using testing::HasSubstr;

struct OpeningTest : MachineTest {
  bool TryOpen(const char *name) {
    return VXRMachine_Open(name == nullptr ? nullptr : Host(name).c_str(), message, sizeof message) != 0;
  }
  char message[512] = "";
};

TEST_F(OpeningTest, OneMachineAtATime) {
  Open();
  const machine::Description *first = machine::Current();
  ASSERT_NE(first, nullptr);
  EXPECT_FALSE(TryOpen("machine.toml"));
  EXPECT_THAT(message, HasSubstr("a machine is open already"));
  EXPECT_EQ(machine::Current(), first);
  Close();
  EXPECT_EQ(machine::Current(), nullptr);
  EXPECT_TRUE(VXRMachine_Close()) << "closing without a machine is no failure";
  Open();
  EXPECT_NE(machine::Current(), nullptr);
}

TEST_F(OpeningTest, AFailureLeavesNoMachine) {
  EXPECT_FALSE(TryOpen(nullptr));
  EXPECT_THAT(message, HasSubstr("no machine file is named"));
  WriteFile("bad.toml", "[system]\ncode_page = 932\n");
  EXPECT_FALSE(TryOpen("bad.toml"));
  EXPECT_EQ(machine::Current(), nullptr);
  EXPECT_FALSE(platform::IsDBCSLeadByte(0x93));
  WriteFile("hive", "no hive");
  WriteFile("refused.toml", std::string(kLeastMachine) + "[[hive]]\nkey = 'SOFTWARE'\nfile = 'hive'\n");
  EXPECT_FALSE(TryOpen("refused.toml"));
  EXPECT_THAT(message, HasSubstr("hive"));
  EXPECT_EQ(machine::Current(), nullptr);
  char shortMessage[8];
  EXPECT_FALSE(VXRMachine_Open(Host("bad.toml").c_str(), shortMessage, sizeof shortMessage));
  EXPECT_EQ(std::string(shortMessage), Host("bad.toml").string().substr(0, 7));
  EXPECT_FALSE(VXRMachine_Open(Host("bad.toml").c_str(), nullptr, 0));
  Open();
}

TEST_F(OpeningTest, AMachineFromAText) {
  const std::string text = kLeastMachine;
  const auto tryText = [this](const std::string &toml) {
    return VXRMachine_OpenText(toml.c_str(), folder.c_str(), message, sizeof message) != 0;
  };
  ASSERT_TRUE(tryText(text)) << message;
  ASSERT_NE(machine::Current(), nullptr);
  EXPECT_EQ(machine::Current()->drives.at(0).path, Host("ram"));
  EXPECT_FALSE(tryText(text));
  EXPECT_THAT(message, HasSubstr("a machine is open already"));
  EXPECT_TRUE(VXRMachine_Close());

  EXPECT_FALSE(tryText(text + "colour = 1\n"));
  EXPECT_THAT(message, testing::StartsWith("machine:9: drive.colour: unknown key"));
  EXPECT_FALSE(tryText(text + "path = \n"));
  EXPECT_THAT(message, testing::StartsWith("machine:9: not TOML"));
  EXPECT_FALSE(VXRMachine_OpenText(nullptr, nullptr, message, sizeof message));
  EXPECT_THAT(message, HasSubstr("system: is missing"));
  EXPECT_EQ(machine::Current(), nullptr);
}

TEST_F(OpeningTest, CHostsAreServed) {
  EXPECT_EQ(ExtensionSizeFromC(), 80332u);
  EXPECT_FALSE(OpenFromC(Host("none.toml").c_str(), message, sizeof message));
  EXPECT_THAT(message, HasSubstr("there is no such file"));
}

TEST_F(OpeningTest, TheLogWorksWithoutAMachine) {
  platform::SetLastError(1234);
  platform::OutputDebugStringA("a line");
  platform::OutputDebugStringA(nullptr);
  EXPECT_EQ(log, "a line");
  EXPECT_EQ(platform::GetLastError(), 1234u);
}

// --- Heap and errors ------------------------------------------------------------------------------------------------

TEST(Heap, AllocatesZeroedMemory) {
  HANDLE heap = platform::GetProcessHeap();
  auto *bytes = static_cast<unsigned char *>(platform::HeapAlloc(heap, HEAP_ZERO_MEMORY, 4096));
  ASSERT_NE(bytes, nullptr);
  EXPECT_EQ(std::count(bytes, bytes + 4096, 0), 4096);
  EXPECT_TRUE(platform::HeapFree(heap, 0, bytes));
  void *empty = platform::HeapAlloc(heap, 0, 0);
  EXPECT_NE(empty, nullptr);
  EXPECT_TRUE(platform::HeapFree(heap, 0, empty));
  EXPECT_TRUE(platform::HeapFree(heap, 0, nullptr));
  for (SIZE_T size : {SIZE_T{1} << 62, ~SIZE_T{0}, SIZE_T{1} << 63}) {
    platform::SetLastError(0);
    EXPECT_EQ(platform::HeapAlloc(heap, HEAP_ZERO_MEMORY, size), nullptr);
    EXPECT_EQ(platform::GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
  }
  EXPECT_EQ(platform::HeapAlloc(nullptr, 0, 1), nullptr);
  EXPECT_EQ(platform::GetLastError(), ERROR_INVALID_HANDLE);
}

TEST(Errors, AnUnknownErrnoIsAFailureStill) {
  EXPECT_EQ(machine::ErrorFromErrno(ENOENT), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(machine::ErrorFromErrno(ENOSPC), ERROR_DISK_FULL);
  EXPECT_EQ(machine::ErrorFromErrno(EXDEV), ERROR_ACCESS_DENIED);
  EXPECT_EQ(machine::ErrorFromErrno(0), ERROR_GEN_FAILURE);
  EXPECT_EQ(machine::ErrorFromErrno(99999), ERROR_GEN_FAILURE);
}

// --- Faults ---------------------------------------------------------------------------------------------------------

// Which of six calls of a name fail, as digits.
std::string Failing(const char *call = "HeapAlloc") {
  std::string failing;
  for (char n = '1'; n <= '6'; n++) {
    if (machine::FaultPoint(call, 31)) failing += n;
  }
  return failing;
}

struct FaultTest : OpeningTest {};

TEST_F(FaultTest, PlansAsText) {
  struct {
    const char *text, *failing;
    DWORD error;
  } cases[] = {{"HeapAlloc:2", "2", 31},       {"HeapAlloc:4:once", "4", 31},
               {"HeapAlloc:5:on", "56", 31},   {"HeapAlloc:1:on:112", "123456", 112},
               {"HeapAlloc:3:0x70", "3", 112}, {"*:6", "6", 31},
               {"CopyFileA:1:on", "", 0},      {"HeapAlloc:7", "", 0}};
  for (const auto &c : cases) {
    ASSERT_TRUE(machine::SetFaultPlanFromText(c.text)) << c.text;
    platform::SetLastError(0);
    EXPECT_EQ(Failing(), c.failing) << c.text;
    EXPECT_EQ(platform::GetLastError(), c.error) << c.text;
    EXPECT_EQ(machine::FaultsMet(), std::string(c.failing).size()) << c.text;
  }
  EXPECT_EQ(machine::FaultCalls(), 6u);
  ASSERT_TRUE(machine::SetFaultPlanFromText("HeapAlloc:2"));
  for (const char *bad : {"", "HeapAlloc", ":1", "HeapAlloc:0", "HeapAlloc:x", "HeapAlloc:1:often", "HeapAlloc:1:5:on",
                          "HeapAlloc:1:on:5:6", "HeapAlloc:1:", "HeapAlloc:-1", "HeapAlloc:1:on:0x"}) {
    EXPECT_FALSE(machine::SetFaultPlanFromText(bad)) << bad;
  }
  EXPECT_EQ(Failing(), "2") << "a bad text leaves the plan";
}

TEST_F(FaultTest, TheVariableIsReadAtOpening) {
  setenv("VXR_FAULTS", "GetSystemDirectoryA:2:on:1009", 1);
  Open();
  unsetenv("VXR_FAULTS");
  EXPECT_NE(platform::GetSystemDirectoryA(nullptr, 0), 0u);
  EXPECT_EQ(platform::GetSystemDirectoryA(nullptr, 0), 0u);
  EXPECT_EQ(platform::GetLastError(), ERROR_BADDB);
  Close();
  setenv("VXR_FAULTS", "GetSystemDirectoryA", 1);
  EXPECT_FALSE(TryOpen("machine.toml"));
  unsetenv("VXR_FAULTS");
  EXPECT_STREQ(message, "VXR_FAULTS: \"GetSystemDirectoryA\" is not of the form NAME:N[:once|on][:ERROR]");
}

}  // namespace
