// Key paths and names as the registry compares them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

// A name without regard to case: two names that the registry holds equal have equal folded forms. The rule is
// Unicode's, character by character, whatever the code page; texts in the ANSI code page have theirs in
// platform/text/ansi_case.h.
std::u16string FoldKeyName(std::u16string_view name);

using FoldedPath = std::vector<std::u16string>;

struct FoldedPathHash {
  std::size_t operator()(const FoldedPath &path) const;
};

// A key path split at its backslashes; empty components are dropped. Both lists have the same length, 0 for the root.
struct KeyPath {
  std::vector<std::u16string> names;  // as written
  FoldedPath folded;
};

KeyPath ParseKeyPath(std::u16string_view text);
KeyPath ParseKeyPathA(std::string_view text);  // in the machine's ANSI code page
// `path` followed by `more`.
KeyPath JoinKeyPaths(KeyPath path, const KeyPath &more);
bool BeginsWith(const KeyPath &path, const FoldedPath &prefix);
// What follows the first `count` components.
KeyPath KeyPathBelow(const KeyPath &path, std::size_t count);
// The first `count` components.
KeyPath KeyPathPrefix(const KeyPath &path, std::size_t count);

}  // namespace machine
