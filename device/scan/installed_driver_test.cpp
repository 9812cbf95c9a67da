#include "device/scan/installed_driver.h"

#include "device/records.h"
#include "device/scan/file_facts.h"
#include "tests/support/test_machine.h"

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr char kInf[] = R"([Version]
Signature = "$Windows NT$"
Class = SCSIAdapter
ClassGUID = {4D36E97B-E325-11CE-BFC1-08002BE10318}
Provider = Maker
[Manufacturer]
Maker = Models, NTamd64
[Models.NTamd64]
Adapter = Install, *FAST
[Install]
)";

std::string Device(const std::string &instance, const std::string &more) {
  return "\n[[device]]\ninstance = '" + instance + "'\nclass = 'SCSIAdapter'\nhardware_ids = ['*FAST']\n" + more;
}

std::string Service(const std::string &name, const std::string &values) {
  return "\n[registry.'SYSTEM\\CurrentControlSet\\Services\\" + name + "']\n" + values;
}

class InstalledDriver : public MachineTest {
 protected:
  InstalledDriver() {
    WriteFile("ram/Windows/inf/fast.inf", kInf);
    WriteFile("ram/Windows/System32/drivers/fast.sys", "no executable");
  }
  std::string Record(const char *sought) {
    record = {};
    log.clear();
    const HeapText parent = VXRDev_GetVXRDevDriver(VXR_DEVTYPE_SCSIADAPTER, sought, &record);
    return parent == nullptr ? "" : parent.get();
  }
  VXR_DEVDRV record = {};
};

constexpr char kBus[] = "\n[[device]]\ninstance = 'ROOT\\BUS\\0'\nclass = 'Net'\n";
constexpr char kParent[] = "parent = 'ROOT\\BUS\\0'\nservice = 'fast'\n";
constexpr char kWholeService[] = "Type = 1\nStart = 3\nImagePath = 'system32\\drivers\\fast.sys'\n";

TEST_F(InstalledDriver, EachDeviceThatTheIdBeginsWithIsTriedUntilOneHasAParent) {
  Open(kBus + Device(R"(PCI\VEN_1\2)", "service = 'fast'\nparent = 'ROOT\\BUS\\0'\n") +
       Device(R"(PCI\VEN_2\2)", "service = 'fast'\n") + Device(R"(PCI\VEN_2\23)", "parent = 'ROOT\\BUS\\0'\n") +
       Device(R"(PCI\VEN_2\234)", kParent) + Device(R"(PCI\VEN_2\23456)", kParent) + Service("fast", kWholeService));
  // The id sought is the longer one; the device's own spelling is recorded.
  EXPECT_EQ(Record(R"(pci\ven_1\2&more)"), R"(ROOT\BUS\0)");
  EXPECT_STREQ(record.InstanceID, R"(PCI\VEN_1\2)");
  EXPECT_EQ(VxrGet32(record.DeviceType), uint32_t{VXR_DEVTYPE_SCSIADAPTER});
  // \2 has no parent, \23 no service; \234 fills the record again; \23456 is longer than what is sought.
  EXPECT_EQ(Record(R"(PCI\VEN_2\2345)"), R"(ROOT\BUS\0)");
  EXPECT_STREQ(record.InstanceID, R"(PCI\VEN_2\234)");
  EXPECT_THAT(log, HasSubstr("ERROR:VXRDev_GetVXRDevDriverDetail:VXRDev_GetRegPropByDevInfo():failed!"));
  // Known, but without a parent there is no next device to go on to.
  EXPECT_EQ(Record(R"(PCI\VEN_2\2)"), "");
  EXPECT_STREQ(record.InstanceID, R"(PCI\VEN_2\2)");
  EXPECT_EQ(Record(R"(PCI\VEN_1)"), "");
  EXPECT_EQ(record.InstanceID[0], '\0');
  EXPECT_EQ(VxrGet32(record.DeviceType), 0u);
  EXPECT_EQ(VxrGet32(record.DevGuid.Data1), 0x4D36E97Bu);
}

