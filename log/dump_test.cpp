// What the kept log does not show: values and records that a dump must not read past, and lists of records.
#include "log/dump.h"

#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>

#include "log/record_dump.h"
#include "tests/support/test_machine.h"

namespace {

using testing::HasSubstr;

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
      {value(1, "no end"), title + "REG_SZ\tno end\n"},
      {value(4, "\x78\x56"), title + "REG_DWORD\t00005678\n"},
      {value(6, "l\0k"s), title + "REG_LINK\tl\n"},
      {value(1, "text\0"s, 35), unknown + "REG_SZ\ttext\n"},
      {value(1, "text\0"s, 36), unknown + "REG_NONE\n"},
      {value(4, "text", 200), unknown + "REG_NONE\n"},
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

TEST_F(DumpTest, HostileImageStaysWithinItsFields) {
  // Exactly the record on the heap and no NUL in it: a text or count that is believed reads past the end.
  const auto extension = std::make_unique<VXR_BMEXTNSON>();
  std::memset(static_cast<void *>(extension.get()), 'A', sizeof *extension);
  log.clear();
  VXRDbg_DumpBMExtnson(extension.get(), "f");
  const std::string as(16, 'A');
  EXPECT_THAT(log, HasSubstr("VXR_VOLUMES:total 1094795585 vxr vols\n"));
  EXPECT_THAT(log, HasSubstr(":Label=" + as + ":FileSystem=" + as + "\n\tMntPnt = " + as + "\n"));
  EXPECT_THAT(log, HasSubstr("\tComputerName = " + as + "\n"));
  EXPECT_THAT(log, HasSubstr("\tUnique ID:1094795585 bytes:41 41 "));
  size_t volumes = 0;
  for (size_t at = log.find(":VXR_VOLUME\n"); at != std::string::npos; at = log.find(":VXR_VOLUME\n", at + 1))
    volumes++;
  EXPECT_EQ(volumes, 4u);
}

TEST_F(DumpTest, DevicesUpToTheEndOfTheirTable) {
  VXR_DEVICE disk{};
  VXR_PARABLOCK block{};
  block.dwDevCnt = 0xFFFFFFFF;
  block.pVXRDevices[0] = &disk;
  log.clear();
  VXRDbg_DumpDevices(&block, "f");
  EXPECT_THAT(log, testing::StartsWith("CHECK:f:\n#### [00]:VXR_DEVICE [0x" + Address(&disk) + "]\n"));
  EXPECT_THAT(log, testing::EndsWith("\n#### [01]:\n#### [02]:\n#### [03]:\n#### [04]:\n#### [05]:\n#### [06]:\n"
                                     "#### [07]:\n#### [08]:"));
}

}  // namespace
