// Code pages by the tables that the build made of them, laid out when a page is first used.
#include "platform/text/code_page.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "platform/platform.h"
#include "platform/text/ansi_case.h"
#include "platform/text/code_page_table.h"
#include "platform/text/utf.h"

namespace {

using machine::AppendUtf16;
using machine::AppendUtf8;
using machine::CodePageTable;
using machine::kCodePageTables;
using machine::kUndefined;
using machine::TakeUtf16;
using machine::TakeUtf8;

constexpr char kReplacement = '?';

struct CodePage {
  std::array<bool, 256> lead{};
  std::array<char16_t, 256> single{};
  std::vector<char16_t> pairs;       // by lead and trail byte; empty for a page of single bytes
  std::vector<std::uint16_t> codes;  // by character: one byte, or lead * 256 + trail; 0 for none
  std::array<unsigned char, 256> upper{}, lower{};
};

// --- Case ---------------------------------------------------------------------------------------------------------

// Lower-case letters first, first + step, ... last have their capitals `distance` below.
struct CaseRange {
  char16_t first, last;
  int step, distance;
};

constexpr CaseRange kCases[] = {
    {u'a', u'z', 1, 32},   {0xE0, 0xF6, 1, 32},     {0xF8, 0xFE, 1, 32},    {0xFF, 0xFF, 1, -121},
    {0x101, 0x12F, 2, 1},  {0x133, 0x137, 2, 1},    {0x13A, 0x148, 2, 1},   {0x14B, 0x177, 2, 1},
    {0x17A, 0x17E, 2, 1},  {0x192, 0x192, 1, 1},    {0x1A1, 0x1A1, 1, 1},   {0x1B0, 0x1B0, 1, 1},
    {0x3AC, 0x3AC, 1, 38}, {0x3AD, 0x3AF, 1, 37},   {0x3B1, 0x3C1, 1, 32},  {0x3C3, 0x3CB, 1, 32},
    {0x3CC, 0x3CC, 1, 64}, {0x3CD, 0x3CE, 1, 63},   {0x430, 0x44F, 1, 32},  {0x450, 0x45F, 1, 80},
    {0x491, 0x491, 1, 1},  {0x2170, 0x217F, 1, 16}, {0xFF41, 0xFF5A, 1, 32}};

char16_t UpperOf(char16_t character) {
  for (const CaseRange &range : kCases) {
    if (character < range.first || character > range.last) continue;
    if ((character - range.first) % range.step == 0) return static_cast<char16_t>(character - range.distance);
  }
  return character;
}

char16_t LowerOf(char16_t character) {
  for (const CaseRange &range : kCases) {
    const int lower = character + range.distance;
    if (lower < range.first || lower > range.last) continue;
    if ((lower - range.first) % range.step == 0) return static_cast<char16_t>(lower);
  }
  return character;
}

// --- Tables -------------------------------------------------------------------------------------------------------

// Lets every byte that stands for nothing yet be the character of its number.
void FillUndefined(CodePage *page) {
  for (unsigned byte = 0; byte < 256; byte++) {
    if (page->single[byte] != kUndefined || page->lead[byte]) continue;
    page->single[byte] = static_cast<char16_t>(byte);
    if (page->codes[byte] == 0) page->codes[byte] = static_cast<std::uint16_t>(byte);
  }
}

void ReadSingles(const CodePageTable &table, CodePage *page) {
  for (unsigned byte = 0; byte < 256; byte++) {
    const char16_t character = byte < 0x80 ? static_cast<char16_t>(byte) : table.upperHalf[byte - 0x80];
    page->single[byte] = character;
    if (character != kUndefined) page->codes[character] = static_cast<std::uint16_t>(byte);
  }
}

// The pair behind one, by lead and trail byte.
unsigned NextPair(const CodePage &page, unsigned code) {
  if ((code & 0xFF) < machine::kLastTrail) return code + 1;
  unsigned lead = (code >> 8) + 1;
  while (lead < 0xFF && !page.lead[lead]) lead++;
  return lead << 8 | machine::kFirstTrail;
}

void ReadPairs(const CodePageTable &table, CodePage *page) {
  page->pairs.assign(0x10000, kUndefined);
  unsigned code = table.leads.front().first << 8 | machine::kFirstTrail, character = 0;
  bool preferred = false;
  for (auto item = table.pairs.begin(); item != table.pairs.end(); ++item) {
    if (*item == machine::kSkip) {
      for (unsigned count = *++item; count > 0; count--) code = NextPair(*page, code);
      continue;
    }
    if (*item == machine::kPreferred) {
      preferred = true;
      continue;
    }
    if (*item < machine::kFar) {
      character += *item + 1;
    } else {
      character = *item == machine::kWhole ? *++item << 8 : machine::kFarFirst + (*item - machine::kFar) * 256;
      character += *++item;
    }
    page->pairs[code] = static_cast<char16_t>(character);
    if (preferred || page->codes[character] == 0) page->codes[character] = static_cast<std::uint16_t>(code);
    preferred = false;
    code = NextPair(*page, code);
  }
}

void ReadCase(CodePage *page) {
  for (unsigned byte = 0; byte < 256; byte++) {
    const unsigned upper = page->codes[UpperOf(page->single[byte])], lower = page->codes[LowerOf(page->single[byte])];
    page->upper[byte] = static_cast<unsigned char>(upper == 0 || upper > 0xFF || page->lead[byte] ? byte : upper);
    page->lower[byte] = static_cast<unsigned char>(lower == 0 || lower > 0xFF || page->lead[byte] ? byte : lower);
  }
}

// Null for a page that is not known.
const CodePageTable *FindTable(unsigned codePage) {
  const auto table = std::find_if(kCodePageTables.begin(), kCodePageTables.end(),
                                  [&](const CodePageTable &each) { return each.number == codePage; });
  return table == kCodePageTables.end() ? nullptr : &*table;
}

std::unique_ptr<CodePage> MakeCodePage(const CodePageTable &table) {
  auto page = std::make_unique<CodePage>();
  page->single.fill(kUndefined);
  page->codes.assign(0x10000, 0);
  for (const machine::ByteRange &range : table.leads) {
    std::fill(page->lead.begin() + range.first, page->lead.begin() + range.last + 1, true);
  }
  ReadSingles(table, page.get());
  FillUndefined(page.get());
  if (!table.pairs.empty()) ReadPairs(table, page.get());
  ReadCase(page.get());
  return page;
}

const CodePage *currentPage = nullptr;

// 0 is the page that was set; the default one stands for a page that is not known.
const CodePage &Page(unsigned codePage = 0) {
  if (codePage == 0 && currentPage != nullptr) return *currentPage;
  const CodePageTable *table = FindTable(codePage);
  if (table == nullptr) table = FindTable(machine::kDefaultCodePage);
  static std::map<unsigned, std::unique_ptr<CodePage>> pages;
  std::unique_ptr<CodePage> &page = pages[table->number];
  if (page == nullptr) page = MakeCodePage(*table);
  return *page;
}

bool AllAscii(std::string_view text) { return std::all_of(text.begin(), text.end(), machine::IsAscii); }

// --- Characters ---------------------------------------------------------------------------------------------------

// Takes the next character off an ANSI text that is not empty: its code, one byte or lead * 256 + trail. A lead byte
// without a trail byte counts alone, so that a quote or line end behind it is not swallowed.
unsigned TakeCode(const CodePage &page, std::string_view *text) {
  const auto first = static_cast<unsigned char>((*text)[0]);
  const auto second = static_cast<unsigned char>(text->size() > 1 ? (*text)[1] : '\0');
  const bool pair = page.lead[first] && second >= 0x40;
  text->remove_prefix(pair ? 2 : 1);
  return pair ? first << 8 | second : first;
}

void AppendCode(unsigned code, std::string *text) {
  if (code > 0xFF) *text += static_cast<char>(code >> 8);
  *text += static_cast<char>(code);
}

char16_t CharacterOf(const CodePage &page, unsigned code) {
  const char16_t character = code > 0xFF ? page.pairs[code] : page.single[code];
  return character == kUndefined ? kReplacement : character;
}

// Windows looks at UTF-16 units: a character of two is replaced twice.
void AppendAnsi(const CodePage &page, char32_t character, std::string *text) {
  if (character > kUndefined) *text += kReplacement;
  const unsigned code = character >= kUndefined ? 0 : page.codes[character];
  AppendCode(code == 0 && character != 0 ? kReplacement : code, text);
}

// The code of the same letter in the other case; the code itself when the page lacks it or has it in another size.
unsigned ChangeCase(const CodePage &page, unsigned code, bool upper) {
  if (code <= 0xFF) return upper ? page.upper[code] : page.lower[code];
  const char16_t character = page.pairs[code];
  if (character == kUndefined) return code;
  const char16_t wanted = upper ? UpperOf(character) : LowerOf(character);
  return wanted == character || page.codes[wanted] <= 0xFF ? code : page.codes[wanted];
}

DWORD ChangeCase(char *text, DWORD length, bool upper) {
  if (text == nullptr) return 0;
  const CodePage &page = Page();
  std::string_view rest(text, length);
  char *out = text;
  while (!rest.empty()) {
    const unsigned code = ChangeCase(page, TakeCode(page, &rest), upper);
    if (code > 0xFF) *out++ = static_cast<char>(code >> 8);
    *out++ = static_cast<char>(code);
  }
  return length;
}

}  // namespace

