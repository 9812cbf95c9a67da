// For whoever looks at each value of a large section once. The walk goes by the few characters that part a plain line.
// Two-byte characters, quotes and continuations only the grammar itself can read: a body with one of the former goes to
// it, and the rest of one from a continuation on.
#include "platform/inf/inf_values.h"

#include <algorithm>
#include <array>
#include <bit>
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

// The first of these characters, sixteen at a time; `end` when there is none.
template <char... kWanted>
const char *FindAny(const char *at, const char *end) {
  using Block = unsigned char __attribute__((vector_size(16)));
  for (Block block; end - at >= static_cast<std::ptrdiff_t>(sizeof block); at += sizeof block) {
    std::memcpy(&block, at, sizeof block);
    const auto met = ((block == static_cast<unsigned char>(kWanted)) | ...);
    std::array<std::uint64_t, 2> halves;
    static_assert(sizeof met == sizeof halves && std::endian::native == std::endian::little);
    std::memcpy(&halves, &met, sizeof halves);
    if (halves[0] != 0) return at + std::countr_zero(halves[0]) / 8;
    if (halves[1] != 0) return at + 8 + std::countr_zero(halves[1]) / 8;
  }
  while (at < end && ((*at != kWanted) && ...)) ++at;
  return at;
}

std::string_view Trimmed(const char *begin, const char *end) {
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\v' || c == '\f'; };
  while (begin < end && blank(*begin)) ++begin;
  while (begin < end && blank(end[-1])) --end;
  return {begin, static_cast<std::size_t>(end - begin)};
}

// The values of one plain line from the first wanted field on.
struct ValueLine {
  std::array<std::string_view, 64> values;  // more than any real line has
  std::size_t count;
  bool plain;       // it is none that goes on in the next line, and has no more values than that
  const char *end;  // where its line end begins
};

void ScanLine(const char *begin, const char *end, std::uint32_t first, ValueLine *line) {
  line->count = 0;
  line->plain = true;
  const char *at = begin, *field = begin;
  std::uint32_t number = 0;  // of the field
  bool valuesOnly = false;
  const auto take = [&] {
    if (number < first) return;
    line->plain = line->plain && line->count < line->values.size();
    if (line->plain) line->values[line->count++] = Trimmed(field, at);
  };
  for (;; ++at) {
    at = FindAny<'=', ',', ';', '\n', '\r'>(at, end);
    if (at == end || (*at != '=' && *at != ',')) break;
    if (number == 0) {
      // A comma before any "=" makes the line one of values only.
      valuesOnly = valuesOnly || *at == ',';
      if (valuesOnly) continue;
    } else if (*at == '=') {
      continue;
    } else {
      take();
    }
    field = at + 1;
    ++number;
  }
  take();
  line->plain = line->plain && !Trimmed(begin, at).ends_with('\\');
  line->end = at < end && *at == ';' ? FindAny<'\n', '\r'>(at, end) : at;
}

bool WalkBody(const ValueWalk &walk, std::string_view body) {
  const char *at = body.data(), *const end = at + body.size();
  const InfSettings &settings = walk.settings;
  const auto isLead = [&](char c) { return settings.classes[static_cast<unsigned char>(c)] == InfChar::kLead; };
  if (body.find('"') != body.npos || (settings.twoByte && std::any_of(at, end, isLead))) return WalkParsed(walk, body);
  ValueLine line;
  while (at < end) {
    ScanLine(at, end, walk.first, &line);
    if (!line.plain) return WalkParsed(walk, {at, static_cast<std::size_t>(end - at)});
    for (std::size_t i = 0; i < line.count; ++i) {
      if (!Take(walk, line.values[i])) return false;
    }
    at = line.end;
    if (at < end) at += *at == '\r' && end - at > 1 && at[1] == '\n' ? 2 : 1;
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
