// Version resources: images put together by hand, images made by real tools, and what damage does to either.
#include "platform/machine/version/version_resource.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/machine/base/errors.h"
#include "platform/machine/version/version_block.h"
#include "platform/machine/version/version_tree.h"
#include "tests/support/pe_builder.h"
#include "tests/support/standard_machine.h"
#include "tests/support/test_machine.h"

namespace {

using machine::VersionResource;
using namespace platform;

constexpr char kFileVersion[] = R"(\StringFileInfo\040904b0\FileVersion)";
constexpr char kTranslation[] = R"(\VarFileInfo\Translation)";

// Bytes at the end of an allocation of their own, so that the sanitizers see a read behind them.
struct Exact {
  std::unique_ptr<BYTE[]> bytes;
  std::size_t size;

  explicit Exact(std::string_view from) : bytes(new BYTE[from.size()]), size(from.size()) {
    std::copy(from.begin(), from.end(), bytes.get());
  }
  std::string_view View() const { return {reinterpret_cast<const char *>(bytes.get()), size}; }
};

std::string_view Chars(std::span<const BYTE> bytes) {
  return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

VersionResource Read(std::string_view image, std::vector<BYTE> *resource) {
  const Exact exact(image);
  const machine::ImageSource source = {exact.size, [&](std::uint64_t offset, void *buffer, std::size_t size) {
                                         if (offset > exact.size || size > exact.size - offset) {
                                           ADD_FAILURE() << "asked for " << size << " bytes at " << offset;
                                           return false;
                                         }
                                         std::memcpy(buffer, exact.bytes.get() + offset, size);
                                         return true;
                                       }};
  return machine::ReadVersionResource(source, resource);
}

// The value, or "!" and the error. An answer outside the block fails the test.
std::string Ask(const Exact &block, std::string_view path) {
  std::span<const BYTE> value;
  const machine::Status queried = machine::QueryVersionBlock(block.bytes.get(), path, &value);
  if (!queried) return "!" + std::to_string(WindowsError(queried));
  const bool inside =
      value.data() >= block.bytes.get() && value.data() + value.size() <= block.bytes.get() + block.size;
  EXPECT_TRUE(inside) << path;
  return inside ? std::string(Chars(value)) : "";
}

std::string BlockOf(std::string_view resource, std::size_t room = 1 << 20) {
  const Exact exact(resource);
  return std::string(Chars(machine::MakeVersionBlock({exact.bytes.get(), exact.size}, room)));
}

std::string Ask(std::string_view resource, std::string_view path) { return Ask(Exact(BlockOf(resource)), path); }

std::string WithNul(std::string text) { return text + '\0'; }

// Two tables, a long text, odd lengths, a translation of two entries.
std::string RichTree() {
  const std::string english =
      VersionNode(u"040904B0", 1, "", 0,
                  {TextNode(u"CompanyName", u"Acme"), TextNode(u"FileDescription", std::u16string(70, u'd')),
                   TextNode(u"FileVersion", u"6.1")});
  const std::string german =
      VersionNode(u"040704b0", 1, "", 0, {TextNode(u"FileVersion", u"6,1"), TextNode(u"ProductName", u"Ger\u00E4t")});
  return VersionTree({VersionNode(u"StringFileInfo", 1, "", 0, {german, english}),
                      TranslationNode({{0x0409, 0x04B0}, {0x0407, 0x04B0}})});
}

TEST(VersionResourceTest, FindsTheResourceInEveryShapeOfImage) {
  const std::string tree = RichTree(), large(100000, 'x');
  const std::string good = BuildImage(tree);
  std::string dos = good, ne = good;
  std::string apart = BuildImage(tree, {.dataApart = true});
  --apart[242];  // the size of the first section, which the data fills
  dos.replace(60, 4, "\xFF\xFF\xFF\x7F", 4);
  ne.replace(66, 4, "NE\0\0", 4);
  const struct {
    const char *name;
    std::string image;
    VersionResource result;
    std::string resource;
  } cases[] = {
      {"PE32+", good, VersionResource::kFound, tree},
      {"PE32", BuildImage(tree, {.pe32 = true}), VersionResource::kFound, tree},
      {"data in another section", BuildImage(tree, {.dataApart = true}), VersionResource::kFound, tree},
      {"longer than a tree can be", BuildImage(large), VersionResource::kFound, large.substr(0, 0xFFFF)},
      {"no version type", BuildImage(tree, {.version = false}), VersionResource::kNone, ""},
      {"empty", "", VersionResource::kNone, ""},
      {"text",
       "[Version]\r\nSignature=\"$Windows NT$\"\r\n; and more text, so that a header would fit into the file\r\n",
       VersionResource::kNone, ""},
      {"DOS program", dos, VersionResource::kNone, ""},
      {"16-bit program", ne, VersionResource::kNone, ""},
      {"data that leaves its section", apart, VersionResource::kDamaged, ""},
      {"cut in the data", good.substr(0, good.size() - 1), VersionResource::kDamaged, ""},
      {"cut in the directories", good.substr(0, 0x220), VersionResource::kDamaged, ""},
      {"cut in the section table", good.substr(0, 0x130), VersionResource::kDamaged, ""},
      {"cut behind the signature", good.substr(0, 70), VersionResource::kDamaged, ""},
  };
  for (const auto &c : cases) {
    std::vector<BYTE> resource;
    EXPECT_EQ(Read(c.image, &resource), c.result) << c.name;
    EXPECT_EQ(Chars(resource), c.resource) << c.name;
  }
}

// Compilers and editors of resources have written all of these.
TEST(VersionResourceTest, ReadsWhatToolsWriteDifferently) {
  const std::string text = Utf16Bytes(u"6.1"), terminated = text + std::string(2, '\0');
  const auto tree = [](const std::string &node) {
    return VersionTree({VersionNode(u"StringFileInfo", 1, "", 0, {VersionNode(u"040904b0", 1, "", 0, {node})})});
  };
  const struct {
    const char *name;
    std::string node, value;
  } cases[] = {
      {"counted in bytes", VersionNode(u"FileVersion", 1, terminated, terminated.size()), WithNul("6.1")},
      {"called binary", VersionNode(u"FileVersion", 0, terminated, 4), WithNul("6.1")},
      {"without terminator, at the end of the resource", VersionNode(u"FileVersion", 1, text, 3), WithNul("6.1")},
      {"with text behind the terminator", VersionNode(u"FileVersion", 1, terminated + text, 7), WithNul("6.1")},
      {"longer than its node says", VersionNode(u"FileVersion", 1, text, 0x7FFF), WithNul("6.1")},
      {"with a terminator alone", TextNode(u"FileVersion", u""), WithNul("")},
      {"without value", VersionNode(u"FileVersion", 1, "", 0), ""},
      {"of an odd count of bytes", VersionNode(u"FileVersion", 1, text + "7", 4), WithNul("6.1")},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(Ask(tree(c.node), kFileVersion), c.value) << c.name;
    EXPECT_EQ(Ask(tree(c.node), kTranslation), "!1813") << c.name;
  }
  EXPECT_EQ(Ask(VersionTree({TranslationNode({})}), kTranslation), "");
}

constexpr const char *kPaths[] = {R"(\)", kTranslation, kFileVersion, R"(\StringFileInfo\040704b0\ProductName)"};

void ReadAll(std::string_view image) {
  std::vector<BYTE> resource;
  if (Read(image, &resource) != VersionResource::kFound || !machine::IsVersionTree(resource)) return;
  for (const char *path : kPaths) Ask(Chars(resource), path);
}

// 0, 1, the largest signed and the largest number, of 16 and of 32 bits.
constexpr std::string_view kHostileFields[] = {
    {"\0\0", 2},     {"\1\0", 2},     {"\xFF\x7F", 2},         {"\xFF\xFF", 2},
    {"\0\0\0\0", 4}, {"\1\0\0\0", 4}, {"\xFF\xFF\xFF\x7F", 4}, {"\xFF\xFF\xFF\xFF", 4}};

TEST(VersionResourceTest, DamageNeverLeadsOutside) {
  for (const bool pe32 : {false, true}) {
    const std::string good = BuildImage(RichTree(), {.pe32 = pe32});
    for (std::size_t size = 0; size < good.size(); ++size) ReadAll(std::string_view(good).substr(0, size));
    for (const std::string_view hostile : kHostileFields) {
      for (std::size_t at = 0; at + hostile.size() <= good.size(); at += 2) {
        ReadAll(std::string(good).replace(at, hostile.size(), hostile));
      }
    }
  }
}

TEST(VersionResourceTest, ACutBlockAnswersWholeValuesOrNone) {
  const std::string tree = RichTree();
  const Exact whole(BlockOf(tree));
  EXPECT_EQ(whole.size, machine::VersionBlockSize(tree.size()));
  for (std::size_t room = machine::kSmallestVersionBlock; room < whole.size; ++room) {
    const Exact cut(BlockOf(tree, room));
    ASSERT_EQ(cut.size, room);
    for (const char *path : kPaths) {
      EXPECT_THAT(Ask(cut, path), testing::AnyOf(Ask(whole, path), "!13")) << path << " in " << room;
    }
  }
  for (std::size_t at = 0; at < whole.size; ++at) {
    for (const BYTE hostile : {0x00, 0x01, 0x7F, 0xFF}) {
      const Exact bad(whole.View());
      bad.bytes[at] = hostile;
      for (const char *path : kPaths) Ask(bad, path);
    }
  }
}

// --- The calls ------------------------------------------------------------------------------------------------------

struct VersionCallsTest : MachineTest {
  // A block of the file with HeapAlloc's alignment; empty when a call fails.
  static std::vector<BYTE> Block(const char *file) {
    DWORD handle = 7;
    std::vector<BYTE> block(GetFileVersionInfoSizeA(file, &handle));
    EXPECT_EQ(handle, 0u);
    if (!block.empty() && !GetFileVersionInfoA(file, handle, static_cast<DWORD>(block.size()), block.data())) return {};
    return block;
  }

  static std::string Value(const std::vector<BYTE> &block, const std::string &path) {
    void *value = nullptr;
    UINT length = 0;
    if (!VerQueryValueA(block.data(), path.c_str(), &value, &length)) return "!" + std::to_string(GetLastError());
    return {static_cast<const char *>(value), length};
  }
};

TEST_F(VersionCallsTest, ATextOfTwoByteCharactersFits) {
  const std::string table = VersionNode(
      u"041103a4", 1, "", 0, {TextNode(u"CompanyName", u"\u65E5\u672C\u8A9E"), TextNode(u"ProductName", u"\u8868")});
  WriteFile("ram/ja.sys", BuildImage(VersionTree({VersionNode(u"StringFileInfo", 1, "", 0, {table})})));
  Open("", std::string(kStandardSystem) + "code_page = 932\n");
  const std::vector<BYTE> block = Block(R"(X:\ja.sys)");
  ASSERT_FALSE(block.empty()) << GetLastError();
  EXPECT_EQ(Value(block, R"(\StringFileInfo\041103a4\CompanyName)"), WithNul("\x93\xFA\x96\x7B\x8C\xEA"));
  EXPECT_EQ(Value(block, R"(\StringFileInfo\041103a4\ProductName)"), WithNul("\x95\x5C"));
}

TEST_F(VersionCallsTest, SaysWhy) {
  const std::string image = BuildImage(RichTree());
  WriteFile("ram/good.sys", image);
  WriteFile("ram/cut.sys", image.substr(0, image.size() - 1));
  WriteFile("ram/noise.sys", BuildImage("no tree at all, and long enough to be taken for one"));
  WriteFile("ram/plain.inf", "[Version]\r\n");
  Open();
  const struct {
    const char *file;
    DWORD error;
  } cases[] = {{R"(X:\plain.inf)", ERROR_RESOURCE_DATA_NOT_FOUND},
               {R"(X:\none.sys)", ERROR_FILE_NOT_FOUND},
               {R"(X:\none\none.sys)", ERROR_PATH_NOT_FOUND},
               {R"(X:\Windows)", ERROR_ACCESS_DENIED},
               {R"(X:\cut.sys)", ERROR_INVALID_DATA},
               {R"(X:\noise.sys)", ERROR_INVALID_DATA},
               {nullptr, ERROR_INVALID_PARAMETER}};
  for (const auto &c : cases) {
    EXPECT_EQ(GetFileVersionInfoSizeA(c.file, nullptr), 0u) << c.file;
    EXPECT_EQ(GetLastError(), c.error) << c.file;
    BYTE block[64];
    SetLastError(NO_ERROR);
    EXPECT_FALSE(GetFileVersionInfoA(c.file, 0, sizeof block, block)) << c.file;
    EXPECT_EQ(GetLastError(), c.error) << c.file;
  }
  // No more is stored than asked for, and no less than tells how much that is.
  BYTE small[33];
  small[32] = 0x5A;
  EXPECT_TRUE(GetFileVersionInfoA(R"(X:\good.sys)", 0, 32, small));
  EXPECT_EQ(small[32], 0x5A);
  EXPECT_EQ(Value(std::vector<BYTE>(small, small + 32), kTranslation), "!13");
  EXPECT_FALSE(GetFileVersionInfoA(R"(X:\good.sys)", 0, 15, small));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

}  // namespace
