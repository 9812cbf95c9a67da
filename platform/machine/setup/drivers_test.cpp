// The driver lists of a device on a described machine.
#include <sys/stat.h>

#include <cstring>

#include "platform/machine/base/file_time.h"
#include "platform/machine/setup/device_set.h"
#include "platform/machine/setup/driver_version.h"
#include "tests/support/test_machine.h"

namespace {

using namespace platform;
using testing::ElementsAre;

constexpr char kVersion[] =
    "[Version]\nSignature=\"$Windows NT$\"\nProvider=%Maker%\nDriverVer=02/03/2015,1.2.3.4\n[Strings]\nMaker=Acme\n";

constexpr char kController[] = R"(
[[device]]
instance = 'SCSI\Other\1'
class = 'DiskDrive'
hardware_ids = ['SCSI\Other']

[[device]]
instance = 'PCI\VEN_1000\1'
class = 'SCSIAdapter'
hardware_ids = ['HW0', 'HW1', 'both']
compatible_ids = ['CO0', 'CO1', 'BOTH']

)";

struct ListedDriver {
  SP_DRVINFO_DATA_A data = {};
  std::vector<char> detailBytes;
  const SP_DRVINFO_DETAIL_DATA_A *Detail() const {
    return reinterpret_cast<const SP_DRVINFO_DETAIL_DATA_A *>(detailBytes.data());
  }
};

class DriversTest : public MachineTest {
 protected:
  // The drivers of the second device, best first. With `flags` 0 the path is a directory.
  std::vector<ListedDriver> Drivers(const char *path, DWORD flags = DI_ENUMSINGLEINF) {
    error = NO_ERROR;
    const HDEVINFO set = SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_PRESENT | DIGCF_ALLCLASSES);
    SP_DEVINFO_DATA device = {};
    device.cbSize = sizeof device;
    EXPECT_TRUE(SetupDiEnumDeviceInfo(set, 1, &device));
    SP_DEVINSTALL_PARAMS_A parameters = {};
    parameters.cbSize = sizeof parameters;
    EXPECT_TRUE(SetupDiGetDeviceInstallParamsA(set, &device, &parameters));
    parameters.Flags = flags;
    std::strcpy(parameters.DriverPath, path);
    EXPECT_TRUE(SetupDiSetDeviceInstallParamsA(set, &device, &parameters));
    std::vector<ListedDriver> drivers;
    if (!SetupDiBuildDriverInfoList(set, &device, SPDIT_COMPATDRIVER)) error = GetLastError();
    ListedDriver driver;
    driver.data.cbSize = sizeof driver.data;
    while (SetupDiEnumDriverInfoA(set, &device, SPDIT_COMPATDRIVER, static_cast<DWORD>(drivers.size()), &driver.data)) {
      DWORD size = 0;
      EXPECT_TRUE(SetupDiGetDriverInfoDetailA(set, &device, &driver.data, nullptr, 0, &size));
      driver.detailBytes.assign(size, '\0');
      auto *detail = reinterpret_cast<SP_DRVINFO_DETAIL_DATA_A *>(driver.detailBytes.data());
      detail->cbSize = sizeof *detail;
      EXPECT_FALSE(SetupDiGetDriverInfoDetailA(set, &device, &driver.data, detail, size - 1, nullptr));
      EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
      EXPECT_TRUE(SetupDiGetDriverInfoDetailA(set, &device, &driver.data, detail, size, nullptr));
      drivers.push_back(driver);
    }
    EXPECT_EQ(GetLastError(), ERROR_NO_MORE_ITEMS);
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
    return drivers;
  }

  // The install sections of the drivers that an INF of these sections has.
  std::vector<std::string> Sections(const std::string &sections) {
    WriteFile("ram/drivers/t" + std::to_string(++files) + ".inf", kVersion + sections);
    std::vector<std::string> result;
    for (const ListedDriver &driver : Drivers(("X:\\drivers\\t" + std::to_string(files) + ".inf").c_str())) {
      result.emplace_back(driver.Detail()->SectionName);
    }
    return result;
  }

  DWORD error = NO_ERROR;
  int files = 0;
};

