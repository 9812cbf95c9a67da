#include <cstring>
#include <regex>

#include "tests/support/guarded_memory.h"
#include "tests/support/test_machine.h"
#include "vxrcore/bmext.h"

namespace {

using testing::HasSubstr;

constexpr size_t kImageSize = 80332;
using Bytes = std::vector<uint8_t>;

void PutNumber(Bytes *image, size_t offset, uint32_t value) {
  for (size_t i = 0; i < 4; ++i) (*image)[offset + i] = static_cast<uint8_t>(value >> (8 * i));
}

uint32_t NumberAt(const Bytes &bytes, size_t offset) {
  return bytes[offset] | bytes[offset + 1] << 8 | bytes[offset + 2] << 16 |
         static_cast<uint32_t>(bytes[offset + 3]) << 24;
}

// --- The format by plain numbers ------------------------------------------------------------------------------------

enum Shape { kBytes, kText, kCounted };

struct Item {
  uint32_t code;
  const char *name;
  size_t offset, size;  // in the record that the table is of
  Shape shape;
  size_t count = 0;
};

constexpr size_t kVolumes = 608, kFirstVolume = 624, kVolumeSize = 19888, kFirstDisk = 928, kDiskSize = 9480;

const Item kFileItems[] = {{0, "VXREQV_VolCount", 608, 4, kBytes},
                           {2, "VXREQV_SystVolInd", 620, 4, kBytes},
                           {3, "VXREQV_BootVolInd", 616, 4, kBytes}};
const Item kVolumeItems[] = {{4, "VXREQV_MntPnt", 0, 16, kText},
                             {5, "VXREQV_BMName", 632, 260, kText},
                             {6, "VXREQV_Volume", 16, 64, kText},
                             {7, "VXREQV_Label", 600, 16, kText},
                             {8, "VXREQV_UniqId", 340, 260, kCounted, 896},
                             {9, "VXREQV_Serial", 900, 4, kBytes},
                             {10, "VXREQV_FSName", 616, 16, kText},
                             {11, "VXREQV_Device", 80, 260, kCounted, 892},
                             {12, "VXREQV_DiskCount", 920, 4, kBytes}};
const Item kDriverItems[] = {
    {14, "VXREQV_DiskDescription", 280, 256, kText},    {15, "VXREQV_DiskInstanceId", 20, 260, kText},
    {16, "VXREQV_DiskManufacturer", 536, 256, kText},   {17, "VXREQV_DiskProvider", 792, 256, kText},
    {18, "VXREQV_DiskDevGuid", 0, 16, kBytes},          {19, "VXREQV_DiskImgFileTime", 2268, 8, kBytes},
    {20, "VXREQV_DiskImgFileSize", 2276, 8, kBytes},    {21, "VXREQV_DiskImgFileName", 1416, 260, kText},
    {22, "VXREQV_DiskImgFileDesc", 2124, 64, kText},    {23, "VXREQV_DiskImgFileVersion", 2188, 64, kText},
    {24, "VXREQV_DiskInfFileTime", 3136, 8, kBytes},    {25, "VXREQV_DiskInfFileSize", 3144, 8, kBytes},
    {26, "VXREQV_DiskInfFileName", 2284, 260, kText},   {27, "VXREQV_DiskInfFileDesc", 2992, 64, kText},
    {28, "VXREQV_DiskInfFileVersion", 3056, 64, kText}, {29, "VXREQV_DiskSrvName", 1048, 32, kText},
    {30, "VXREQV_DiskSrvGroup", 1080, 64, kText},       {31, "VXREQV_DiskSrvImage", 1144, 260, kText}};
const Item kSystemItems[] = {{0, "VXREQS_BootMedia", 20, 4, kBytes},
                             {1, "VXREQS_SystemPath", 24, 260, kText},
                             {2, "VXREQS_WindowsPath", 284, 260, kText},
                             {3, "VXREQS_SysOs", 544, 64, kBytes}};
const Item kNetworkItems[] = {{0, "VXREQN_Name", 80176, 16, kText}};
const Item kArchitectItems[] = {{0, "VXREQA_KernelType", 16, 4, kBytes}, {1, "VXREQA_HalType", 12, 4, kBytes}};

struct Driver {
  uint32_t selector;
  size_t offset;
};
const Driver kDrivers[] = {{0x80000000, 24}, {0x40000000, 6328}, {0x20000000, 3176}};

// One question, and where in the file its answer stands.
struct Question {
  uint32_t queryClass, code;
  const char *name;
  size_t offset, size;
  uint32_t inValue = 0;
  int32_t disk = 0;
};

// With the size that the image's own texts and counts give.
Question Ask(const Bytes &image, uint32_t queryClass, const Item &item, size_t base, uint32_t selector = 0,
             uint32_t volume = 0, int32_t disk = 0) {
  const size_t offset = base + item.offset;
  size_t size = item.shape == kText ? 0 : item.size;
  while (item.shape == kText && size < item.size && image[offset + size] != 0) ++size;
  if (item.shape == kCounted) size = std::min<size_t>(size, NumberAt(image, base + item.count));
  return {queryClass, item.code | selector, item.name, offset, size, volume, disk};
}

// Every question to a file with all its volumes and disks.
std::vector<Question> AllQuestions(const Bytes &image) {
  std::vector<Question> all;
  for (const Item &item : kFileItems) all.push_back(Ask(image, 0, item, 0));
  for (const Item &item : kSystemItems) all.push_back(Ask(image, 1, item, 0));
  for (const Item &item : kNetworkItems) all.push_back(Ask(image, 2, item, 0));
  for (const Item &item : kArchitectItems) all.push_back(Ask(image, 3, item, 0));
  for (uint32_t volume = 0; volume < 4; ++volume) {
    const size_t base = kFirstVolume + volume * kVolumeSize;
    for (const Item &item : kVolumeItems) all.push_back(Ask(image, 0, item, base, 0, volume));
    for (int32_t disk = 0; disk < 2; ++disk) {
      const size_t diskBase = base + kFirstDisk + static_cast<size_t>(disk) * kDiskSize;
      for (const Driver &driver : kDrivers) {
        const Item number = {13, "VXREQV_DiskNumber", 0, 4, kBytes};
        all.push_back(Ask(image, 0, number, diskBase, driver.selector, volume, disk));
        for (const Item &item : kDriverItems) {
          all.push_back(Ask(image, 0, item, diskBase + driver.offset, driver.selector, volume, disk));
        }
      }
    }
  }
  return all;
}

// --- Images ---------------------------------------------------------------------------------------------------------

void PutHeader(Bytes *image) {
  PutNumber(image, 0, 0x654D6248);
  PutNumber(image, 4, 1);
}

// A full one: each byte unlike its neighbours, so that an answer from a wrong place shows; texts of all lengths.
Bytes FilledImage() {
  Bytes image(kImageSize);
  for (size_t i = 0; i < kImageSize; ++i)
    image[i] = static_cast<uint8_t>((i * 131 + i / 251) % 15 == 0 ? 0 : 1 + (i * 89 + i / 97) % 255);
  PutHeader(&image);
  PutNumber(&image, kVolumes, 4);
  for (size_t volume = 0; volume < 4; ++volume) {
    const size_t base = kFirstVolume + volume * kVolumeSize;
    std::memcpy(&image[base], "C:\\\0", 4);
    image[base] = static_cast<uint8_t>('C' + volume);
    PutNumber(&image, base + 892, 40);
    PutNumber(&image, base + 896, static_cast<uint32_t>(10 * volume));
    PutNumber(&image, base + 920, 2);
  }
  return image;
}

// The worst one: counts and lengths of four billion, no text with an end.
Bytes HostileImage() {
  Bytes image(kImageSize, 0xFF);
  PutHeader(&image);
  return image;
}

constexpr uint8_t kCanary = 0xA5;
constexpr size_t kRoom = 600;

class QueryTest : public MachineTest {
 protected:
  QueryTest() {
    Open();
    VXRDbg_Initialize(3, 0, nullptr);  // so that no query's log begins with the start of the log
  }

