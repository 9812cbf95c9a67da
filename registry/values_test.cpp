#include "registry/values.h"

#include "platform/machine/base/fault.h"
#include "platform/machine/registry/registry.h"
#include "tests/support/test_machine.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class Values : public MachineTest {
 protected:
  ~Values() override { EXPECT_EQ(machine::OpenKeys(), 0u); }

  // The lines of the log that are not of the levels' calls below: those that `function` wrote.
  std::vector<std::string> LinesOf(const std::string &function) const {
    std::vector<std::string> lines;
    for (size_t start = 0, end; (end = log.find('\n', start)) != std::string::npos; start = end + 1) {
      const std::string line = log.substr(start, end - start);
      const size_t colon = line.find(':');
      if (colon != std::string::npos && line.compare(colon + 1, function.size() + 1, function + ":") == 0) {
        lines.push_back(line.substr(0, colon) + line.substr(colon + 1 + function.size()));
      }
    }
    return lines;
  }
};

std::string Name(BOOL live, DWORD type, const char *subkey) {
  const HeapText name = VXRReg_GetKeyNameByType(live, type, subkey);
  return name == nullptr ? "(null)" : name.get();
}

TEST_F(Values, KeyNamesFollowTheControlSet) {
  Open(R"([registry.'SYSTEM\Select']
Current = 3
[registry.'SYSTEM_ORG\Select']
Current = 2
)");
  const struct {
    DWORD type;
    const char *subkey, *name;
  } cases[] = {
      {VXR_KEY_SYSTEM, nullptr, "SYSTEM"},
      {VXR_KEY_CCS, nullptr, "SYSTEM\\CurrentControlSet"},
      {VXR_KEY_CLASS, "a", "SYSTEM\\CurrentControlSet\\Control\\Class\\a"},
      {VXR_KEY_CRITDEVDB, "", "SYSTEM\\CurrentControlSet\\Control\\CriticalDeviceDatabase\\"},
      {VXR_KEY_SERVICES, nullptr, "SYSTEM\\CurrentControlSet\\Services"},
      {VXR_KEY_ENUM, "PCI\\x%d", "SYSTEM\\CurrentControlSet\\ENUM\\PCI\\x%d"},
      {VXR_KEY_ORG_SYSTEM, "Select", "SYSTEM_ORG\\Select"},
      {VXR_KEY_ORG_CCS, nullptr, "SYSTEM_ORG\\ControlSet002"},
      {VXR_KEY_ORG_CLASS, nullptr, "SYSTEM_ORG\\ControlSet002\\Control\\Class"},
      {VXR_KEY_ORG_CRITDEVDB, "a", "SYSTEM_ORG\\ControlSet002\\Control\\CriticalDeviceDatabase\\a"},
      {VXR_KEY_ORG_SERVICES, "abc", "SYSTEM_ORG\\ControlSet002\\Services\\abc"},
      {VXR_KEY_ORG_ENUM, nullptr, "SYSTEM_ORG\\ControlSet002\\ENUM"},
      {12, nullptr, "(null)"},
      {0xFFFFFFFF, "a", "(null)"},
  };
  for (const auto &c : cases) EXPECT_EQ(Name(FALSE, c.type, c.subkey), c.name) << c.type;
  EXPECT_EQ(Name(TRUE, VXR_KEY_ORG_CCS, nullptr), "SYSTEM_ORG\\ControlSet003") << "the caller says whose index is read";
}

TEST_F(Values, ControlSetIsTheFirstWhenSelectNamesNone) {
  const struct {
    const char *current;
    DWORD index;
    const char *services;
  } cases[] = {
      {"Other = 2", 1, "SYSTEM_ORG\\ControlSet001\\Services\\abc"},
      {"Current = 0", 1, "SYSTEM_ORG\\ControlSet001\\Services\\abc"},
      {"Current = 10", 10, "SYSTEM_ORG\\ControlSet010\\Services\\abc"},
      {"Current = 999", 999, "SYSTEM_ORG\\ControlSet999\\Services\\abc"},
      {"Current = 1000", 1, "SYSTEM_ORG\\ControlSet001\\Services\\abc"},
      {"Current = 0xFFFFFFFF", 1, "SYSTEM_ORG\\ControlSet001\\Services\\abc"},
      {"Current = { type = 4, hex = '02 00' }", 1, "SYSTEM_ORG\\ControlSet001\\Services\\abc"},
      {"Current = { type = 3, hex = '02 00 00 00 05' }", 2, "SYSTEM_ORG\\ControlSet002\\Services\\abc"},
  };
  for (const auto &c : cases) {
    Open(std::string("[registry.'SYSTEM_ORG\\Select']\n") + c.current + "\n");
    EXPECT_EQ(VXRReg_GetControlSetIndex(FALSE), c.index) << c.current;
    EXPECT_EQ(Name(FALSE, VXR_KEY_ORG_SERVICES, "abc"), c.services) << c.current;
    EXPECT_EQ(VXRReg_GetControlSetIndex(TRUE), 1u);
    Close();
  }
}

