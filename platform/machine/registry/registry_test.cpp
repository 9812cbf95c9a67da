// The registry calls over values in memory and over the running system's hives.
#include "platform/machine/registry/registry.h"

#include "platform/machine/base/fault.h"
#include "tests/support/hive_builder.h"
#include "tests/support/standard_machine.h"
#include "tests/support/test_machine.h"

namespace {

using platform::RegCloseKey;
using platform::RegCreateKeyA;
using platform::RegOpenKeyA;
using platform::RegQueryValueExA;
using platform::RegSetValueExA;
using testing::HasSubstr;

const std::string kNoKey = "(no key)", kNoValue = "(no value)";

// The bytes that the ANSI call gives for a value.
std::string Read(const std::string &key, const char *name, DWORD *type = nullptr) {
  HKEY handle = nullptr;
  if (RegOpenKeyA(HKEY_LOCAL_MACHINE, key.c_str(), &handle) != ERROR_SUCCESS) return kNoKey;
  DWORD size = 0;
  std::string data = kNoValue;
  if (RegQueryValueExA(handle, name, nullptr, type, nullptr, &size) == ERROR_SUCCESS) {
    data.assign(size, '?');
    EXPECT_EQ(RegQueryValueExA(handle, name, nullptr, type, reinterpret_cast<BYTE *>(data.data()), &size),
              ERROR_SUCCESS);
    EXPECT_EQ(size, data.size());
  }
  EXPECT_EQ(RegCloseKey(handle), ERROR_SUCCESS);
  return data;
}

LSTATUS Write(const std::string &key, const char *name, DWORD type, const std::string &data) {
  HKEY handle = nullptr;
  LSTATUS status = RegCreateKeyA(HKEY_LOCAL_MACHINE, key.c_str(), &handle);
  if (status != ERROR_SUCCESS) return status;
  status = RegSetValueExA(handle, name, 0, type, reinterpret_cast<const BYTE *>(data.data()),
                          static_cast<DWORD>(data.size()));
  EXPECT_EQ(RegCloseKey(handle), ERROR_SUCCESS);
  return status;
}

std::string Text(const char *text) { return std::string(text) + '\0'; }

class Registry : public MachineTest {
 protected:
  ~Registry() override { EXPECT_EQ(machine::OpenKeys(), 0u); }

