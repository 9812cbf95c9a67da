#include "platform/machine/text/command_line.h"

#include <algorithm>

#include "platform/text/code_page.h"
#include "platform/text/program_name.h"

namespace machine {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

std::size_t SkipBlanks(std::string_view text, std::size_t at) {
  while (at < text.size() && IsBlank(text[at])) ++at;
  return at;
}

// A two-byte character whole, so that its second byte is not taken for a backslash; else one byte.
std::size_t CharacterSize(std::string_view text, std::size_t at) {
  return IsLeadByte(static_cast<unsigned char>(text[at])) && at + 1 < text.size() ? 2 : 1;
}

// A word in which quotes keep blanks together and nothing else has a meaning.
std::string TakeWord(std::string_view text, std::size_t *at) {
  std::string word;
  bool quoted = false;
  while (*at < text.size() && (quoted || !IsBlank(text[*at]))) {
    const std::size_t size = CharacterSize(text, *at);
    if (text[*at] == '"') {
      quoted = !quoted;
    } else {
      word.append(text, *at, size);
    }
    *at += size;
  }
  return word;
}

// Takes a run of backslashes, and the quote behind it when the run makes that text.
void TakeBackslashes(std::string_view text, std::size_t *at, std::string *argument) {
  const std::size_t end = std::min(text.find_first_not_of('\\', *at), text.size());
  const std::size_t count = end - *at;
  *at = end;
  if (end == text.size() || text[end] != '"') {
    argument->append(count, '\\');
    return;
  }
  argument->append(count / 2, '\\');
  if (count % 2 == 0) return;
  *argument += '"';
  ++*at;
}

std::string TakeArgument(std::string_view text, std::size_t *at) {
  std::string argument;
  bool quoted = false;
  while (*at < text.size() && (quoted || !IsBlank(text[*at]))) {
    if (text[*at] == '\\') {
      TakeBackslashes(text, at, &argument);
    } else if (text[*at] != '"') {
      const std::size_t size = CharacterSize(text, *at);
      argument.append(text, *at, size);
      *at += size;
    } else if (quoted && text.substr(*at).starts_with("\"\"")) {
      argument += '"';
      *at += 2;
    } else {
      quoted = !quoted;
      ++*at;
    }
  }
  return argument;
}

// Whether the command interpreter takes the arguments for words and nothing else.
bool AreWords(std::string_view arguments) {
  bool quoted = false;
  char before = ' ';
  for (std::size_t at = 0; at < arguments.size(); at += CharacterSize(arguments, at)) {
    const char c = arguments[at];
    const bool isSwitch = c == '/' && IsBlank(before);
    if (c == '"') quoted = !quoted;
    if (std::string_view("%*?").find(c) != std::string_view::npos) return false;
    if (!quoted && !isSwitch && std::string_view("+/,;=&|<>()^").find(c) != std::string_view::npos) return false;
    before = c;
  }
  return true;
}

}  // namespace

std::vector<std::string> SplitCommandLine(std::string_view text) {
  std::vector<std::string> parts;
  std::size_t at = SkipBlanks(text, 0);
  if (at == text.size()) return parts;
  std::string program(text.size() + 1, '\0');
  at += platform::TakeProgramName(text.substr(at), program.data(), program.size());
  parts.emplace_back(program.c_str());
  for (at = SkipBlanks(text, at); at < text.size(); at = SkipBlanks(text, at)) {
    parts.push_back(TakeArgument(text, &at));
  }
  return parts;
}

std::vector<std::string> SplitInterpreterLine(std::string_view text) {
  std::size_t at = SkipBlanks(text, 0);
  std::vector<std::string> words = {TakeWord(text, &at)};
  if (!AreWords(text.substr(at))) return {};
  for (at = SkipBlanks(text, at); at < text.size(); at = SkipBlanks(text, at)) words.push_back(TakeWord(text, &at));
  return words;
}

}  // namespace machine
