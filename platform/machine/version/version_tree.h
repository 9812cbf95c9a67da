// The tree inside a version resource: VS_VERSION_INFO, below it StringFileInfo with a table of texts for each language
// and code page, and VarFileInfo. Each node has a length, a key and a value, and is aligned to four bytes. Nothing here
// believes a length: a node ends where the one around it does.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/platform.h"

namespace machine {

struct VersionValue {
  std::size_t offset = 0, size = 0;  // bytes, inside the resource
  bool text = false;                 // UTF-16LE, as all values of the string tables are
};

// Whether the resource begins with the root of such a tree.
bool IsVersionTree(std::span<const BYTE> resource);

// The value of the node that a path such as "\StringFileInfo\040904b0\FileVersion" (in the ANSI code page) names, the
// first of those keys at each step, without regard to case. "\" is the root.
std::optional<VersionValue> FindVersionValue(std::span<const BYTE> resource, std::string_view path);

// Calls `visit` for each text of the string tables. No two of them overlap, and each stands at least eight bytes behind
// the one before it.
void ForEachVersionText(std::span<const BYTE> resource, const std::function<void(const VersionValue &)> &visit);

// The text in the ANSI code page, up to its terminator when it has one. Never more bytes than `value.size`.
std::string VersionText(std::span<const BYTE> resource, const VersionValue &value);

}  // namespace machine
