#include "registry/values.h"

#include "platform/machine/registry/registry.h"
#include "tests/support/test_machine.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class Values : public MachineTest {
 protected:
  ~Values() override { EXPECT_EQ(machine::OpenKeys(), 0u); }
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

}  // namespace
