#include "platform/inf/inf_file.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "platform/inf/inf_lines.h"
#include "platform/platform.h"
#include "platform/text/ansi_case.h"
#include "platform/text/code_page.h"

namespace machine {
namespace {

constexpr char kEndOfFile = 0x1A;
// What is set aside at first, for speed.
constexpr std::size_t kUsualSections = 32;
constexpr std::size_t kUsualLine = 24;  // characters
// A section that is searched through this often by key gets a table of its keys.
constexpr std::size_t kScansBeforeTable = 16;

InfBytes CopyOf(std::string_view text) {
  InfBytes copy{std::make_unique_for_overwrite<char[]>(text.size()), text.size()};
  std::copy(text.begin(), text.end(), copy.memory.get());
  return copy;
}

// Narrows UTF-16LE up to the first character that is not ASCII. Returns the count of characters.
std::size_t NarrowAscii(std::string_view units, char *out) {
  static_assert(std::endian::native == std::endian::little);
  const std::size_t length = units.size() / 2;
  std::size_t at = 0;
  // Whole blocks, which the compiler takes by the vector.
  std::array<std::uint16_t, 32> block;
  for (; at + block.size() <= length; at += block.size()) {
    std::memcpy(block.data(), units.data() + 2 * at, sizeof block);
    unsigned all = 0;
    for (const std::uint16_t unit : block) all |= unit;
    if (all >= 0x80) break;
    std::array<char, block.size()> narrow;
    for (std::size_t i = 0; i < block.size(); ++i) narrow[i] = static_cast<char>(block[i]);
    std::memcpy(out + at, narrow.data(), narrow.size());
  }
  for (; at < length; ++at) {
    std::uint16_t unit;
    std::memcpy(&unit, units.data() + 2 * at, sizeof unit);
    if (unit >= 0x80) break;
    out[at] = static_cast<char>(unit);
  }
  return at;
}

// Nearly all of a file is ASCII, so only what is not goes through the code page.
InfBytes Utf16LeToAnsi(std::string_view units, unsigned codePage) {
  units.remove_suffix(units.size() % 2);
  // A character never takes more bytes than in UTF-16.
  InfBytes text{std::make_unique_for_overwrite<char[]>(units.size()), 0};
  while (!units.empty()) {
    const std::size_t ascii = NarrowAscii(units, text.memory.get() + text.size);
    text.size += ascii;
    units.remove_prefix(2 * ascii);
    std::u16string wide;
    for (; !units.empty(); units.remove_prefix(2)) {
      char16_t unit;
      std::memcpy(&unit, units.data(), sizeof unit);
      if (unit < 0x80) break;
      wide += unit;
    }
    if (wide.empty()) continue;
    const std::string converted = Utf16ToAnsi(wide, codePage);
    const std::size_t taken = std::min(converted.size(), 2 * wide.size());
    std::copy_n(converted.begin(), taken, text.memory.get() + text.size);
    text.size += taken;
  }
  return text;
}

// Sets the file's memory and text.
void Decode(InfBytes bytes, unsigned codePage, InfFile *file) {
  std::string_view text(bytes.memory.get(), bytes.size);
  if (text.starts_with("\xFF\xFE")) {
    bytes = Utf16LeToAnsi(text.substr(2), codePage);
    text = {bytes.memory.get(), bytes.size};
  } else if (text.starts_with("\xEF\xBB\xBF")) {
    text.remove_prefix(3);
    if (!std::all_of(text.begin(), text.end(), IsAscii)) {
      bytes = CopyOf(Utf8ToAnsi(text, codePage));
      text = {bytes.memory.get(), bytes.size};
    }
  }
  text = text.substr(0, text.find(kEndOfFile));
  if (text.find('\0') != std::string_view::npos) {
    char *begin = bytes.memory.get() + (text.data() - bytes.memory.get());
    std::replace(begin, begin + text.size(), '\0', ' ');
  }
  file->memory = std::move(bytes.memory);
  file->text = text;
}

// What keeps a text from being INF text, with the set-up library's number for it.
struct Problem {
  std::uint32_t error;
  const char *reason;
};
constexpr Problem kTextBefore = {ERROR_EXPECTED_SECTION_NAME, "there is text before the first section"};
constexpr Problem kNotClosed = {ERROR_BAD_SECTION_NAME_LINE, "a section name has no \"]\""};
constexpr Problem kNameTooLong = {ERROR_SECTION_NAME_TOO_LONG, "a section name is longer than 255 characters"};
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

void EnterSlot(InfFile *file, std::uint32_t section) {
  const std::size_t mask = file->slots.size() - 1;
  std::size_t slot = file->sections[section].hash & mask;
  while (file->slots[slot] != kInfNone) slot = (slot + 1) & mask;
  file->slots[slot] = section;
}

std::uint32_t FindHashed(const InfFile &file, std::string_view name, std::uint32_t hash) {
  if (file.slots.empty()) return kInfNone;
  const std::size_t mask = file.slots.size() - 1;
  for (std::size_t slot = hash & mask; file.slots[slot] != kInfNone; slot = (slot + 1) & mask) {
    const InfSection &section = file.sections[file.slots[slot]];
    if (section.hash == hash && SameName(SectionName(file, section), name)) return file.slots[slot];
  }
  return kInfNone;
}

std::uint32_t AddSection(InfFile *file, InfSpan name, std::uint32_t hash) {
  const auto index = static_cast<std::uint32_t>(file->sections.size());
  file->sections.emplace_back();
  file->sections.back().name = name;
  file->sections.back().hash = hash;
  if (file->sections.size() * 2 <= file->slots.size()) {
    EnterSlot(file, index);
    return index;
  }
  file->slots.assign(std::max<std::size_t>(64, file->slots.size() * 2), kInfNone);
  for (std::uint32_t section = 0; section <= index; ++section) EnterSlot(file, section);
  return index;
}

void AddBody(InfFile *file, InfSpan name, std::size_t begin) {
  const std::string_view text = file->text.substr(name.begin, name.end - name.begin);
  const std::uint32_t hash = HashName(text);
  std::uint32_t index = FindHashed(*file, text, hash);
  if (index == kInfNone) index = AddSection(file, name, hash);
  InfSection &section = file->sections[index];
  const auto body = static_cast<std::uint32_t>(file->bodies.size());
  file->bodies.push_back({{static_cast<std::uint32_t>(begin), static_cast<std::uint32_t>(file->text.size())}});
  if (section.lastBody == kInfNone) {
    section.firstBody = body;
  } else {
    file->bodies[section.lastBody].next = body;
  }
  section.lastBody = body;
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

void MakeKeyTable(InfFile *file, InfSection *section) {
  section->firstOfKey = std::make_unique<NameTable<std::uint32_t>>();
  for (std::uint32_t i = 0; i < section->lines.size(); ++i) {
    const InfLine &line = section->lines[i];
    if (line.hasKey) section->firstOfKey->try_emplace(FieldText(file, *section, line, 0), i);
  }
}

}  // namespace

std::shared_ptr<const InfSettings> MakeInfSettings(unsigned codePage, unsigned language,
                                                   std::string_view windowsDirectory,
                                                   std::string_view systemDirectory) {
  auto settings = std::make_shared<InfSettings>();
  settings->codePage = codePage;
  settings->language = language;
  settings->windows = windowsDirectory;
  settings->system = systemDirectory;
  if (!windowsDirectory.empty()) settings->inf = settings->windows + "\\inf";
  if (!systemDirectory.empty()) settings->drivers = settings->system + "\\drivers";
  const auto set = [&settings](std::string_view characters, InfChar kind) {
    for (const char c : characters) settings->classes[static_cast<unsigned char>(c)] = kind;
  };
  set(" \t\v\f", InfChar::kBlank);
  set("\r\n", InfChar::kLineEnd);
  set("\"", InfChar::kQuote);
  set(";", InfChar::kComment);
  set(",", InfChar::kComma);
  set("=", InfChar::kEquals);
  set("\\", InfChar::kBackslash);
  for (unsigned byte = 0x80; byte <= 0xFF; ++byte) {
    if (!IsLeadByte(static_cast<unsigned char>(byte), codePage)) continue;
    settings->classes[byte] = InfChar::kLead;
    settings->twoByte = true;
  }
  return settings;
}

std::shared_ptr<InfFile> ReadInf(InfBytes bytes, std::shared_ptr<const InfSettings> settings, InfRefusal *refusal) {
  if (bytes.size > kInfSizeMax) {
    Refuse(kFileTooLarge, 1, refusal);
    return nullptr;
  }
  auto file = std::make_shared<InfFile>();
  file->settings = std::move(settings);
  Decode(std::move(bytes), file->settings->codePage, file.get());
  HeaderFinder finder{file.get()};
  if (FindHeaders(&finder)) return file;
  Refuse(*finder.problem, LineNumber(*file, finder.problemAt), refusal);
  return nullptr;
}

std::shared_ptr<InfFile> ReadInf(std::string_view bytes, std::shared_ptr<const InfSettings> settings,
                                 InfRefusal *refusal) {
  return ReadInf(CopyOf(bytes), std::move(settings), refusal);
}

std::uint32_t FindSectionIndex(const InfFile &file, std::string_view name) {
  return FindHashed(file, name, HashName(name));
}

const InfSection &ParsedSection(InfFile *file, std::uint32_t index) {
  InfSection &section = file->sections[index];
  if (section.parsed) return section;
  section.parsed = true;
  std::size_t size = 0;
  for (std::uint32_t body = section.firstBody; body != kInfNone; body = file->bodies[body].next) {
    size += file->bodies[body].span.end - file->bodies[body].span.begin;
  }
  section.pool.reserve(size);
  section.lines.reserve(size / kUsualLine + 1);
  section.texts.reserve(size / kUsualLine * 2 + 2);
  for (std::uint32_t body = section.firstBody; body != kInfNone; body = file->bodies[body].next) {
    const InfSpan span = file->bodies[body].span;
    ParseLines(file->text.substr(span.begin, span.end - span.begin), *file->settings, &section);
  }
  return section;
}

const InfSection *FindSection(InfFile *file, std::string_view name) {
  const std::uint32_t index = FindSectionIndex(*file, name);
  return index == kInfNone ? nullptr : &ParsedSection(file, index);
}

std::string_view SectionName(const InfFile &file, const InfSection &section) {
  return file.text.substr(section.name.begin, section.name.end - section.name.begin);
}

bool HasField(const InfLine &line, std::uint32_t field) { return field == 0 ? line.hasKey : field <= line.valueCount; }

std::string_view RawField(const InfSection &section, const InfLine &line, std::uint32_t field) {
  const InfSpan span = section.texts[line.firstText + field - (line.hasKey ? 0 : 1)];
  return std::string_view(section.pool).substr(span.begin, span.end - span.begin);
}

std::string FieldText(InfFile *file, const InfSection &section, const InfLine &line, std::uint32_t field) {
  return ReplaceTokens(file, RawField(section, line, field));
}

std::uint32_t FindKey(InfFile *file, const InfSection &section, std::string_view key, std::uint32_t first) {
  InfSection &counted = file->sections[static_cast<std::size_t>(&section - file->sections.data())];
  if (first == 0 && counted.scanned > kScansBeforeTable * (section.lines.size() + 1)) {
    if (counted.firstOfKey == nullptr) MakeKeyTable(file, &counted);
    const auto found = counted.firstOfKey->find(key);
    return found != counted.firstOfKey->end() ? found->second : kInfNone;
  }
  for (std::uint32_t i = first; i < section.lines.size(); ++i) {
    const InfLine &line = section.lines[i];
    if (!line.hasKey) continue;
    ++counted.scanned;
    const std::string_view raw = RawField(section, line, 0);
    const bool plain = raw.find('%') == std::string_view::npos;
    if (plain ? SameName(raw, key) : SameName(ReplaceTokens(file, raw), key)) return i;
  }
  return kInfNone;
}

bool FindValue(InfFile *file, const InfSection &section, std::string_view key, std::string *value) {
  for (std::uint32_t i = FindKey(file, section, key); i != kInfNone; i = FindKey(file, section, key, i + 1)) {
    if (section.lines[i].valueCount == 0) continue;
    *value = FieldText(file, section, section.lines[i], 1);
    return true;
  }
  return false;
}

bool IsModernInf(InfFile *file) {
  std::string signature;
  const InfSection *version = FindSection(file, "Version");
  if (version == nullptr || !FindValue(file, *version, "Signature", &signature)) return false;
  return SameName(signature, "$Windows NT$") || SameName(signature, "$Chicago$") || SameName(signature, "$Windows 95$");
}

std::size_t MemoryOf(const InfFile &file) {
  std::size_t size = sizeof(InfFile) + file.text.size() + file.bodies.capacity() * sizeof(InfBody) +
                     file.sections.capacity() * sizeof(InfSection) + file.slots.capacity() * sizeof(std::uint32_t) +
                     file.tokens.size() * 96;
  for (const InfSection &section : file.sections) {
    size += section.pool.capacity() + section.texts.capacity() * sizeof(InfSpan) +
            section.lines.capacity() * sizeof(InfLine);
  }
  return size;
}

std::size_t WholeCharacters(std::string_view text, std::size_t limit, const InfSettings &settings) {
  if (!settings.twoByte) return std::min(text.size(), limit);
  return WholeCharacters(text, limit, [&](unsigned char byte) { return settings.classes[byte] == InfChar::kLead; });
}

}  // namespace machine
