// A walk over a section's values that stores no line, for whoever looks at each value of a large section once. A line
// with quotes or a continuation, which only the grammar itself can read, goes to it, and so does what follows.
#include <algorithm>

#include "platform/inf/inf_file.h"
#include "platform/inf/inf_lines.h"

namespace machine {
namespace {

struct ValueWalk {
  const InfSettings &settings;
  std::uint32_t first;
  TakeInfValue take;
  void *context;
};

enum class LineOutcome { kRead, kStopped, kForGrammar };

bool Take(const ValueWalk &walk, std::string_view value) {
  return value.empty() || walk.take(walk.context, value.substr(0, WholeCharacters(value, kInfFieldMax, walk.settings)));
}

bool WalkParsed(const ValueWalk &walk, std::string_view body) {
  InfSection section;
  ParseLines(body, walk.settings, &section);
  for (const InfLine &line : section.lines) {
    for (std::uint32_t field = walk.first; line.hasKey && field <= line.valueCount; ++field) {
      if (!Take(walk, RawField(section, line, field))) return false;
    }
  }
  return true;
}

// What a field says while nothing of it is quoted or continued.
std::string_view Trimmed(const char *begin, const char *end) {
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\v' || c == '\f'; };
  while (begin < end && blank(*begin)) ++begin;
  while (begin < end && blank(end[-1])) --end;
  return {begin, static_cast<std::size_t>(end - begin)};
}

LineOutcome WalkLine(const ValueWalk &walk, const char **position, const char *end) {
  const auto classOf = [&walk](const char *c) { return walk.settings.classes[static_cast<unsigned char>(*c)]; };
  const char *at = *position, *begin = at;
  std::uint32_t field = 0;
  bool hasKey = false;
  InfChar kind = InfChar::kLineEnd;
  for (;; ++at) {
    kind = at < end ? classOf(at) : InfChar::kLineEnd;
    if (kind == InfChar::kText || kind == InfChar::kBlank || kind == InfChar::kBackslash) continue;
    if (kind == InfChar::kQuote) return LineOutcome::kForGrammar;
    if (kind == InfChar::kComment || kind == InfChar::kLineEnd) break;
    if (kind == InfChar::kLead) {
      if (at + 1 < end && classOf(at + 1) != InfChar::kLineEnd) ++at;
      continue;
    }
    // Behind the first of either, an "=" is text.
    if (kind == InfChar::kEquals && field != 0) continue;
    if (field == 0) hasKey = kind == InfChar::kEquals;
    if (hasKey && field >= walk.first && !Take(walk, Trimmed(begin, at))) return LineOutcome::kStopped;
    ++field;
    begin = at + 1;
  }
  const std::string_view last = Trimmed(begin, at);
  if (last.ends_with('\\')) return LineOutcome::kForGrammar;
  if (hasKey && field >= walk.first && !Take(walk, last)) return LineOutcome::kStopped;
  while (at < end && classOf(at) != InfChar::kLineEnd) ++at;
  *position = std::min(at + 1, end);
  return LineOutcome::kRead;
}

bool WalkBody(const ValueWalk &walk, std::string_view body) {
  const char *at = body.data(), *end = at + body.size();
  while (at < end) {
    const LineOutcome outcome = WalkLine(walk, &at, end);
    if (outcome == LineOutcome::kStopped) return false;
    if (outcome == LineOutcome::kForGrammar) return WalkParsed(walk, {at, static_cast<std::size_t>(end - at)});
  }
  return true;
}

}  // namespace

bool WalkValues(const InfFile &file, std::uint32_t index, std::uint32_t first, TakeInfValue take, void *context) {
  const ValueWalk walk = {*file.settings, first, take, context};
  for (std::uint32_t body = file.sections[index].firstBody; body != kInfNone; body = file.bodies[body].next) {
    const InfSpan span = file.bodies[body].span;
    if (!WalkBody(walk, file.text.substr(span.begin, span.end - span.begin))) return false;
  }
  return true;
}

}  // namespace machine
