#include "platform/inf/inf_headers.h"

#include "platform/inf/inf_lines.h"
#include "platform/inf/inf_section_table.h"
#include "platform/platform.h"

namespace machine {
namespace {

constexpr std::size_t kUsualSections = 32;  // set aside at first, for speed

// What keeps a text from being INF text, with the set-up library's number for it.
struct Problem {
  std::uint32_t error;
  const char *reason;
};
constexpr Problem kTextBefore = {ERROR_EXPECTED_SECTION_NAME, "there is text before the first section"};
constexpr Problem kNotClosed = {ERROR_BAD_SECTION_NAME_LINE, "a section name has no \"]\""};
constexpr Problem kNameTooLong = {ERROR_SECTION_NAME_TOO_LONG, "a section name is longer than 255 characters"};
constexpr Problem kHighByteFirst = {ERROR_EXPECTED_SECTION_NAME,
                                    "the text is UTF-16 with the high byte first, save it as UTF-16LE"};
constexpr Problem kFileTooLarge = {ERROR_WRONG_INF_STYLE, "the file is larger than 64 MB"};

// Finds the section headers of a file and enters them.
struct HeaderFinder {
  InfFile *file;
  std::size_t headerLine = std::string_view::npos;  // where the latest header's line begins
  const Problem *problem = nullptr;
  std::size_t problemAt = 0;
};

InfChar ClassAt(const InfFile &file, std::size_t at) {
  return file.settings->classes[static_cast<unsigned char>(file.text[at])];
}

std::string_view Trim(std::string_view text, const InfSettings &settings) {
  const auto blank = [&settings](char c) { return settings.classes[static_cast<unsigned char>(c)] == InfChar::kBlank; };
  while (!text.empty() && blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && blank(text.back())) text.remove_suffix(1);
  return text;
}

std::size_t LineEndFrom(const InfFile &file, std::size_t at) {
  while (at < file.text.size() && ClassAt(file, at) != InfChar::kLineEnd) ++at;
  return at;
}

// Whether the line before the one that begins at `lineBegin` goes on in it. A header line never does; any line that
// looks like one has been judged already.
bool IsContinued(const HeaderFinder &finder, std::size_t lineBegin) {
  if (lineBegin == 0) return false;
  const InfFile &file = *finder.file;
  std::size_t end = lineBegin - 1;
  if (file.text[end] == '\n' && end > 0 && file.text[end - 1] == '\r') --end;
  bool backslash = false;
  std::size_t begin = end;
  for (; begin > 0 && ClassAt(file, begin - 1) != InfChar::kLineEnd; --begin) {
    if (file.text[begin - 1] == '\\') backslash = true;
  }
  if (!backslash || begin == finder.headerLine) return false;
  return EndsInContinuation(file.text.substr(begin, end - begin), *file.settings);
}

// Enters the header whose "[" is at `bracket`. Returns where its line ends, or npos with a problem.
std::size_t EnterHeader(HeaderFinder *finder, std::size_t lineBegin, std::size_t bracket) {
  InfFile *file = finder->file;
  std::size_t close = bracket + 1;
  InfChar kind = InfChar::kText;
  for (; close < file->text.size() && file->text[close] != ']'; close += kind == InfChar::kLead ? 2 : 1) {
    kind = ClassAt(*file, close);
    if (kind == InfChar::kLineEnd) break;
  }
  finder->problemAt = bracket;
  if (close >= file->text.size() || kind == InfChar::kLineEnd) {
    finder->problem = &kNotClosed;
    return std::string_view::npos;
  }
  const std::string_view name = Trim(file->text.substr(bracket + 1, close - bracket - 1), *file->settings);
  if (name.size() > kInfSectionNameMax) {
    finder->problem = &kNameTooLong;
    return std::string_view::npos;
  }
  if (!file->bodies.empty()) file->bodies.back().span.end = static_cast<std::uint32_t>(lineBegin);
  const auto nameBegin = static_cast<std::uint32_t>(name.data() - file->text.data());
  const std::size_t lineEnd = LineEndFrom(*file, close);
  AddBody(file, {nameBegin, static_cast<std::uint32_t>(nameBegin + name.size())}, lineEnd);
  finder->headerLine = lineBegin;
  return lineEnd;
}

// Text before the first section must be blank or comment.
bool CheckStart(HeaderFinder *finder) {
  const InfFile &file = *finder->file;
  if (file.settings->passOverTextBefore) return true;
  const std::size_t end = finder->headerLine == std::string_view::npos ? file.text.size() : finder->headerLine;
  for (std::size_t at = 0; at < end; ++at) {
    const InfChar kind = ClassAt(file, at);
    if (kind == InfChar::kBlank || kind == InfChar::kLineEnd) continue;
    if (kind != InfChar::kComment) {
      finder->problemAt = at;
      finder->problem = &kTextBefore;
      return false;
    }
    at = LineEndFrom(file, at);
  }
  return true;
}

bool FindHeaders(HeaderFinder *finder) {
  finder->file->bodies.reserve(kUsualSections);
  finder->file->sections.reserve(kUsualSections);
  const std::string_view text = finder->file->text;
  bool first = true;
  for (std::size_t bracket = text.find('['); bracket != text.npos; bracket = text.find('[', bracket)) {
    std::size_t lineBegin = bracket;
    while (lineBegin > 0 && ClassAt(*finder->file, lineBegin - 1) == InfChar::kBlank) --lineBegin;
    const bool atLineBegin = lineBegin == 0 || ClassAt(*finder->file, lineBegin - 1) == InfChar::kLineEnd;
    if (!atLineBegin || IsContinued(*finder, lineBegin)) {
      ++bracket;
      continue;
    }
    bracket = EnterHeader(finder, lineBegin, bracket);
    if (bracket == std::string_view::npos) return false;
    if (first && !CheckStart(finder)) return false;
    first = false;
  }
  return !first || CheckStart(finder);
}

void Refuse(const Problem &problem, unsigned line, InfRefusal *refusal) {
  if (refusal != nullptr) *refusal = {problem.error, line, "line " + std::to_string(line) + ": " + problem.reason};
}

unsigned LineNumber(const InfFile &file, std::size_t at) {
  unsigned number = 1;
  for (std::size_t i = 0; i < at; ++i) {
    if (file.text[i] == '\n' || (file.text[i] == '\r' && (i + 1 == file.text.size() || file.text[i + 1] != '\n')))
      ++number;
  }
  return number;
}

}  // namespace

bool FindSections(InfFile *file, InfRefusal *refusal) {
  HeaderFinder finder{file};
  if (FindHeaders(&finder)) return true;
  Refuse(*finder.problem, LineNumber(*file, finder.problemAt), refusal);
  return false;
}

void RefuseSize(InfRefusal *refusal) { Refuse(kFileTooLarge, 1, refusal); }

void RefuseHighByteFirst(InfRefusal *refusal) { Refuse(kHighByteFirst, 1, refusal); }

}  // namespace machine