  std::string HiveToml(const std::string &key, const std::vector<HiveValue> &values) {
    WriteHive(Host(key + ".hive"), values);
    return "[[hive]]\nkey = '" + key + "'\nfile = '" + key + ".hive'\n";
  }
};

TEST_F(Registry, CurrentControlSetLeadsWhereSelectSays) {
  const struct {
    const char *select;
    const char *leadsTo;
  } cases[] = {
      {"", "ControlSet001"},
      {"[registry.'SYSTEM\\Select']\nCurrent = 2\n", "ControlSet002"},
      {"[registry.'SYSTEM\\Select']\nCurrent = 12\n", "ControlSet012"},
      {"[registry.'SYSTEM\\Select']\nCurrent = 0\n", "ControlSet001"},
      {"[registry.'SYSTEM\\Select']\nCurrent = 70000\n", "ControlSet001"},
      {"[registry.'SYSTEM\\Select']\nCurrent = { type = 4, hex = '02' }\n", "ControlSet001"},
  };
  for (const auto &c : cases) {
    Open(std::string("[registry.'SYSTEM\\CurrentControlSet\\Control\\Early']\nWhere = 'here'\n") + c.select);
    const std::string real = std::string("SYSTEM\\") + c.leadsTo;
    EXPECT_EQ(Read(real + "\\Control\\Early", "Where"), Text("here")) << c.select;
    EXPECT_EQ(Write("System\\currentcontrolset\\Control\\Late", "Where", REG_SZ, Text("there")), ERROR_SUCCESS);
    EXPECT_EQ(Read(real + "\\Control\\Late", "Where"), Text("there")) << c.select;
    Close();
  }
  Open(HiveToml("SYSTEM", SystemHiveValues(2)));
  ASSERT_EQ(Write("SYSTEM\\CurrentControlSet\\Services\\new", "Start", REG_SZ, Text("x")), ERROR_SUCCESS);
  EXPECT_EQ(Read("SYSTEM\\ControlSet002\\Services\\new", "Start"), Text("x"));
  EXPECT_EQ(Read("SYSTEM\\ControlSet001\\Services\\new", "Start"), kNoKey);
}

TEST_F(Registry, OverlayWinsOverTheHiveAndKeepsItsWrites) {
  const std::string toml =
      HiveToml("SOFTWARE", {TextValue("Maker", "Over", "hive"), TextValue("Maker", "Under", "hive")}) +
      "[registry.'SOFTWARE\\Maker']\nOver = 'overlay'\n";
  Open(toml);
  EXPECT_EQ(Read("SOFTWARE\\Maker", "Over"), Text("overlay"));
  EXPECT_EQ(Read("SOFTWARE\\Maker", "Under"), Text("hive"));
  EXPECT_EQ(Write("SOFTWARE\\Maker", "over", REG_SZ, Text("changed")), ERROR_SUCCESS);
  EXPECT_EQ(Read("SOFTWARE\\Maker", "Over"), Text("changed"));
  const std::string before = ReadFile("SOFTWARE.hive");
  Close();
  EXPECT_EQ(ReadFile("SOFTWARE.hive"), before) << "a value laid over the hive went into it";

  Open(toml);
  EXPECT_EQ(Write("SOFTWARE\\Maker", "Under", REG_SZ, Text("changed")), ERROR_SUCCESS);
  EXPECT_EQ(Write("SOFTWARE\\Maker\\New\\Deep", "Number", REG_DWORD, std::string("\1\0\0\0", 4)), ERROR_SUCCESS);
  EXPECT_EQ(Read("SOFTWARE\\Maker", "Under"), Text("changed"));
  EXPECT_EQ(ReadFile("SOFTWARE.hive"), before) << "a hive is saved when the machine closes";
  Close();
  Open(toml);
  EXPECT_EQ(Read("SOFTWARE\\Maker", "Over"), Text("overlay"));
  EXPECT_EQ(Read("SOFTWARE\\Maker", "Under"), Text("changed"));
  EXPECT_EQ(Read("SOFTWARE\\Maker\\New\\Deep", "Number"), std::string("\1\0\0\0", 4));
  std::vector<std::string> written;
  for (const MachineEvent &event : events) {
    if (event.kind == VXRMACHINE_VALUE_WRITTEN) written.push_back(event.subject + ": " + event.detail);
  }
  EXPECT_THAT(written, testing::ElementsAre("SOFTWARE\\Maker: over", "SOFTWARE\\Maker: Under",
                                            "SOFTWARE\\Maker\\New\\Deep: Number"));
}

TEST_F(Registry, HiveNamesAreUnicodeAndHaveNoCase) {
  Open(HiveToml("SOFTWARE", {TextValue("Gr\xC3\xB6\xC3\x9F"
                                       "e",
                                       "\xC3\xA4rger", "latin"),
                             TextValue("\xD0\x96\xD0\xB6", "name", "cyrillic"), TextValue("Maker", "", "default value"),
                             TextValue("Maker", "smile", "\xF0\x9F\x98\x80")}));
  EXPECT_EQ(Read("SOFTWARE\\GR\xD6\xDF"
                 "E",
                 "\xC4RGER"),
            Text("latin"));
  EXPECT_EQ(Read("SOFTWARE\\??", "name"), kNoKey) << "a question mark stands for no letter";
  EXPECT_EQ(Read("SOFTWARE\\Maker", ""), Text("default value"));
  EXPECT_EQ(Read("SOFTWARE\\Maker", nullptr), Text("default value"));
  EXPECT_EQ(Read("SOFTWARE\\\\Maker\\", "smile").back(), '\0');
}

TEST_F(Registry, ConvertsTwoByteTexts) {
  Open("[registry.'SOFTWARE\\Maker']\nText = \"\xE8\xA1\xA8\"\n", std::string(kStandardSystem) + "code_page = 932\n");
  // The second byte of this character is a backslash's.
  const std::string twoBytes = "\x95\x5C";
  EXPECT_EQ(Read("SOFTWARE\\Maker", "Text"), Text(twoBytes.c_str()));
  EXPECT_EQ(Write("SOFTWARE\\Maker\\" + twoBytes, twoBytes.c_str(), REG_SZ, Text(twoBytes.c_str())), ERROR_SUCCESS);
  EXPECT_EQ(Read("SOFTWARE\\Maker\\" + twoBytes, twoBytes.c_str()), Text(twoBytes.c_str()));
}

TEST_F(Registry, ARehearsalIsTakenBack) {
  Open(HiveToml("SOFTWARE", {TextValue("Maker", "Old", "as it was")}) + "[registry.'SYSTEM\\Here']\nNumber = 7\n");
  const std::string before = ReadFile("SOFTWARE.hive");
  ASSERT_TRUE(VXRMachine_Rehearse(1));
  EXPECT_EQ(Write("SOFTWARE\\Maker", "Old", REG_SZ, Text("new")), ERROR_SUCCESS);
  EXPECT_EQ(Write("SYSTEM\\Here", "Number", REG_SZ, Text("new")), ERROR_SUCCESS);
  EXPECT_EQ(Read("SOFTWARE\\Maker", "Old"), Text("new"));
  WriteHive(Host("restored/OTHER"), {TextValue("Key", "Value", "text")});
  ASSERT_EQ(machine::MountHive("OTHER", "D:\\OTHER"), 0);
  EXPECT_FALSE(events.empty());
  ASSERT_TRUE(VXRMachine_Rehearse(0));
  EXPECT_EQ(Read("SOFTWARE\\Maker", "Old"), Text("as it was"));
  EXPECT_EQ(Read("SYSTEM\\Here", "Number").size(), 4u);
  EXPECT_EQ(Read("OTHER\\Key", "Value"), kNoKey) << "a hive stays mounted";
  ASSERT_EQ(machine::MountHive("OTHER", "D:\\OTHER"), 0);
  EXPECT_FALSE(VXRMachine_Rehearse(1)) << "what is mounted has changes to be saved";
  Close();
  EXPECT_EQ(ReadFile("SOFTWARE.hive"), before);
  EXPECT_FALSE(VXRMachine_Rehearse(1)) << "without a machine";
}

}  // namespace