  // `*size` is the capacity; the answer goes into a fresh `out`. The disk's index stands at an odd address.
  bool Query(const Question &question, const uint8_t *image, uint32_t *size, bool withBuffer = true) {
    alignas(int32_t) char index[1 + sizeof question.disk];
    std::memcpy(index + 1, &question.disk, sizeof question.disk);
    out.assign(kRoom, kCanary);
    log.clear();
    return VXRExt_QueryData(question.queryClass, question.code, withBuffer ? out.data() : nullptr, size,
                            noIndex ? nullptr : reinterpret_cast<const int32_t *>(index + 1), question.inValue,
                            image) != 0;
  }
  bool Untouched() const { return out == Bytes(kRoom, kCanary); }

  // The log with each address as P, and without the exits and entries of functions.
  std::string PlainLog() const {
    const std::string noAddresses = std::regex_replace(log, std::regex("(0x)?[0-9A-F]{16}"), "P");
    return std::regex_replace(noAddresses, std::regex("FLUSH:\\w+:___(ENTER|LEAVE)___\n"), "");
  }

  void CheckSizes(const Question &question, const GuardedMemory &placed) {
    SCOPED_TRACE(std::string(question.name) + " of volume " + std::to_string(question.inValue) + ", disk " +
                 std::to_string(question.disk) + ", code " + std::to_string(question.code));
    const auto needed = static_cast<uint32_t>(question.size);
    Bytes expected(kRoom, kCanary);
    std::memcpy(expected.data(), placed.data() + question.offset, needed);

    uint32_t size = needed;
    EXPECT_TRUE(Query(question, placed.data(), &size));
    EXPECT_EQ(size, needed);
    EXPECT_EQ(out, expected);

    size = kRoom;
    EXPECT_TRUE(Query(question, placed.data(), &size, false));
    EXPECT_EQ(size, needed);

    for (const uint32_t capacity : {0u, needed - 1}) {
      if (needed == 0) break;
      size = capacity;
      EXPECT_FALSE(Query(question, placed.data(), &size));
      EXPECT_EQ(size, needed);
      EXPECT_TRUE(Untouched());
      EXPECT_THAT(log, HasSubstr(":" + std::string(question.name) + ":has " + std::to_string(capacity) +
                                 " bytes but requires " + std::to_string(needed) + " bytes\n"));
    }
  }