TEST_F(InstalledDriver, ServiceValuesAsFarAsTheyGo) {
  const std::string image = "ImagePath = 'x.sys'\n";
  struct {
    const char *what;
    std::string values;
    bool known;
    uint32_t type, start, tag;
    std::string group, logged;
  } const rows[] = {
      {"all", "Type = 1\nStart = 3\nTag = 7\nGroup = 'G'\n" + image, true, 1, 3, 7, "G", ""},
      {"neither group nor tag", "Type = 1\nStart = 3\n" + image, true, 1, 3, 0, "", "msg=Tag\n"},
      {"no image path", "Type = 1\nStart = 3\nTag = 7\n", false, 1, 3, 0, "", "msg=ImagePath\n"},
      {"no start", "Type = 1\n" + image, false, 1, 0, 0, "", "msg=Start\n"},
      {"no type", "Start = 3\n" + image, false, 0, 0, 0, "", "msg=Type\n"},
      {"short and long numbers",
       "Type = { type = 3, hex = '05' }\nStart = { type = 3, hex = '' }\nTag = { type = 11, hex = '01 02 03 04 05 06' "
       "}\n" +
           image,
       true, 5, 0, 0x04030201, "", ""},
      {"long group", "Type = 1\nStart = 3\nGroup = '" + std::string(80, 'g') + "'\n" + image, true, 1, 3, 0,
       std::string(63, 'g'), ""},
  };
  const std::string name(40, 's');
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    Open(kBus + Device(R"(PCI\VEN_1\2)", "parent = 'ROOT\\BUS\\0'\nservice = '" + name + "'\n") +
         Service(name, row.values));
    EXPECT_EQ(Record(R"(PCI\VEN_1\2)") != "", row.known);
    EXPECT_EQ(record.Service.Name, name.substr(0, 31));
    EXPECT_EQ(VxrGet32(record.Service.Type), row.type);
    EXPECT_EQ(VxrGet32(record.Service.Start), row.start);
    EXPECT_EQ(VxrGet32(record.Service.Tag), row.tag);
    EXPECT_EQ(record.Service.Group, row.group);
    EXPECT_EQ(record.InstanceID[0] != '\0', row.known);
    EXPECT_STREQ(record.InfFile.FileName, R"(X:\Windows\inf\fast.inf)");
    EXPECT_STREQ(record.InfFile.Section, "Install");
    if (!row.logged.empty()) {
      EXPECT_THAT(log, HasSubstr("Detail:VXRReg_GetRegistryValue():failed!"));
      EXPECT_THAT(log, HasSubstr(row.logged));
    }
    Close();
  }
}

TEST_F(InstalledDriver, ImageIsSoughtBelowWindowsThenAmongTheDrivers) {
  struct {
    std::string path, found;
  } const rows[] = {
      {R"(system32\DRIVERS\fast.sys)", R"(X:\Windows\system32\DRIVERS\fast.sys)"},
      {"fast.sys", R"(X:\Windows\system32\drivers\fast.sys)"},
      {R"(\SystemRoot\System32\drivers\fast.sys)", ""},
      {R"(\??\X:\Windows\System32\drivers\fast.sys)", ""},
      {R"(X:\Windows\System32\drivers\fast.sys)", ""},
      {std::string(300, 'x'), ""},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.path);
    Open(kBus + Device(R"(PCI\VEN_1\2)", kParent) +
         Service("fast", "Type = 1\nStart = 0\nImagePath = '" + row.path + "'\n"));
    EXPECT_EQ(Record(R"(PCI\VEN_1\2)"), R"(ROOT\BUS\0)");
    EXPECT_EQ(record.Service.Image, row.path.substr(0, 259));
    EXPECT_EQ(record.ImgFile.FileName, row.found);
    EXPECT_EQ(VxrGet64(record.ImgFile.FileSize), row.found.empty() ? 0u : 13u);
    EXPECT_STREQ(record.Description, "Adapter");
    // A file without version resource is none that was found: the drivers folder is tried as well, in vain.
    EXPECT_THAT(log, HasSubstr("CHECK:VXRDev_GetVXRFileInfo:input file = " + row.path.substr(0, 259) + "\n"));
    EXPECT_THAT(log, Not(HasSubstr("GetFileVersionInfoSize():failed!")));
    Close();
  }
}

}  // namespace
