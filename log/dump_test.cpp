#include "log/dump.h"

#include <cstdio>
#include <cstring>
#include <functional>

#include "tests/support/test_machine.h"

namespace {

constexpr GUID kGuid = {0x4D36E967, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
constexpr char kGuidDigits[] = "4D36E967-E325-11CE-BFC1-08002BE10318";

std::string Address(const void *address) {
  char text[20];
  std::snprintf(text, sizeof text, "%016llX", static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(address)));
  return text;
}

LARGE_INTEGER Number(LONG64 value) {
  LARGE_INTEGER number;
  number.QuadPart = value;
  return number;
}

struct DumpCase {
  std::function<void()> dump;
  std::string expected;
};

class DumpTest : public MachineTest {
 protected:
  void SetUp() override {
    Open();
    VXRDbg_Initialize(5, 0, nullptr);
  }

  void Expect(const std::vector<DumpCase> &cases) {
    for (const DumpCase &c : cases) {
      log.clear();
      c.dump();
      EXPECT_EQ(log, c.expected);
    }
  }
};

TEST_F(DumpTest, NullWritesNothing) {
  Expect({{[] {
             VXRDbg_DumpGuid(nullptr, "f");
             VXRDbg_DumpRegValue(1, 4, 0, nullptr, "f");
             VXRDbg_DumpRegValue(1, 0, 0, "", "f");
             VXRDbg_DumpMultiString(nullptr, "f", 20);
             VXRDbg_DumpMultiBinary(4, nullptr, "f");
             VXRDbg_DumpSystemTime(nullptr, "f");
             VXRDbg_DumpFileTime(nullptr, "f");
             VXRDbg_DumpStorageDeviceNumber(nullptr, "f");
             VXRDbg_DumpDiskExtent(nullptr, "f");
             VXRDbg_DumpDiskExtents(nullptr, "f");
             VXRDbg_DumpUniqueId(nullptr, "f");
             VXRDbg_DumpOsVersionInfo(nullptr, "f");
             VXRDbg_DumpMemoryStatus(nullptr, "f");
             VXRDbg_DumpSystemInfo(nullptr, "f");
             VXRDbg_DumpDrvInfo(nullptr, "f");
             VXRDbg_DumpDrvInfoDetail(nullptr, "f");
             VXRDbg_DumpDevInstallParams(nullptr, "f");
             VXRDbg_DumpDevInfo(nullptr, "f");
             VXRDbg_DumpInfContext(nullptr, "f");
           },
           ""}});
}

TEST_F(DumpTest, ValuesByTypeAndWithinTheirSize) {
  // Each of exactly its size on the heap, so that a sanitizer sees a read past the end.
  const auto value = [](DWORD type, const std::string &bytes, DWORD property = 12) {
    return [=] {
      const std::vector<char> exact(bytes.begin(), bytes.end());
      VXRDbg_DumpRegValue(type, static_cast<DWORD>(exact.size()), property, exact.data(), "f");
    };
  };
  const std::string title = "CHECK:f:SPDRP_FRIENDLYNAME               :";
  const std::string unknown = "CHECK:f:SPDRP_UNKOWN_ERROR               :";
  using std::string_literals::operator""s;
  Expect({
      {value(0, "x"), title + "REG_NONE\n"},
      {value(1, "text\0"s), title + "REG_SZ\ttext\n"},
      {value(1, "no end"), title + "REG_SZ\tno end\n"},
      {value(4, "\x78\x56\x34\x12"), title + "REG_DWORD\t12345678\n"},
      {value(4, "\x78\x56"), title + "REG_DWORD\t00005678\n"},
      {value(6, "l\0k\0"s), title + "REG_LINK\tlk\n"},
      {value(6, "l\0k"s), title + "REG_LINK\tl\n"},
      {value(11, "\x08\x07\x06\x05\x04\x03\x02\x01"), title + "REG_QWORD\t0102030405060708\n"},
      {value(2, "x"), title + "Unsupported data type!\n"},
      {value(1, "text\0"s, 35), unknown + "REG_SZ\ttext\n"},
      {value(1, "text\0"s, 36), unknown + "REG_NONE\n"},
      {value(4, "text", 200), unknown + "REG_NONE\n"},
      {[] { VXRDbg_DumpRegValue(0, 1, 14, "", nullptr); }, "CHECK:SPDRP_PHYSICAL_DEVICE_OBJECT_NAME:REG_NONE\n"},
  });

  const std::vector<char> ids = {'a', '\0', 'b', 'c'};
  const std::vector<unsigned char> bytes = {0x01, 0xAB, 0x00, 0xFF};
  Expect({
      {[&] { VXRDbg_DumpRegValue(7, 4, 12, ids.data(), "f"); },
       title + "CHECK:REG_MULTI_SZ\t:MultiString:" + Address(ids.data()) + "\n\t\t[(1):a]\n\t\t[(2):bc]\n\n"},
      {[&] { VXRDbg_DumpRegValue(3, 4, 12, bytes.data(), "f"); },
       title + "CHECK:REG_BINARY\t:MultiBinary:" + Address(bytes.data()) + "\n01 AB 00 FF \n"},
  });
}

TEST_F(DumpTest, Lists) {
  const char texts[] = "one\0two\0three\0";
  const std::vector<unsigned char> bytes(33, 0x0F);
  std::string row;
  for (int i = 0; i < 32; ++i) row += "0F ";
  Expect({
      {[&] { VXRDbg_DumpMultiString(texts, "f", 11); },
       "CHECK:f:MultiString:" + Address(texts) + "\n\t\t[(1):one]\n\t\t[(2):two]\n\t\t[(3):three]\n\n"},
      {[&] { VXRDbg_DumpMultiString(texts, nullptr, 2); },
       "CHECK:MultiString:" + Address(texts) + "\n\t\t[(1):one]\n\t\t[(2):two]\n\n"},
      {[&] { VXRDbg_DumpMultiBinary(33, bytes.data(), nullptr); },
       "CHECK:MultiBinary:" + Address(bytes.data()) + "\n" + row + "\n0F \n"},
      {[&] { VXRDbg_DumpMultiBinary(32, bytes.data(), "f"); },
       "CHECK:f:MultiBinary:" + Address(bytes.data()) + "\n" + row + "\n\n"},
  });
}

TEST_F(DumpTest, GuidsAndTimes) {
  const SYSTEMTIME time = {2026, 3, 0, 9, 4, 5, 6, 7};
  const FILETIME start = {0xD53E8000, 0x019DB1DE};  // 1970-01-01
  const FILETIME never = {0xFFFFFFFF, 0xFFFFFFFF};
  const std::string digits = kGuidDigits;
  Expect({
      {[] { VXRDbg_DumpGuid(&kGuid, "f"); }, "CHECK:f:[" + Address(&kGuid) + "]=" + digits + "\n"},
      {[] { VXRDbg_DumpGuid(&kGuid, nullptr); }, "CHECK:VXRDbg_DumpGuid:[" + Address(&kGuid) + "]=" + digits + "\n"},
      {[&] { VXRDbg_DumpSystemTime(&time, "\tT"); }, "\tT = 2026/03/09-04:05:06\n"},
      {[&] { VXRDbg_DumpSystemTime(&time, nullptr); }, "2026/03/09-04:05:06\n"},
      {[&] { VXRDbg_DumpFileTime(&start, "f"); }, "f = 1970/01/01-00:00:00\n"},
      {[&] { VXRDbg_DumpFileTime(&never, "f"); }, "CHECK:f:N/A\n"},
      {[&] { VXRDbg_DumpFileTime(&never, nullptr); }, "N/A\n"},
  });
}

TEST_F(DumpTest, SuiteLabelsFollowTheirBits) {
  const std::string head = "\tPlaftform ID = 0x2: PLATFORM_WIN32_NT\n\tProduct Type = 0x3: SERVER\n";
  Expect({
      {[] { DumpPlatformProductSuite(2, 3, 0x112); }, head + "\tSuite Masks = 0x112: ENTERPRISE TERMINAL SINGLEUSERTS"},
      {[] { DumpPlatformProductSuite(2, 3, 0xFFFFFFFF); },
       head + "\tSuite Masks = 0xffffffff: SMALLBUSINESS ENTERPRISE BACKOFFICE COMMUNICATIONS TERMINAL"
              " SMALLBUSINESS_RESTRICTED EMBEDDEDNT DATACENTER SINGLEUSERTS PERSONAL BLADE EMBEDDED_RESTRICTED"
              " SECURITY_APPLIANCE"},
      {[] { DumpPlatformProductSuite(3, 0, 0); }, "\tPlaftform ID = 0x3:\tProduct Type = 0x0:\tSuite Masks = 0x0:"},
  });
}

TEST_F(DumpTest, DiskRecords) {
  const STORAGE_DEVICE_NUMBER number = {7, 0, 1};
  const struct {
    DWORD count;
    DISK_EXTENT extents[2];
  } answer = {2, {{0, Number(1048576), Number(64420311040)}, {1, Number(0), Number(512)}}};
  const struct {
    WORD length;
    BYTE id[3];
  } id = {3, {0x01, 0x02, 0xAB}};
  Expect({
      {[&] { VXRDbg_DumpStorageDeviceNumber(&number, "f"); },
       "CHECK:f:STORAGE_DEVICE_NUMBER:DeviceType =00000007:DeviceNumber =00:PartitionNumber =01\n"},
      {[&] { VXRDbg_DumpDiskExtents(reinterpret_cast<const VOLUME_DISK_EXTENTS *>(&answer), nullptr); },
       "CHECK:DISK_EXTENT:\tdisk #0:start=1048576:len=64420311040\n"
       "CHECK:DISK_EXTENT:\tdisk #1:start=0:len=512\n"},
      {[&] { VXRDbg_DumpUniqueId(reinterpret_cast<const MOUNTDEV_UNIQUE_ID *>(&id), "f"); },
       "CHECK:f:MOUNTDEV_UNIQUE_ID:Length = 3:0102AB\n"},
  });
}

TEST_F(DumpTest, MachineRecords) {
  OSVERSIONINFOEXA os{};
  os.dwMajorVersion = 6;
  os.dwMinorVersion = 1;
  os.dwBuildNumber = 7601;
  os.dwPlatformId = 2;
  os.wServicePackMajor = 1;
  os.wSuiteMask = 0x100;
  os.wProductType = 1;
  std::memset(os.szCSDVersion, 's', sizeof os.szCSDVersion);  // no terminator
  const MEMORYSTATUSEX memory = {64, 50, 8589934592, 2, 3, 4, 5, 6, 7};
  SYSTEM_INFO info{};
  info.dwOemId = 9;
  info.dwPageSize = 4096;
  info.lpMinimumApplicationAddress = reinterpret_cast<void *>(0x10000);
  info.dwActiveProcessorMask = 0x100000003;
  info.dwNumberOfProcessors = 2;
  info.wProcessorRevision = 0x3A09;
  Expect({
      {[&] { VXRDbg_DumpOsVersionInfo(&os, "f"); },
       "CHECK:f:OSVERSIONINFOEX\n\tOS Major=0x6:OS Minor=0x1:Build=0x1db1\n\t" + std::string(128, 's') +
           ":SrvPack Major=0x1:SrvPack Minor=0x0\n\tPlaftform ID = 0x2: PLATFORM_WIN32_NT\n"
           "\tProduct Type = 0x1: WORKSTATION\n\tSuite Masks = 0x100: SINGLEUSERTS\n"},
      {[&] { VXRDbg_DumpMemoryStatus(&memory, nullptr); },
       "CHECK:MEMORYSTATUSEX:\n\tdwMemoryLoad= 50 \n\tullTotalPhys= 8589934592\n\tullAvailPhys= 2\n"
       "\tullTotalPageFile= 3\n\tullAvailPageFile= 4\n\tullTotalVirtual= 5\n\tullAvailVirtual= 6\n"
       "\tullAvailExtendedVirtual= 7\n"},
      {[&] { VXRDbg_DumpSystemInfo(&info, "f"); },
       "CHECK:f:SYSTEM_INFO:\n\tdwOemId = 00000009\n\twProcessorArchitecture= 0009\n\twReserved= 0000\n"
       "\tdwPageSize= 00001000\n\tlpMinimumApplicationAddress= 0000000000010000\n"
       "\tlpMaximumApplicationAddress= 0000000000000000\n\tdwActiveProcessorMask= 00000003\n"
       "\tdwNumberOfProcessors= 00000002\n\tdwProcessorType= 00000000\n\tdwAllocationGranularity= 00000000\n"
       "\twProcessorLevel= 0000\n\twProcessorRevision= 3A09\n"},
  });
}

TEST_F(DumpTest, SetUpRecords) {
  SP_DRVINFO_DATA_A driver{};
  driver.DriverType = 2;
  std::strcpy(driver.MfgName, "Acme");
  std::strcpy(driver.Description, "Fast Adapter");
  std::memset(driver.ProviderName, 'p', sizeof driver.ProviderName);
  SP_DEVINSTALL_PARAMS_A parameters{};
  parameters.cbSize = 320;
  parameters.Flags = 0x10000;
  std::strcpy(parameters.DriverPath, "X:\\drivers\\fast.inf");
  const SP_DEVINFO_DATA device = {32, kGuid, 5, 0};
  const INFCONTEXT context = {reinterpret_cast<void *>(0x10), reinterpret_cast<void *>(0x20), 3, 4};
  Expect({
      {[&] { VXRDbg_DumpDrvInfo(&driver, "f"); },
       "CHECK:f:SP_DRVINFO_DATA:\n\tDriverType   = 2\n\tManufacturer = Acme\n\tDescription  = Fast Adapter\n"
       "\tProviderName =" +
           std::string(256, 'p') + "\n"},
      {[&] { VXRDbg_DumpDevInstallParams(&parameters, nullptr); },
       "CHECK:SP_DEVINSTALL_PARAMS:size=320:Flags=0x00010000:FlagsEx=0x00000000:DriverPath=X:\\drivers\\fast.inf\n"},
      {[&] { VXRDbg_DumpDevInfo(&device, "f"); },
       "CHECK:f:SP_DEVINFO_DATA:DevInst=0x00000005:Reserved=00000000:GUID= " + std::string(kGuidDigits) + ":"},
      {[&] { VXRDbg_DumpInfContext(&context, "f"); },
       "CHECK:f:INFCONTEXT:CurInf=0x0000000000000020:Inf=0x0000000000000010:Line=004:Sect=003\n"},
  });
}

TEST_F(DumpTest, DriverDetailWithItsIdList) {
  alignas(8) char room[sizeof(SP_DRVINFO_DETAIL_DATA_A) + 16] = {};
  auto *detail = reinterpret_cast<SP_DRVINFO_DETAIL_DATA_A *>(room);
  detail->InfDate = {0xD53E8000, 0x019DB1DE};
  detail->CompatIDsOffset = 3;
  detail->CompatIDsLength = 4;
  std::strcpy(detail->SectionName, "Inst");
  std::strcpy(detail->InfFileName, "X:\\fast.inf");
  std::strcpy(detail->DrvDescription, "Fast");
  char *ids = room + offsetof(SP_DRVINFO_DETAIL_DATA_A, HardwareID);
  std::memcpy(ids, "ab\0cd\0", 7);
  const std::string fields =
      "1970/01/01-00:00:00\n\tSectionName     = Inst\n\tInfFileName     = X:\\fast.inf\n"
      "\tDrvDescription  = Fast\n\tHardwareID Ptr  = 0x";
  char low[12];
  std::snprintf(low, sizeof low, "%08x", static_cast<unsigned>(reinterpret_cast<uintptr_t>(ids)));
  const std::string rest = std::string(low) + "\n\tCompatIDsOffset = 0x00000003\n\tCompatIDsLength = 4\n";
  const std::string list =
      "HardwareID String:CHECK:\t:MultiString:" + Address(ids) + "\n\t\t[(1):ab]\n\t\t[(2):cd]\n\n";
  Expect({
      {[&] { VXRDbg_DumpDrvInfoDetail(detail, "f"); },
       "CHECK:f:SP_DRVINFO_DETAIL_DATA:\n\tInfDate=" + fields + rest + "CHECK:f:" + list},
      {[&] { VXRDbg_DumpDrvInfoDetail(detail, nullptr); },
       "CHECK:SP_DRVINFO_DETAIL_DATA:\n\tInfDate = " + fields + rest + "CHECK:" + list},
  });
}

}  // namespace