TEST_F(DriversTest, RanksModelLines) {
  Open(kController);
  struct {
    const char *rule, *better, *worse;
  } const cases[] = {
      {"hardware id by the device's order", "i,HW0", "i,HW1"},
      {"hardware against hardware before hardware against compatible", "i,HW1", "i,x,HW0"},
      {"hardware against compatible before compatible against hardware", "i,x,HW1", "i,CO0"},
      {"compatible against hardware before compatible against compatible", "i,CO1", "i,x,CO0"},
      {"the device's earlier compatible id", "i,CO0", "i,CO1"},
      {"the line's earlier compatible id", "i,x,HW1", "i,x,y,HW1"},
      {"an id that is both counts as hardware id", "i,both", "i,CO0"},
      {"a line's best id counts", "i,CO1,HW0", "i,x,HW1"},
      {"case plays no part", "i,hw0", "i,HW1"},
      {"an empty hardware id keeps the compatible ids", "i,,HW0", "i,,HW1"},
  };
  for (const auto &rank : cases) {
    SCOPED_TRACE(rank.rule);
    const std::string better = "a=better" + std::string(rank.better + 1) + "\n";
    const std::string worse = "b=worse" + std::string(rank.worse + 1) + "\n";
    EXPECT_THAT(Sections("[Manufacturer]\nm=M\n[M]\n" + better + worse), ElementsAre("better", "worse"));
    EXPECT_THAT(Sections("[Manufacturer]\nm=M\n[M]\n" + worse + better), ElementsAre("better", "worse"));
  }
  EXPECT_THAT(Sections("[Manufacturer]\nm=M\n[M]\na=first,HW0\nb=second,HW0\n"), ElementsAre("first", "second"));
}

TEST_F(DriversTest, TakesTheModelsSectionForTheSystem) {
  Open(kController);  // amd64 6.1
  const std::string models =
      "[M]\na=plain,HW0\n[M.ntamd64]\na=arch,HW0\n[M.NTamd64.6.0]\na=six,HW0\n[M.ntx86]\na=x86,HW0\n[M.ntamd64.6.1]\n";
  struct {
    const char *manufacturer, *section;
  } const cases[] = {
      {"m=M", "plain"},
      {"M", "plain"},
      {"m=M,NTamd64", "arch"},
      {"m=M,NTx86,NTamd64,NTamd64.6.0,NTamd64.6.2", "six"},
      {"m=M,NTx86", "plain"},           // no decoration fits
      {"m=M,NTamd64,NTamd64.6.1", ""},  // the best one's section is empty
      {"m=M,NTamd64,NTamd64.5.1", ""},  // the best one's section is missing
      {"m=M,NTamd64.6.1\nn=M,NTamd64", "arch"},
      {"m=None", ""},
      {"m=", ""},
      {"m=%Models%,%Arch%\n[Strings]\nModels=M\nArch=ntamd64", "arch"},
  };
  for (const auto &one : cases) {
    SCOPED_TRACE(one.manufacturer);
    const std::vector<std::string> sections =
        Sections("[Manufacturer]\n" + std::string(one.manufacturer) + "\n" + models);
    EXPECT_EQ(sections.empty() ? "" : sections.front(), one.section);
    EXPECT_LE(sections.size(), 1u);
  }
}