TEST_F(Values, ReadsAValueWithTwoSpareBytes) {
  Open(R"([registry.'SOFTWARE\Maker']
Bare = { type = 1, hex = '41 00 42 00' }
Empty = { type = 3, hex = '' }
)");
  DWORD type = 9, size = 9;
  HeapText data = VXRReg_GetRegistryValue(HKEY_LOCAL_MACHINE, "SOFTWARE\\Maker", "Bare", &type, &size);
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(std::string(data.get(), 4), std::string("AB\0\0", 4));
  EXPECT_EQ(type, DWORD(REG_SZ));
  EXPECT_EQ(size, 2u);
  data = VXRReg_GetRegistryValue(HKEY_LOCAL_MACHINE, "SOFTWARE\\Maker", "Empty", &type, &size);
  EXPECT_NE(data, nullptr);
  EXPECT_EQ(type, DWORD(REG_BINARY));
  EXPECT_EQ(size, 0u);
}

TEST_F(Values, AFailedReadGivesNothingAndSaysWhy) {
  const struct {
    const char *key, *value, *fault;
    unsigned nth;
    const char *line;
  } cases[] = {
      {"SOFTWARE\\None", "a", nullptr, 1, "ERROR:RegOpenKey(SOFTWARE\\None) failed!rc=2:ec=2"},
      {"SOFTWARE\\Maker", "b", nullptr, 1, "ERROR:RegQueryValueEx(SOFTWARE\\Maker\\b) failed for size !rc=2 ec=2"},
      {"SOFTWARE\\Maker", "a", "RegQueryValueExA", 2, "ERROR:RegQueryValue(SOFTWARE\\Maker\\a) failed!rc=5 ec=5"},
      {"SOFTWARE\\Maker", "a", "HeapAlloc", 1, "ERROR:HeapAlloc() failed for 2 bytes!ec=5"},
  };
  Open("[registry.'SOFTWARE\\Maker']\na = 'x'\n");
  VXRReg_GetControlSetIndex(TRUE);  // the log's own start is over
  for (const auto &c : cases) {
    log.clear();
    machine::SetFaultPlan({c.fault, c.nth, false, ERROR_ACCESS_DENIED});
    DWORD type = 9, size = 9;
    EXPECT_EQ(VXRReg_GetRegistryValue(HKEY_LOCAL_MACHINE, c.key, c.value, &type, &size), nullptr);
    machine::SetFaultPlan({});
    EXPECT_EQ(type, 0u);
    EXPECT_EQ(size, 0u);
    const std::vector<std::string> lines = LinesOf("VXRReg_GetRegistryValue");
    EXPECT_THAT(lines, testing::Contains(c.line));
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[lines.size() - 2], "FLUSH:_LEAVE_:return=0000000000000000:type=0:size=0");
  }
}

TEST_F(Values, WritesAValueAndMakesItsKey) {
  Open();
  VXRReg_GetControlSetIndex(TRUE);
  log.clear();
  EXPECT_TRUE(VXRReg_SetRegistryValue(HKEY_LOCAL_MACHINE, "SOFTWARE\\New\\Key", "Text", "abc", REG_SZ, 4));
  EXPECT_THAT(log, HasSubstr("RegOpenKey(SOFTWARE\\New\\Key) failed!create it..."));
  log.clear();
  EXPECT_TRUE(VXRReg_SetRegistryValue(HKEY_LOCAL_MACHINE, "SOFTWARE\\New\\Key", "Text", "de", REG_SZ, 3));
  EXPECT_THAT(log, Not(HasSubstr("create it")));
  DWORD type = 0, size = 0;
  const HeapText data = VXRReg_GetRegistryValue(HKEY_LOCAL_MACHINE, "SOFTWARE\\New\\Key", "Text", &type, &size);
  ASSERT_NE(data, nullptr);
  EXPECT_STREQ(data.get(), "de");

  const struct {
    const char *fault, *line;
  } faults[] = {{"RegCreateKeyA", "ERROR:RegCreateKey(SOFTWARE\\Other) failed!rc=31 ec=31"},
                {"RegSetValueExA", "ERROR:RegSetValueEx(SOFTWARE\\Other\\Text) failed!rc=31 ec=31"}};
  for (const auto &f : faults) {
    log.clear();
    machine::SetFaultPlan({f.fault, 1, false, ERROR_GEN_FAILURE});
    EXPECT_FALSE(VXRReg_SetRegistryValue(HKEY_LOCAL_MACHINE, "SOFTWARE\\Other", "Text", "abc", REG_SZ, 4));
    machine::SetFaultPlan({});
    EXPECT_THAT(LinesOf("VXRReg_SetRegistryValue"), testing::Contains(f.line));
  }
}

}  // namespace