namespace machine {

std::string Utf8ToAnsi(std::string_view text, unsigned codePage) {
  if (AllAscii(text)) return std::string(text);
  const CodePage &page = Page(codePage);
  std::string result;
  while (!text.empty()) AppendAnsi(page, TakeUtf8(&text), &result);
  return result;
}

std::string AnsiToUtf8(std::string_view text, unsigned codePage) {
  if (AllAscii(text)) return std::string(text);
  const CodePage &page = Page(codePage);
  std::string result;
  while (!text.empty()) AppendUtf8(CharacterOf(page, TakeCode(page, &text)), &result);
  return result;
}

std::u16string AnsiToUtf16(std::string_view text, unsigned codePage) {
  const CodePage &page = Page(codePage);
  std::u16string result;
  result.reserve(text.size());
  while (!text.empty()) result += CharacterOf(page, TakeCode(page, &text));
  return result;
}

std::string Utf16ToAnsi(std::u16string_view text, unsigned codePage) {
  const CodePage &page = Page(codePage);
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) AppendAnsi(page, TakeUtf16(&text), &result);
  return result;
}

std::u16string Utf8ToUtf16(std::string_view text) {
  std::u16string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const char32_t character = TakeUtf8(&text);
    AppendUtf16(character == kUndefined ? kReplacement : character, &result);
  }
  return result;
}

