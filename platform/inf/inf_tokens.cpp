#include "platform/inf/inf_tokens.h"

#include <charconv>

#include "platform/inf/inf_file.h"
#include "platform/inf/inf_lines.h"

namespace machine {
namespace {

constexpr std::string_view kStrings = "Strings";
constexpr unsigned kPrimaryLanguage = 0x3FF;

// The language of a [Strings.LLLL] section, 0 when the name is not of that form.
unsigned StringsLanguage(std::string_view name) {
  if (name.size() != kStrings.size() + 5 || !SameName(name.substr(0, kStrings.size()), kStrings)) return 0;
  if (name[kStrings.size()] != '.') return 0;
  const char *end = name.data() + name.size();
  unsigned language = 0;
  const std::from_chars_result read = std::from_chars(end - 4, end, language, 16);
  return read.ec == std::errc() && read.ptr == end ? language : 0;
}

// The section of the language itself, else of its neutral form, else of the same primary language.
std::uint32_t LanguageSection(const InfFile &file) {
  const unsigned wanted = file.settings->language;
  std::uint32_t best = kInfNone;
  unsigned bestFit = 0;
  for (std::uint32_t i = 0; i < file.sections.size(); ++i) {
    const unsigned language = StringsLanguage(SectionName(file, file.sections[i]));
    if (language == 0) continue;
    unsigned fit = 0;
    if (language == wanted) {
      fit = 3;
    } else if (language == (wanted & kPrimaryLanguage)) {
      fit = 2;
    } else if ((language & kPrimaryLanguage) == (wanted & kPrimaryLanguage)) {
      fit = 1;
    }
    if (fit <= bestFit) continue;
    best = i;
    bestFit = fit;
  }
  return best;
}

// The first value of a key counts; a key without one leaves it to a later line.
void TakeStrings(InfFile *file, std::uint32_t index) {
  if (index == kInfNone) return;
  const InfSection &section = ParsedSection(file, index);
  for (const InfLine &line : section.lines) {
    if (!line.hasKey || line.valueCount == 0) continue;
    file->tokens.try_emplace(std::string(RawField(section, line, 0)), RawField(section, line, 1));
  }
}

// [Strings] supplies what the language's section leaves out, so that a half-translated file still works.
void ReadTokens(InfFile *file) {
  if (file->tokensRead) return;
  file->tokensRead = true;
  TakeStrings(file, LanguageSection(*file));
  TakeStrings(file, FindSectionIndex(*file, kStrings));
  const InfSettings &settings = *file->settings;
  const std::pair<const char *, std::string_view> directories[] = {
      {"10", settings.windows}, {"11", settings.system}, {"12", settings.drivers}, {"17", settings.inf}};
  for (const auto &[id, path] : directories) {
    if (!path.empty()) file->tokens.try_emplace(id, path);
  }
}

}  // namespace

std::string ReplaceTokens(InfFile *file, std::string_view text) {
  if (text.find('%') == std::string_view::npos) return std::string(text);
  ReadTokens(file);
  std::string result;
  std::size_t at = 0;
  while (at < text.size() && result.size() <= kInfFieldMax) {
    const std::size_t open = text.find('%', at);
    result += text.substr(at, open - at);
    if (open == std::string_view::npos) break;
    const std::size_t close = text.find('%', open + 1);
    if (close == std::string_view::npos) {
      result += text.substr(open);
      break;
    }
    at = close + 1;
    if (close == open + 1) {
      result += '%';
      continue;
    }
    const auto found = file->tokens.find(text.substr(open + 1, close - open - 1));
    result += found != file->tokens.end() ? found->second : text.substr(open, at - open);
  }
  result.resize(WholeCharacters(result, kInfFieldMax, *file->settings));
  return result;
}

}  // namespace machine
