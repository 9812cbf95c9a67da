// For whoever looks at each value of a large section once. The walk goes by the few characters that part a plain line.
// Two-byte characters, quotes and continuations only the grammar itself can read: a body with one of the former goes to
// it, and the rest of one from a continuation on.
#include "platform/inf/inf_values.h"

#include <algorithm>
#include <cstring>

#include "platform/inf/inf_fields.h"
#include "platform/inf/inf_lines.h"

namespace machine {
namespace {

struct ValueWalk {
  const InfSettings &settings;
  std::uint32_t first;
  TakeInfValue take;
  void *context;
};

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

const char *FindChar(const char *begin, const char *end, char c) {
  const void *found = begin < end ? std::memchr(begin, c, static_cast<std::size_t>(end - begin)) : nullptr;
  return found != nullptr ? static_cast<const char *>(found) : end;
}

std::string_view Trimmed(const char *begin, const char *end) {
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\v' || c == '\f'; };
  while (begin < end && blank(*begin)) ++begin;
  while (begin < end && blank(end[-1])) --end;
  return {begin, static_cast<std::size_t>(end - begin)};
}

// A line without its comment.
bool WalkLine(const ValueWalk &walk, const char *begin, const char *end) {
  const char *at = FindChar(begin, end, '=');
  if (at == end || FindChar(begin, at, ',') != at) return true;  // no key
  for (std::uint32_t field = 1; at != end; ++field) {
    const char *comma = FindChar(++at, end, ',');
    if (field >= walk.first && !Take(walk, Trimmed(at, comma))) return false;
    at = comma;
  }
  return true;
}

bool WalkBody(const ValueWalk &walk, std::string_view body) {
  const char *at = body.data(), *const end = at + body.size();
  const InfSettings &settings = walk.settings;
  const auto isLead = [&](char c) { return settings.classes[static_cast<unsigned char>(c)] == InfChar::kLead; };
  const bool plain = FindChar(at, end, '"') == end && !(settings.twoByte && std::any_of(at, end, isLead));
  if (!plain) return WalkParsed(walk, body);
  const char *feed = at;  // the next line feed, sought anew only when it is passed
  for (bool found = false; at < end; found = true) {
    if (!found || feed < at) feed = FindChar(at, end, '\n');
    const char *lineEnd = FindChar(at, feed, '\r');
    const char *textEnd = FindChar(at, lineEnd, ';');
    if (Trimmed(at, textEnd).ends_with('\\')) return WalkParsed(walk, {at, static_cast<std::size_t>(end - at)});
    if (!WalkLine(walk, at, textEnd)) return false;
    at = lineEnd + 1 == feed ? feed + 1 : lineEnd + 1;
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
