#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>

#include "tools/vxr/extension/extension_file.h"
#include "tools/vxr/extension/query_names.h"

namespace {

using Json = nlohmann::ordered_json;
using testing::ElementsAre;

VXR_LE64 Le64(std::uint64_t value) {
  VXR_LE64 number;
  for (int i = 0; i < 8; ++i) number.b[i] = static_cast<std::uint8_t>(value >> (8 * i));
  return number;
}

std::unique_ptr<VXR_EXTIMAGE> FilledImage(char fill) {
  auto image = std::make_unique<VXR_EXTIMAGE>();
  std::memset(static_cast<void *>(image.get()), fill, sizeof *image);
  image->Header = {VxrPut32(VXR_EXT_MAGIC_HOT), VxrPut32(VXR_EXT_VERSION)};
  return image;
}

Json Document(const VXR_EXTIMAGE &image, unsigned codePage = 1252) {
  return ExtensionDocument("a.bme", image, codePage);
}

TEST(ExtensionViewTest, TheDocumentLosesNothing) {
  const auto image = FilledImage('a');
  VXR_VOLUMES *volumes = &image->Extension.Volumes;
  VXR_VOLUME *volume = &volumes->Vols[0];
  volumes->VolCount = volume->VolDisks.DiskCount = VxrPut32(1);
  volume->DeviceLen = volume->UniqIdLen = VxrPut32(260);
  const Json whole = Document(*image);
  auto *bytes = reinterpret_cast<char *>(image.get());
  const auto check = [&](std::size_t from, std::size_t to) {
    for (std::size_t i = from; i < to; i += 4) {
      bytes[i] ^= 1;
      EXPECT_NE(Document(*image), whole) << "byte " << i;
      bytes[i] ^= 1;
    }
  };
  check(0, 624 + 928 + 9480);       // up to the end of the first volume's first disk
  check(80176, VXR_EXT_FILE_SIZE);  // behind the volumes
}

TEST(ExtensionViewTest, HostileImagesAreCapped) {
  const auto image = FilledImage('\xFF');
  for (const unsigned codePage : {1252u, 932u}) {
    const Json document = Json::parse(DocumentText(Document(*image, codePage)));
    const Json &volumes = document["volumes"];
    EXPECT_EQ(volumes["volume_count"], 0xFFFFFFFF);
    EXPECT_EQ(volumes["boot_volume"], -1);
    ASSERT_EQ(volumes["list"].size(), 4u);
    ASSERT_EQ(volumes["list"][3]["disks"].size(), 2u);
    EXPECT_EQ(volumes["list"][3]["unique_id"], std::string(2 * 260, 'F'));
    const Json &driver = volumes["list"][3]["disks"][1]["bus_extender_driver"];
    EXPECT_EQ(driver["type_name"], "unknown 4294967295");
    EXPECT_EQ(driver["image_file"]["written"], UINT64_MAX);
    EXPECT_TRUE(driver["image_file"]["written_utc"].is_null());
  }
}

TEST(ExtensionViewTest, TextsComeFromTheRecordedCodePage) {
  const auto image = FilledImage('\0');
  std::memcpy(image->Extension.NetInfo.ComputerName, "\x83\x52\xE4", 3);
  // A pair, then half of one, for which Windows has a character of its own.
  EXPECT_THAT(Document(*image, 932)["names"]["computer"].get<std::string>(), testing::AnyOf("コ?", "コ・"));
  EXPECT_EQ(Document(*image, 1252)["names"]["computer"], "ƒRä");
  VXR_VOLUME volume{};
  const struct {
    std::uint32_t delivered;
    std::uint8_t length;
    const char *name;
  } cases[] = {{6, 4, "AB"}, {5, 4, "A"}, {6, 3, "A"}, {2, 4, ""}, {1, 4, ""}, {0, 0, ""}, {0xFFFFFFFF, 4, "AB"}};
  for (const auto &each : cases) {
    std::memcpy(volume.Device, "\0\0A\0B\0", 6);
    volume.Device[0] = each.length;
    volume.DeviceLen = VxrPut32(each.delivered);
    EXPECT_EQ(DeviceNameText(volume), each.name) << each.delivered << ", " << int{each.length};
  }
}

TEST(ExtensionViewTest, TimesAreUtc) {
  const struct {
    std::uint64_t units;
    const char *text;
  } cases[] = {{0, ""},
               {10'000'000, "1601-01-01T00:00:01Z"},
               {125911584000000000, "2000-01-01T00:00:00Z"},
               {125963423999999999, "2000-02-29T23:59:59.9999999Z"},
               {0x7FFFFFFFFFFFFFFF, "30828-09-14T02:48:05.4775807Z"},
               {0x8000000000000000, ""}};
  for (const auto &each : cases) EXPECT_EQ(TimeText(Le64(each.units)), each.text);
}

TEST(ExtensionViewTest, AnswersTakeTheirForm) {
  const std::vector<std::uint8_t> minusOne(4, 0xFF);
  EXPECT_THAT(AnswerLines(AnswerForm::kSigned, minusOne, 1252), ElementsAre("-1"));
  EXPECT_THAT(AnswerLines(AnswerForm::kNumber, minusOne, 1252), ElementsAre("4294967295"));
  EXPECT_THAT(AnswerLines(AnswerForm::kBytes, minusOne, 1252), ElementsAre("FFFFFFFF"));
  EXPECT_THAT(AnswerLines(AnswerForm::kTime, std::vector<std::uint8_t>(8, 0), 1252), ElementsAre("0"));
  EXPECT_THAT(AnswerLines(AnswerForm::kText, {}, 1252), ElementsAre(""));
  EXPECT_THAT(AnswerLines(AnswerForm::kGuid, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}, 1252),
              ElementsAre("{04030201-0605-0807-090A-0B0C0D0E0F10}"));
}

}  // namespace
