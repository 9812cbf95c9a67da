#include "platform/inf/inf_lines.h"

#include <algorithm>

#include "platform/text/code_page.h"

namespace machine {
namespace {

InfChar ClassOf(char c, const InfSettings &settings) { return settings.classes[static_cast<unsigned char>(c)]; }

// A logical line while it is read. Blanks at a field's end go when it ends, those inside quotes stay.
struct LineReader {
  std::string_view body;
  const InfSettings &settings;
  InfSection *section;
  std::size_t at = 0;

  std::size_t fieldBegin = 0;  // in the section's pool
  std::size_t fieldKept = 0;   // end of what trailing blanks do not reach
  bool quoted = false;         // the field has quotes, so that even an empty one is a value
  bool inQuotes = false;
  InfLine line = {};
  bool sawComma = false;
};

bool AtEnd(const LineReader &in) { return in.at >= in.body.size(); }

InfChar Class(const LineReader &in) { return ClassOf(in.body[in.at], in.settings); }

void SkipBlanks(LineReader *in) {
  std::size_t at = in->at;
  while (at < in->body.size() && ClassOf(in->body[at], in->settings) == InfChar::kBlank) ++at;
  in->at = at;
}

void SkipToLineEnd(LineReader *in) {
  std::size_t at = in->at;
  while (at < in->body.size() && in->body[at] != '\n' && in->body[at] != '\r') ++at;
  in->at = at;
}

void SkipLineEnd(LineReader *in) {
  if (AtEnd(*in)) return;
  if (in->body[in->at] == '\r' && in->at + 1 < in->body.size() && in->body[in->at + 1] == '\n') ++in->at;
  ++in->at;
}

void Append(LineReader *in, std::string_view text) {
  in->section->pool += text;
  in->fieldKept = in->section->pool.size();
}

void EndField(LineReader *in) {
  std::string &pool = in->section->pool;
  pool.resize(in->fieldKept);
  const std::string_view text = std::string_view(pool).substr(in->fieldBegin);
  pool.resize(in->fieldBegin + WholeCharacters(text, kInfFieldMax, in->settings));
  in->section->texts.push_back({static_cast<std::uint32_t>(in->fieldBegin), static_cast<std::uint32_t>(pool.size())});
  in->fieldBegin = in->fieldKept = pool.size();
  in->quoted = false;
}

void EndLine(LineReader *in) {
  const bool blank = in->fieldKept == in->fieldBegin && !in->quoted;
  InfLine &line = in->line;
  if (!line.hasKey && !in->sawComma) {
    if (blank) return;
    // One bare value is both the key and field 1.
    EndField(in);
    in->section->texts.push_back(in->section->texts.back());
    line.hasKey = true;
    line.valueCount = 1;
  } else if (in->sawComma || !blank) {
    EndField(in);
    ++line.valueCount;
  }
  in->section->lines.push_back(line);
}

// At a backslash outside quotes. Either joins the next line or takes the backslashes, and blanks among them, as text.
void ReadBackslashes(LineReader *in) {
  const std::size_t begin = in->at;
  std::size_t textEnd = begin;
  for (; !AtEnd(*in); ++in->at) {
    if (Class(*in) == InfChar::kBackslash) {
      textEnd = in->at + 1;
    } else if (Class(*in) != InfChar::kBlank) {
      break;
    }
  }
  if (AtEnd(*in) || Class(*in) == InfChar::kLineEnd || Class(*in) == InfChar::kComment) {
    in->section->pool.resize(in->fieldKept);
    SkipToLineEnd(in);
    SkipLineEnd(in);
    SkipBlanks(in);
    return;
  }
  Append(in, in->body.substr(begin, textEnd - begin));
  in->section->pool += in->body.substr(textEnd, in->at - textEnd);
}

void ReadQuoted(LineReader *in) {
  const std::size_t begin = in->at;
  while (!AtEnd(*in) && Class(*in) != InfChar::kQuote && Class(*in) != InfChar::kLineEnd) {
    const bool pair = Class(*in) == InfChar::kLead && in->at + 1 < in->body.size() &&
                      ClassOf(in->body[in->at + 1], in->settings) != InfChar::kLineEnd;
    in->at += pair ? 2 : 1;
  }
  Append(in, in->body.substr(begin, in->at - begin));
  if (AtEnd(*in) || Class(*in) == InfChar::kLineEnd) {
    in->inQuotes = false;
  } else if (in->at + 1 < in->body.size() && in->body[in->at + 1] == '"') {
    Append(in, "\"");
    in->at += 2;
  } else {
    in->inQuotes = false;
    ++in->at;
  }
}

// The end of the text that begins at `at`, and with it of blanks and backslashes that more text follows.
std::size_t PlainEnd(std::string_view body, const InfSettings &settings, std::size_t at) {
  const char *end = body.data() + body.size();
  for (const char *c = body.data() + at; c < end; ++c) {
    const InfChar kind = ClassOf(*c, settings);
    if (kind == InfChar::kText) continue;
    if (kind == InfChar::kLead) {
      if (c + 1 < end && ClassOf(c[1], settings) != InfChar::kLineEnd) ++c;
    } else if ((kind != InfChar::kBlank && kind != InfChar::kBackslash) || c + 1 >= end ||
               ClassOf(c[1], settings) != InfChar::kText) {
      return static_cast<std::size_t>(c - body.data());
    }
  }
  return body.size();
}

void ReadPlain(LineReader *in) {
  const std::size_t begin = in->at;
  in->at = PlainEnd(in->body, in->settings, begin);
  Append(in, in->body.substr(begin, in->at - begin));
}

void ReadSeparator(LineReader *in) {
  const bool comma = Class(*in) == InfChar::kComma;
  ++in->at;
  // A comma before any "=" makes the line one of values only, and further "=" are text.
  if (!comma && (in->line.hasKey || in->sawComma)) {
    Append(in, "=");
    return;
  }
  EndField(in);
  if (comma) {
    in->sawComma = true;
    ++in->line.valueCount;
  } else {
    in->line.hasKey = true;
  }
}

void ReadLine(LineReader *in) {
  in->line = {static_cast<std::uint32_t>(in->section->texts.size()), 0, false};
  in->sawComma = in->quoted = in->inQuotes = false;
  in->fieldBegin = in->fieldKept = in->section->pool.size();
  while (!AtEnd(*in)) {
    if (in->inQuotes) {
      ReadQuoted(in);
      continue;
    }
    switch (Class(*in)) {
      case InfChar::kLineEnd:
        EndLine(in);
        SkipLineEnd(in);
        return;
      case InfChar::kComment:
        SkipToLineEnd(in);
        break;
      case InfChar::kQuote:
        in->inQuotes = in->quoted = true;
        in->fieldKept = in->section->pool.size();
        ++in->at;
        break;
      case InfChar::kComma:
      case InfChar::kEquals:
        ReadSeparator(in);
        break;
      case InfChar::kBackslash:
        ReadBackslashes(in);
        break;
      case InfChar::kBlank:
        if (in->fieldKept != in->fieldBegin || in->quoted) in->section->pool += in->body[in->at];
        ++in->at;
        break;
      default:
        ReadPlain(in);
    }
  }
  EndLine(in);
}

}  // namespace

void ParseLines(std::string_view body, const InfSettings &settings, InfSection *section) {
  LineReader in{body, settings, section};
  while (!AtEnd(in)) {
    SkipBlanks(&in);
    if (!AtEnd(in) && Class(in) == InfChar::kLineEnd) {
      SkipLineEnd(&in);
    } else if (!AtEnd(in) && Class(in) == InfChar::kComment) {
      SkipToLineEnd(&in);
    } else {
      ReadLine(&in);
      section->pool.resize(in.fieldBegin);
    }
  }
}

bool EndsInContinuation(std::string_view line, const InfSettings &settings) {
  bool inQuotes = false;
  bool afterBackslash = false;
  for (std::size_t at = 0; at < line.size(); ++at) {
    const InfChar kind = ClassOf(line[at], settings);
    if (kind == InfChar::kComment && !inQuotes) break;
    if (kind == InfChar::kLead) ++at;
    if (kind == InfChar::kQuote) inQuotes = !inQuotes;
    if (kind == InfChar::kBlank) continue;
    afterBackslash = kind == InfChar::kBackslash && !inQuotes;
  }
  return afterBackslash;
}

std::size_t WholeCharacters(std::string_view text, std::size_t limit, const InfSettings &settings) {
  if (!settings.twoByte) return std::min(text.size(), limit);
  return WholeCharacters(text, limit, [&](unsigned char byte) { return settings.classes[byte] == InfChar::kLead; });
}

}  // namespace machine
