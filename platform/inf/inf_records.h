// The records of a file that is read.
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
  bool twoByte = false;  // whether the code page has lead bytes
  // Takes text before the first section, and UTF-16 with the high byte first, which else refuse the file.
  bool passOverTextBefore = false;
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

}  // namespace machine