  Bytes out;
  bool noIndex = false;
};

TEST_F(QueryTest, EveryItemIsAnsweredFromItsPlaceOrToldItsSize) {
  VXRDbg_SetLevel(4);
  for (const Bytes &image : {FilledImage(), HostileImage()}) {
    for (const size_t slack : {0, 1}) {
      const GuardedMemory placed(image, slack);
      for (const Question &question : AllQuestions(image)) CheckSizes(question, placed);
    }
  }
}

TEST_F(QueryTest, AVolumeIsFoundByItsExactLetter) {
  struct {
    const char *what;
    Bytes image;
    uint32_t letter;
    bool found;
    uint32_t index;
  } const cases[] = {{"last", FilledImage(), 'F', true, 3},
                     {"low byte only", FilledImage(), 0xABCDEF00 + 'D', true, 1},
                     {"lower case", FilledImage(), 'd', false, 0},
                     {"count beyond the table", HostileImage(), 0xFF, true, 0},
                     {"not in the table", HostileImage(), 'C', false, 0}};
  for (const auto &each : cases) {
    SCOPED_TRACE(each.what);
    const GuardedMemory placed(each.image, 0);
    uint32_t size = 4;
    EXPECT_EQ(Query({0, 1, "", 0, 0, each.letter}, placed.data(), &size), each.found);
    if (each.found) {
      EXPECT_EQ(NumberAt(out, 0), each.index);
    } else {
      EXPECT_TRUE(Untouched());
      EXPECT_THAT(log, HasSubstr("ERROR:VXRExt_QueryVolume:VXREQV_VolIndex:input cDrv=" +
                                 std::string(1, static_cast<char>(each.letter)) + "!!not found\n"));
    }
  }
  Bytes one = FilledImage();
  PutNumber(&one, kVolumes, 1);
  const GuardedMemory placed(one, 0);
  uint32_t size = 4;
  EXPECT_FALSE(Query({0, 1, "", 0, 0, 'D'}, placed.data(), &size)) << "beyond the count";
}

TEST_F(QueryTest, TheFirstSelectorBitCounts) {
  const Bytes image = FilledImage();
  const GuardedMemory placed(image, 1);
  struct {
    uint32_t selector;
    size_t driver;
  } const cases[] = {{0xE0000000, 24}, {0xF0000000, 24}, {0xA0000000, 24}, {0x60000000, 6328}, {0x30000000, 3176}};
  for (const auto &each : cases) {
    uint32_t size = 16;
    ASSERT_TRUE(Query({0, each.selector | 18, "", 0, 0}, placed.data(), &size));
    EXPECT_EQ(std::memcmp(out.data(), &image[kFirstVolume + kFirstDisk + each.driver], 16), 0) << each.selector;
  }
}

TEST_F(QueryTest, RefusalsWriteTheirLineAndNothingElse) {
  const GuardedMemory placed(FilledImage(), 1);
  Bytes image = HostileImage();
  PutNumber(&image, 4, 2);
  const GuardedMemory later(image, 1);
  PutNumber(&image, 0, 0x654D6247);
  const GuardedMemory noise(image, 1);
  image = FilledImage();
  PutNumber(&image, kVolumes, 0);
  const GuardedMemory noVolumes(image, 1);
  struct {
    Question question;
    const uint8_t *image;
    std::string log;  // what remains without the traces of level 5
    bool noIndex = false;
  } const cases[] = {
      {{0, 0, "", 0, 0}, nullptr, "ERROR:VXRExt_QueryData:pHead is NULL\n"},
      {{0, 0, "", 0, 0},
       noise.data(),
       "ERROR:VXRExt_QueryData:VXR Magic not magch!has 0x654D6247:but CBM=0x654d6243 HBM=9x654d6248!\n"},
      {{0, 0, "", 0, 0}, later.data(), "ERROR:VXRExt_QueryData:VXR Verion not match!has=00000002:requires=00000001!\n"},
      {{4, 0, "", 0, 0}, placed.data(), ""},
      {{5, 0, "", 0, 0}, placed.data(), "ERROR:VXRExt_QueryData:Uknown query!\n"},
      {{6, 0, "", 0, 0}, placed.data(), ""},
      {{0, 7, "", 0, 0, 4},
       placed.data(),
       "ERROR:VXRExt_QueryVolume:request vxrvol index = 4 invalid! vxrvols count = 4!!\n"},
      {{0, 0x8000000F, "", 0, 0, 0xFFFFFFFF},
       placed.data(),
       "ERROR:VXRExt_QueryVolume:request vxrvol index = -1 invalid! vxrvols count = 4!!\n"},
      {{0, 99, "", 0, 0},
       noVolumes.data(),
       "ERROR:VXRExt_QueryVolume:request vxrvol index = 0 invalid! vxrvols count = 0!!\n"},
      {{0, 0x8000000F, "", 0, 0}, placed.data(), "ERROR:VXRExt_QueryVolume:pIn is NULL\n", true},
      {{0, 0x8000000F, "", 0, 0, 1, 2},
       placed.data(),
       "ERROR:VXRExt_QueryVolume:request vxrvoldisk index = 2 invalid! vxrvoldisks count = 2!!\n"},
      {{0, 0x8000000F, "", 0, 0, 1, INT32_MIN},
       placed.data(),
       "ERROR:VXRExt_QueryVolume:request vxrvoldisk index = -2147483648 invalid! vxrvoldisks count = 2!!\n"},
      {{0, 15, "", 0, 0}, placed.data(), "ERROR:VXRExt_QueryVolume:pDevDrv is NULL\n"},
      {{0, 0x1000000F, "", 0, 0}, placed.data(), "ERROR:VXRExt_QueryVolume:pDevDrv is NULL\n"},
      {{0, 0x80000005, "", 0, 0}, placed.data(), "VXRExt_QueryVolume:failed...\n"},
      {{0, 0x80000020, "", 0, 0}, placed.data(), "VXRExt_QueryVolume:failed...\n"},
      {{2, 1, "", 0, 0}, placed.data(), "CHECK:VXRExt_QueryNetwork:DONE:qry=1:pIn=P:0:pO=P:P:600\n"},
      {{3, 2, "", 0, 0}, placed.data(), ""},
  };
  for (const auto &each : cases) {
    SCOPED_TRACE(each.log + " class " + std::to_string(each.question.queryClass) + ", code " +
                 std::to_string(each.question.code));
    noIndex = each.noIndex;
    uint32_t size = kRoom;
    EXPECT_FALSE(Query(each.question, each.image, &size));
    EXPECT_EQ(size, kRoom);
    EXPECT_TRUE(Untouched());
    EXPECT_EQ(std::regex_replace(PlainLog(), std::regex("FLUSH:[^\n]*\n"), ""), each.log);
  }
  EXPECT_FALSE(VXRExt_QueryData(1, 0, out.data(), nullptr, nullptr, 0, placed.data()));
  EXPECT_THAT(log, HasSubstr("ERROR:VXRExt_QueryData:pdwOut is NULL\n"));
}

TEST_F(QueryTest, SystemClassTakesUnknownCodesAndGivesAnAddress) {
  const GuardedMemory placed(FilledImage(), 1);
  uint32_t size = 77;
  EXPECT_TRUE(Query({1, 5, "", 0, 0}, placed.data(), &size));
  EXPECT_EQ(size, 77u);
  EXPECT_TRUE(Untouched());

  size = 587;
  EXPECT_FALSE(Query({1, 4, "", 0, 0}, placed.data(), &size));
  EXPECT_EQ(size, 588u);
  EXPECT_TRUE(Untouched());
  EXPECT_THAT(log, HasSubstr("INFOR:VXRExt_QuerySystem:VXREQS_Reference:has 587 bytes but requires 588 bytes\n"));
  EXPECT_TRUE(Query({1, 4, "", 0, 0}, placed.data(), &size));
  EXPECT_EQ(NumberAt(out, 0), static_cast<uint32_t>(reinterpret_cast<uintptr_t>(placed.data() + 20)));
  EXPECT_EQ(Bytes(out.begin() + 4, out.end()), Bytes(kRoom - 4, kCanary));
}

}  // namespace
