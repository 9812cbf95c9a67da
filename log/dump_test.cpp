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

TEST_F(DumpTest, TextsThatFillTheirFieldsEndThere) {
  OSVERSIONINFOEXA os{};
  std::memset(os.szCSDVersion, 's', sizeof os.szCSDVersion);
  SP_DRVINFO_DATA_A driver{};
  std::memset(driver.ProviderName, 'p', sizeof driver.ProviderName);
  VXRDbg_DumpOsVersionInfo(&os, "f");
  VXRDbg_DumpDrvInfo(&driver, "f");
  EXPECT_THAT(log, testing::HasSubstr("\n\t" + std::string(128, 's') + ":SrvPack Major=0x0"));
  EXPECT_THAT(log, testing::HasSubstr("\tProviderName =" + std::string(256, 'p') + "\n"));
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
