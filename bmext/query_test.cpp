#include <cstring>
#include <regex>

#include "tests/support/extension_format.h"
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

// --- The items ------------------------------------------------------------------------------------------------------

// A code, its name, and the field that answers.
struct Item {
  uint32_t code;
  const char *name, *key;
};

const Item kFileItems[] = {{0, "VXREQV_VolCount", "volumes"},
                           {2, "VXREQV_SystVolInd", "system_volume"},
                           {3, "VXREQV_BootVolInd", "boot_volume"}};
const Item kVolumeItems[] = {
    {4, "VXREQV_MntPnt", "mount"},        {5, "VXREQV_BMName", "backup_name"}, {6, "VXREQV_Volume", "guid_path"},
    {7, "VXREQV_Label", "label"},         {8, "VXREQV_UniqId", "unique_id"},   {9, "VXREQV_Serial", "serial"},
    {10, "VXREQV_FSName", "file_system"}, {11, "VXREQV_Device", "device"},     {12, "VXREQV_DiskCount", "disks"}};
const Item kDriverItems[] = {{14, "VXREQV_DiskDescription", "description"},
                             {15, "VXREQV_DiskInstanceId", "instance"},
                             {16, "VXREQV_DiskManufacturer", "manufacturer"},
                             {17, "VXREQV_DiskProvider", "provider"},
                             {18, "VXREQV_DiskDevGuid", "guid"},
                             {19, "VXREQV_DiskImgFileTime", "img.written"},
                             {20, "VXREQV_DiskImgFileSize", "img.size"},
                             {21, "VXREQV_DiskImgFileName", "img.name"},
                             {22, "VXREQV_DiskImgFileDesc", "img.description"},
                             {23, "VXREQV_DiskImgFileVersion", "img.version"},
                             {24, "VXREQV_DiskInfFileTime", "inf.written"},
                             {25, "VXREQV_DiskInfFileSize", "inf.size"},
                             {26, "VXREQV_DiskInfFileName", "inf.name"},
                             {27, "VXREQV_DiskInfFileDesc", "inf.description"},
                             {28, "VXREQV_DiskInfFileVersion", "inf.version"},
                             {29, "VXREQV_DiskSrvName", "svc.name"},
                             {30, "VXREQV_DiskSrvGroup", "svc.group"},
                             {31, "VXREQV_DiskSrvImage", "svc.image"}};
const Item kSystemItems[] = {{0, "VXREQS_BootMedia", "media"},
                             {1, "VXREQS_SystemPath", "system"},
                             {2, "VXREQS_WindowsPath", "windows"},
                             {3, "VXREQS_SysOs", "os"}};
const Item kNetworkItems[] = {{0, "VXREQN_Name", "computer"}};
const Item kArchitectItems[] = {{0, "VXREQA_KernelType", "kernel"}, {1, "VXREQA_HalType", "hal"}};

struct Driver {
  uint32_t selector;
  const char *key;
};
const Driver kDrivers[] = {{0x80000000, "disk."}, {0x40000000, "bus."}, {0x20000000, "ctrl."}};

// One question, and where in the file its answer stands.
struct Question {
  uint32_t queryClass, code;
  const char *name;
  size_t offset, size;
  uint32_t inValue = 0;
  int32_t disk = 0;
};

size_t OffsetOf(const std::string &key) {
  ExtensionField field = {};
  EXPECT_TRUE(FindExtensionField(key, &field)) << key;
  return field.offset;
}

// With the size that the image's own texts and counts give.
Question Ask(const Bytes &image, uint32_t queryClass, const Item &item, const std::string &prefix = "",
             uint32_t selector = 0, uint32_t volume = 0, int32_t disk = 0) {
  ExtensionField field = {544, 64, ExtensionField::kNumber, 0};  // the system's record, of many fields
  if (item.key != std::string("os")) {
    EXPECT_TRUE(FindExtensionField(prefix + item.key, &field)) << item.key;
  }
  size_t size = field.size;
  if (field.kind == ExtensionField::kText) {
    const auto *text = reinterpret_cast<const char *>(&image[field.offset]);
    size = strnlen(text, field.size);
  } else if (field.kind == ExtensionField::kAnswer || field.kind == ExtensionField::kName) {
    size = std::min<size_t>(size, NumberAt(image, field.count));
  }
  return {queryClass, item.code | selector, item.name, field.offset, size, volume, disk};
}

// Every question to a file with all its volumes and disks.
std::vector<Question> AllQuestions(const Bytes &image) {
  std::vector<Question> all;
  for (const Item &item : kFileItems) all.push_back(Ask(image, 0, item));
  for (const Item &item : kSystemItems) all.push_back(Ask(image, 1, item));
  for (const Item &item : kNetworkItems) all.push_back(Ask(image, 2, item));
  for (const Item &item : kArchitectItems) all.push_back(Ask(image, 3, item));
  for (uint32_t volume = 0; volume < 4; ++volume) {
    const std::string key = "vol" + std::to_string(volume) + ".";
    for (const Item &item : kVolumeItems) all.push_back(Ask(image, 0, item, key, 0, volume));
    for (int32_t disk = 0; disk < 2; ++disk) {
      const std::string diskKey = key + "disk" + std::to_string(disk) + ".";
      for (const Driver &driver : kDrivers) {
        const Item number = {13, "VXREQV_DiskNumber", "number"};
        all.push_back(Ask(image, 0, number, diskKey, driver.selector, volume, disk));
        for (const Item &item : kDriverItems) {
          all.push_back(Ask(image, 0, item, diskKey + driver.key, driver.selector, volume, disk));
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
  PutNumber(&image, OffsetOf("volumes"), 4);
  for (size_t volume = 0; volume < 4; ++volume) {
    const std::string key = "vol" + std::to_string(volume) + ".";
    const size_t base = OffsetOf(key + "mount");
    std::memcpy(&image[base], "C:\\\0", 4);
    image[base] = static_cast<uint8_t>('C' + volume);
    PutNumber(&image, base + 892, 40);
    PutNumber(&image, base + 896, static_cast<uint32_t>(10 * volume));
    PutNumber(&image, OffsetOf(key + "disks"), 2);
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
  PutNumber(&one, OffsetOf("volumes"), 1);
  const GuardedMemory placed(one, 0);
  uint32_t size = 4;
  EXPECT_FALSE(Query({0, 1, "", 0, 0, 'D'}, placed.data(), &size)) << "beyond the count";
}

TEST_F(QueryTest, TheFirstSelectorBitCounts) {
  const Bytes image = FilledImage();
  const GuardedMemory placed(image, 1);
  struct {
    uint32_t selector;
    const char *driver;
  } const cases[] = {
      {0xE0000000, "disk."}, {0xF0000000, "disk."}, {0xA0000000, "disk."}, {0x60000000, "bus."}, {0x30000000, "ctrl."}};
  for (const auto &each : cases) {
    uint32_t size = 16;
    ASSERT_TRUE(Query({0, each.selector | 18, "", 0, 0}, placed.data(), &size));
    EXPECT_EQ(std::memcmp(out.data(), &image[OffsetOf("vol0.disk0." + std::string(each.driver) + "guid")], 16), 0)
        << each.selector;
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
  PutNumber(&image, OffsetOf("volumes"), 0);
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