std::string Utf16ToUtf8(std::u16string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const char32_t character = TakeUtf16(&text);
    AppendUtf8(character == kUndefined ? kReplacement : character, &result);
  }
  return result;
}

bool IsLeadByte(unsigned char byte, unsigned codePage) { return Page(codePage).lead[byte]; }

bool KnownCodePage(unsigned codePage) { return FindTable(codePage) != nullptr; }

void SetCodePage(unsigned codePage) { currentPage = &Page(codePage); }

int CompareNoCase(std::string_view a, std::string_view b) {
  const CodePage &page = Page();
  while (!a.empty() && !b.empty()) {
    const unsigned x = ChangeCase(page, TakeCode(page, &a), true), y = ChangeCase(page, TakeCode(page, &b), true);
    if (x != y) return x < y ? -1 : 1;
  }
  return static_cast<int>(!a.empty()) - static_cast<int>(!b.empty());
}

std::string ToUpper(std::string_view text) {
  std::string result(text);
  ChangeCase(result.data(), static_cast<DWORD>(result.size()), true);
  return result;
}

}  // namespace machine

namespace platform {

BOOL IsDBCSLeadByte(BYTE byte) { return machine::IsLeadByte(byte) ? TRUE : FALSE; }

DWORD CharUpperBuffA(char *text, DWORD length) { return ChangeCase(text, length, true); }

DWORD CharLowerBuffA(char *text, DWORD length) { return ChangeCase(text, length, false); }

}  // namespace platform
