// Reader of INF files: the text of one file, its sections found in one pass, a section's lines parsed when first asked
// for. Depends on no machine, so that a tool can show a file as the reader sees it:
//
//   for (std::uint32_t s = 0; s < file->sections.size(); ++s) {
//     const InfSection &section = ParsedSection(file, s);
//     for (std::uint32_t l = 0; l < section.lines.size(); ++l) ... FieldText(file, section, section.lines[l], i)
//   }
//
// A file's text is hostile: whatever it holds, reading takes time and memory in proportion to its size.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/text/ansi_case.h"

namespace machine {

inline constexpr std::size_t kInfSectionNameMax = 255;  // characters
inline constexpr std::size_t kInfFieldMax = 4096;       // characters; what is longer is cut
inline constexpr std::size_t kInfSizeMax = 64 << 20;    // bytes of a file; a larger one is refused
inline constexpr std::uint32_t kInfNone = 0xFFFFFFFF;   // no section, no line

// What a character means to the reader outside quotes.
enum class InfChar : std::uint8_t { kText, kBlank, kLineEnd, kQuote, kComment, kComma, kEquals, kBackslash, kLead };

// How files are read; made by MakeInfSettings and shared by all files of a machine.
struct InfSettings {
  unsigned codePage = 1252;
  unsigned language = 0x0409;
  // What the directory ids %10%, %11%, %12% and %17% stand for. Empty: they stay as they stand.
  std::string windows, system, drivers, inf;
  std::array<InfChar, 256> classes = {};
  bool twoByte = false;             // whether the code page has lead bytes
  bool passOverTextBefore = false;  // text before the first section, which else refuses the file
};

struct InfSpan {
  std::uint32_t begin = 0, end = 0;
};

// One line: `texts[firstText]` of its section is the key when it has one, and its values follow.
struct InfLine {
  std::uint32_t firstText = 0;
  std::uint32_t valueCount = 0;
  bool hasKey = false;
};

// All sections of one name as one, in file order.
struct InfSection {
  InfSpan name;  // in the file's text, as first written
  std::uint32_t hash = 0;
  std::uint32_t firstBody = kInfNone, lastBody = kInfNone;  // chain through InfFile::bodies
  bool parsed = false;
  std::string pool;            // the texts, without quotes, comments and continuations, tokens not yet replaced
  std::vector<InfSpan> texts;  // in `pool`
  std::vector<InfLine> lines;
  std::size_t scanned = 0;  // lines that searches by key have looked at
  // First line of each key; made when searches look at the lines again and again.
  std::unique_ptr<NameTable<std::uint32_t>> firstOfKey;
};

struct InfBody {
  InfSpan span;  // in the file's text
  std::uint32_t next = kInfNone;
};

struct InfFile {
  std::unique_ptr<char[]> memory;  // what `text` is part of
  std::string_view text;           // in the ANSI code page
  std::vector<InfBody> bodies;
  std::vector<InfSection> sections;  // in order of first appearance
  std::vector<std::uint32_t> slots;  // open hash table of section names
  std::shared_ptr<const InfSettings> settings;
  bool tokensRead = false;
  NameTable<std::string_view> tokens;  // name to replacement
};

// `windowsDirectory` and `systemDirectory` may be empty: directory ids then stay as they stand.
std::shared_ptr<const InfSettings> MakeInfSettings(unsigned codePage, unsigned language,
                                                   std::string_view windowsDirectory = {},
                                                   std::string_view systemDirectory = {});

// A file's bytes: UTF-16LE or UTF-8 with a byte order mark, or 8-bit text in the ANSI code page.
struct InfBytes {
  std::unique_ptr<char[]> memory;
  std::size_t size = 0;
};

// Why a file is not INF text.
struct InfRefusal {
  std::uint32_t error = 0;  // as the set-up library numbers it
  unsigned line = 0;        // from 1
  std::string reason;       // for people, with the line
};

// Null when it is not INF text: `*refusal`, when given, then says why. Whether it is a modern-style INF is another
// question (IsModernInf).
std::shared_ptr<InfFile> ReadInf(InfBytes bytes, std::shared_ptr<const InfSettings> settings,
                                 InfRefusal *refusal = nullptr);
// The same of a copy.
std::shared_ptr<InfFile> ReadInf(std::string_view bytes, std::shared_ptr<const InfSettings> settings,
                                 InfRefusal *refusal = nullptr);

// The number of the section of that name, without regard to case; kInfNone when there is none.
std::uint32_t FindSectionIndex(const InfFile &file, std::string_view name);
// The section with its lines parsed. `index` is below file->sections.size(). The reference lives as long as the file.
const InfSection &ParsedSection(InfFile *file, std::uint32_t index);
// Both in one; null when there is no such section.
const InfSection *FindSection(InfFile *file, std::string_view name);

// Gives `take` every value that is not empty, from field `first` (2 or more) on, of the section's lines with a key, in
// file order and with its tokens not replaced. Parses and stores nothing. False when `take` returned false, which ends
// the walk.
using TakeInfValue = bool (*)(void *context, std::string_view value);
bool WalkValues(const InfFile &file, std::uint32_t index, std::uint32_t first, TakeInfValue take, void *context);

std::string_view SectionName(const InfFile &file, const InfSection &section);

// Whether the line has that field: 0 its key, 1 to valueCount its values.
bool HasField(const InfLine &line, std::uint32_t field);
// A field that the line has, as it stands in the file.
std::string_view RawField(const InfSection &section, const InfLine &line, std::uint32_t field);
// A field that the line has, its %tokens% replaced.
std::string FieldText(InfFile *file, const InfSection &section, const InfLine &line, std::uint32_t field);
// Any text with its tokens replaced from the file's strings.
std::string ReplaceTokens(InfFile *file, std::string_view text);

// The number of the first line with that key from line `first` on; kInfNone when there is none. Keys are compared with
// their tokens replaced and without regard to case.
std::uint32_t FindKey(InfFile *file, const InfSection &section, std::string_view key, std::uint32_t first = 0);
// Field 1 of the first line with that key that has one. False when there is none.
bool FindValue(InfFile *file, const InfSection &section, std::string_view key, std::string *value);

// Whether [Version] has the Signature of a modern-style INF.
bool IsModernInf(InfFile *file);

// Bytes that the file takes up in memory, about.
std::size_t MemoryOf(const InfFile &file);

// The length of the longest beginning of at most `limit` bytes that splits no two-byte character.
std::size_t WholeCharacters(std::string_view text, std::size_t limit, const InfSettings &settings);

}  // namespace machine
