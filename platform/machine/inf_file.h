// Reader of INF files: the text of one file, its sections found in one pass, a section's lines parsed when first asked
// for. Depends on no machine, so that a tool can show a file as the reader sees it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

struct InfLine {
  bool hasKey = false;
  std::string key;                  // %tokens% replaced
  std::vector<std::string> fields;  // values, from field 1 on
};

struct InfSection {
  std::string name;  // as first written
  std::vector<std::pair<std::uint32_t, std::uint32_t>> spans;  // begin and end of its bodies in the text, in file order
  bool parsed = false;
  std::vector<InfLine> lines;
};

// Replacements that are not in the file: directory ids such as %12%. Keys are the numbers as text.
struct InfDirectoryIds {
  std::string windows, system, drivers, inf;  // %10%, %11%, %12%, %17%; empty: left as they stand
};

struct InfFile {
  std::string text;  // in the ANSI code page
  std::vector<InfSection> sections;
  unsigned language = 0;
  unsigned codePage = 1252;
  InfDirectoryIds directoryIds;
};

// Takes a file's bytes in any of the encodings of INF files. Null, with a reason for people, when it is not INF text.
std::unique_ptr<InfFile> ReadInf(std::string bytes, unsigned codePage, unsigned language, std::string *reason);
// Null when there is none. Parses the section's lines when that has not been done.
const InfSection *FindSection(InfFile *file, std::string_view name);
// Whether [Version] has a modern Signature.
bool IsModernInf(InfFile *file);

}  // namespace machine