TEST_F(DriversTest, FillsTheRecords) {
  const std::string longText(400, 'n');
  WriteFile("ram/drivers/d.inf", std::string(kVersion) +
                                     "Dev=Fast Disk\nId=HW0\n[Manufacturer]\n%maker% 1=M\n[M]\n"
                                     "%dev% 2=Inst,x,%id%,CO1\nnone=Inst2,HW1\n" +
                                     longText + "=Inst3,CO0\nempty=Inst4,,CO1\n");
  Open(kController);
  const std::vector<ListedDriver> drivers = Drivers("X:\\drivers\\d.inf");
  ASSERT_EQ(drivers.size(), 4u);
  const auto ids = [](const ListedDriver &driver) {
    const SP_DRVINFO_DETAIL_DATA_A *detail = driver.Detail();
    return std::string(detail->HardwareID, driver.detailBytes.data() + driver.detailBytes.size());
  };
  EXPECT_STREQ(drivers[0].Detail()->SectionName, "Inst2");
  EXPECT_EQ(ids(drivers[0]), std::string("HW1\0\0", 5));
  EXPECT_EQ(drivers[0].Detail()->CompatIDsOffset, 4u);
  EXPECT_EQ(drivers[0].Detail()->CompatIDsLength, 0u);

  const ListedDriver &best = drivers[1];
  EXPECT_STREQ(best.data.Description, "Fast Disk 2");
  EXPECT_STREQ(best.data.MfgName, "Acme 1");
  EXPECT_STREQ(best.data.ProviderName, "Acme");
  EXPECT_EQ(best.data.DriverType, SPDIT_COMPATDRIVER);
  EXPECT_EQ(best.data.DriverVersion, 0x0001000200030004u);
  EXPECT_EQ(machine::TicksOf(best.data.DriverDate), machine::TicksOf(machine::ParseDriverDate("02/03/2015")));
  EXPECT_STREQ(best.Detail()->SectionName, "Inst");
  EXPECT_STREQ(best.Detail()->InfFileName, "X:\\drivers\\d.inf");
  EXPECT_STREQ(best.Detail()->DrvDescription, "Fast Disk 2");
  EXPECT_EQ(ids(best), std::string("x\0HW0\0CO1\0\0", 11));
  EXPECT_EQ(best.Detail()->CompatIDsOffset, 2u);
  EXPECT_EQ(best.Detail()->CompatIDsLength, 9u);
  struct stat status = {};
  ASSERT_EQ(stat(Host("ram/drivers/d.inf").c_str(), &status), 0);
  EXPECT_EQ(machine::TicksOf(best.Detail()->InfDate) / 10000000, static_cast<uint64_t>(status.st_mtime) + 11644473600u);

  EXPECT_EQ(std::string(drivers[2].data.Description), std::string(255, 'n'));
  EXPECT_EQ(ids(drivers[3]), std::string("\0CO1\0\0", 6));
  EXPECT_EQ(drivers[3].Detail()->CompatIDsOffset, 1u);

  std::vector<std::string> chosen;
  for (const MachineEvent &event : events) {
    if (event.kind == VXRMACHINE_DRIVER_CHOSEN) chosen.push_back(event.subject + "|" + event.detail + "|" + event.text);
  }
  ASSERT_EQ(chosen.size(), 4u);
  EXPECT_EQ(chosen[1], "X:\\drivers\\d.inf|Fast Disk 2|x");
}

TEST_F(DriversTest, SearchesADirectory) {
  const auto inf = [](const char *driverVer, const char *line) {
    return "[Version]\nSignature=$Chicago$\nDriverVer=" + std::string(driverVer) +
           "\n[Manufacturer]\nm=M\n[M]\na=" + line;
  };
  WriteFile("ram/Windows/inf/a.inf", inf("01/01/2010,1.0", "old,HW0"));
  WriteFile("ram/Windows/inf/b.inf", inf("01/01/2012,1.0", "low,HW0"));
  WriteFile("ram/Windows/inf/c.inf", inf("01/01/2012,1.1", "high,HW0"));
  WriteFile("ram/Windows/inf/d.inf", inf("01/01/2020,1.1", "worse,HW1"));
  WriteFile("ram/Windows/inf/e.inf", inf("01/01/2010,1.0", "later,HW0"));
  WriteFile("ram/Windows/inf/f.inf", inf("01/01/2030,1.0", "other,HW7"));
  WriteFile("ram/Windows/inf/g.inf", "no INF");
  Open(kController);
  std::vector<std::string> sections;
  for (const ListedDriver &driver : Drivers("", 0)) sections.emplace_back(driver.Detail()->SectionName);
  EXPECT_THAT(sections, ElementsAre("high", "low", "old", "later", "worse"));
  EXPECT_EQ(Drivers("X:\\Windows\\inf", 0).size(), 5u);
  EXPECT_EQ(VXRMachine_InfReads(), 7u);
}

}  // namespace
