#include "platform/machine/version/version_tree.h"

#include <algorithm>

#include "platform/text/code_page.h"

namespace machine {
namespace {

constexpr std::size_t kHeaderSize = 6;  // length, value's length, type
constexpr std::string_view kStrings = "StringFileInfo";
constexpr int kTextDepth = 3;  // StringFileInfo, table, text

struct Node {
  std::size_t key, keyUnits;  // offset; length in UTF-16 units
  std::size_t value, valueSize;
  std::size_t textSize;  // of the value, should it be a text: texts count in units, whatever type they claim to be
  std::size_t children, end;
};

unsigned Unit(std::span<const BYTE> resource, std::size_t at) { return resource[at] | resource[at + 1] << 8; }

std::size_t Aligned(std::size_t offset, std::size_t end) { return std::min((offset + 3) & ~std::size_t{3}, end); }

// The node at `at` of what lies before `end`, both inside the resource.
std::optional<Node> ReadNode(std::span<const BYTE> resource, std::size_t at, std::size_t end) {
  if (end - at < kHeaderSize) return std::nullopt;
  const std::size_t length = Unit(resource, at), valueLength = Unit(resource, at + 2);
  if (length < kHeaderSize) return std::nullopt;
  Node node = {};
  node.end = std::min(at + length, end);
  node.key = at + kHeaderSize;
  std::size_t keyEnd = node.key;
  while (node.end - keyEnd >= 2 && Unit(resource, keyEnd) != 0) keyEnd += 2;
  if (node.end - keyEnd < 2) return std::nullopt;
  node.keyUnits = (keyEnd - node.key) / 2;
  node.value = Aligned(keyEnd + 2, node.end);
  const std::size_t room = node.end - node.value;
  const bool units = Unit(resource, at + 4) != 0;
  node.valueSize = std::min(units ? valueLength * 2 : valueLength, room);
  node.textSize = std::min(valueLength * 2, room);
  node.children = Aligned(node.value + node.valueSize, node.end);
  return node;
}

std::u16string Units(std::span<const BYTE> resource, std::size_t at, std::size_t count) {
  std::u16string text(count, u'\0');
  for (std::size_t i = 0; i < count; ++i) text[i] = static_cast<char16_t>(Unit(resource, at + i * 2));
  return text;
}

bool HasKey(std::span<const BYTE> resource, const Node &node, std::string_view name) {
  // A unit becomes a byte at least, but for the two of a surrogate pair.
  if (node.keyUnits > name.size() * 2) return false;
  return CompareNoCase(Utf16ToAnsi(Units(resource, node.key, node.keyUnits)), name) == 0;
}

// Calls `visit` with each child until it says true; whether it did.
template <class Visit>
bool AnyChild(std::span<const BYTE> resource, const Node &parent, Visit visit) {
  std::size_t at = parent.children;
  while (const std::optional<Node> child = ReadNode(resource, at, parent.end)) {
    if (visit(*child)) return true;
    at = Aligned(child->end, parent.end);
  }
  return false;
}

std::optional<Node> Root(std::span<const BYTE> resource) { return ReadNode(resource, 0, resource.size()); }

VersionValue NodeText(const Node &node) { return {node.value, node.textSize, true}; }

}  // namespace

bool IsVersionTree(std::span<const BYTE> resource) {
  const std::optional<Node> root = Root(resource);
  return root && HasKey(resource, *root, "VS_VERSION_INFO");
}

std::optional<VersionValue> FindVersionValue(std::span<const BYTE> resource, std::string_view path) {
  std::optional<Node> node = Root(resource);
  if (path.starts_with('\\')) path.remove_prefix(1);
  const bool strings = CompareNoCase(path.substr(0, path.find('\\')), kStrings) == 0;
  int depth = 0;
  for (; node && !path.empty(); ++depth) {
    const std::string_view key = path.substr(0, path.find('\\'));
    path.remove_prefix(std::min(key.size() + 1, path.size()));
    const Node parent = *node;
    const bool found = AnyChild(resource, parent, [&](const Node &child) {
      node = child;
      return HasKey(resource, child, key);
    });
    if (!found) return std::nullopt;
  }
  if (!node) return std::nullopt;
  return strings && depth == kTextDepth ? NodeText(*node) : VersionValue{node->value, node->valueSize, false};
}

void ForEachVersionText(std::span<const BYTE> resource, const std::function<void(const VersionValue &)> &visit) {
  const std::optional<Node> root = Root(resource);
  if (!root) return;
  const auto visitText = [&](const Node &text) {
    visit(NodeText(text));
    return false;
  };
  const auto visitTable = [&](const Node &table) { return AnyChild(resource, table, visitText); };
  AnyChild(resource, *root,
           [&](const Node &info) { return HasKey(resource, info, kStrings) && AnyChild(resource, info, visitTable); });
}

std::string VersionText(std::span<const BYTE> resource, const VersionValue &value) {
  std::u16string text = Units(resource, value.offset, value.size / 2);
  text.resize(std::min(text.find(u'\0'), text.size()));
  return Utf16ToAnsi(text);
}

}  // namespace machine
