#include "platform/machine/text/wildcard.h"

#include "platform/text/ansi_case.h"
#include "platform/text/code_page.h"

namespace machine {
namespace {

std::u16string Fold(std::string_view name) { return AnsiToUtf16(FoldName(name)); }

// The positions in the pattern that the part of the name read so far may have led to.
using Positions = std::vector<bool>;

// Adds what can be reached without reading a character, when `next` is the character to come (0 at the end).
void SkipOptional(const NamePattern &pattern, char16_t next, Positions *at) {
  for (std::size_t i = 0; i < pattern.items.size(); ++i) {
    if (!(*at)[i]) continue;
    const char32_t item = pattern.items[i];
    const bool optional = item == NamePattern::kAny || item == NamePattern::kAnyToLastDot ||
                          (item == NamePattern::kOne && (next == 0 || next == u'.')) ||
                          (item == NamePattern::kDot && next == 0);
    if (optional) (*at)[i + 1] = true;
  }
}

// The positions after reading `c`.
Positions Advance(const NamePattern &pattern, const Positions &at, char16_t c, bool lastDot) {
  Positions after(at.size());
  for (std::size_t i = 0; i < pattern.items.size(); ++i) {
    if (!at[i]) continue;
    const char32_t item = pattern.items[i];
    if (item == NamePattern::kAny || (item == NamePattern::kAnyToLastDot && !lastDot)) {
      after[i] = true;
    } else if (item == c || (item == NamePattern::kOne && c != u'.') || (item == NamePattern::kDot && c == u'.')) {
      after[i + 1] = true;
    }
  }
  return after;
}

char32_t ItemAt(const std::u16string &text, std::size_t i) {
  const char16_t next = i + 1 < text.size() ? text[i + 1] : u'\0';
  if (text[i] == u'?') return NamePattern::kOne;
  if (text[i] == u'.' && (next == u'?' || next == u'*')) return NamePattern::kDot;
  if (text[i] == u'*') return next == u'.' ? NamePattern::kAnyToLastDot : NamePattern::kAny;
  return text[i];
}

}  // namespace

NamePattern MakePattern(std::string_view pattern) {
  std::u16string text = Fold(pattern);
  if (text == u"*.*") text.resize(1);
  const bool endsInDot = text.ends_with(u'.');
  const std::size_t end = text.find_last_not_of(u". ");
  text.resize(end == std::u16string::npos ? 0 : end + 1);
  NamePattern made;
  for (std::size_t i = 0; i < text.size(); ++i) made.items.push_back(ItemAt(text, i));
  if (endsInDot && text.ends_with(u'*')) made.items.back() = NamePattern::kAnyToLastDot;
  return made;
}

bool MatchesPattern(const NamePattern &pattern, std::string_view name) {
  const std::u16string text = Fold(name);
  const std::size_t lastDot = text.rfind(u'.');
  Positions at(pattern.items.size() + 1);
  at[0] = true;
  for (std::size_t i = 0; i < text.size(); ++i) {
    SkipOptional(pattern, text[i], &at);
    at = Advance(pattern, at, text[i], i == lastDot);
  }
  SkipOptional(pattern, 0, &at);
  return at.back();
}

}  // namespace machine
