// A program of the build: writes the tables of the code pages (code_page_table.h) as a C++ file, as the building
// system's iconv knows them.
//   make_code_pages FILE
#include <iconv.h>

#include <array>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "platform/text/code_page_table.h"

namespace {

using machine::ByteRange;
using machine::kUndefined;

// The bytes that Windows takes for the first of a two-byte character. Some begin no character that is defined; they
// take the byte behind them along all the same.
struct Page {
  unsigned number;
  std::vector<ByteRange> leads;
};
const Page kPages[] = {{437, {}},
                       {737, {}},
                       {775, {}},
                       {850, {}},
                       {852, {}},
                       {855, {}},
                       {857, {}},
                       {858, {}},
                       {860, {}},
                       {861, {}},
                       {862, {}},
                       {863, {}},
                       {865, {}},
                       {866, {}},
                       {869, {}},
                       {874, {}},
                       {932, {{0x81, 0x9F}, {0xE0, 0xFC}}},
                       {936, {{0x81, 0xFE}}},
                       {949, {{0x81, 0xFE}}},
                       {950, {{0x81, 0xFE}}},
                       {1250, {}},
                       {1251, {}},
                       {1252, {}},
                       {1253, {}},
                       {1254, {}},
                       {1255, {}},
                       {1256, {}},
                       {1257, {}},
                       {1258, {}}};

struct IconvClose {
  void operator()(void *converter) const { iconv_close(converter); }
};
using Converter = std::unique_ptr<void, IconvClose>;

Converter OpenConverter(const std::string &to, const std::string &from) {
  iconv_t converter = iconv_open(to.c_str(), from.c_str());
  return Converter(converter == reinterpret_cast<iconv_t>(-1) ? nullptr : converter);
}

// The one UTF-16 character that the code stands for, or kUndefined.
char16_t Decode(iconv_t converter, unsigned code) {
  char source[2] = {static_cast<char>(code >> 8), static_cast<char>(code)};
  char16_t target[2] = {};
  std::size_t inLeft = code > 0xFF ? 2 : 1, outLeft = sizeof target;
  char *in = source + (sizeof source - inLeft), *out = reinterpret_cast<char *>(target);
  iconv(converter, nullptr, nullptr, nullptr, nullptr);
  if (iconv(converter, &in, &inLeft, &out, &outLeft) == static_cast<std::size_t>(-1)) return kUndefined;
  iconv(converter, nullptr, nullptr, &out, &outLeft);  // some pages keep a character back to see what follows it
  return outLeft == sizeof target - sizeof(char16_t) ? target[0] : kUndefined;
}

// The pair that iconv writes for a character; 0 when it is another than one pair.
unsigned Encode(iconv_t converter, char16_t character) {
  char *in = reinterpret_cast<char *>(&character);
  char target[4] = {};
  char *out = target;
  std::size_t inLeft = sizeof character, outLeft = sizeof target;
  iconv(converter, nullptr, nullptr, nullptr, nullptr);
  if (iconv(converter, &in, &inLeft, &out, &outLeft) != 0 || outLeft != sizeof target - 2) return 0;
  return static_cast<unsigned>(static_cast<unsigned char>(target[0]) << 8 | static_cast<unsigned char>(target[1]));
}

// Whether the byte begins a two-byte character of the page.
bool IsLead(const Page &page, unsigned byte) {
  for (const ByteRange &range : page.leads) {
    if (range.Holds(byte)) return true;
  }
  return false;
}

// The items of one pair's character, after that of the pair before it.
void AppendCharacter(unsigned character, unsigned previous, std::vector<unsigned char> *items) {
  const unsigned step = character - previous - 1;
  if (character > previous && step < machine::kFar) {
    items->push_back(static_cast<unsigned char>(step));
    return;
  }
  if (character < machine::kFarFirst || character > machine::kFarLast) {
    items->push_back(machine::kWhole);
    items->push_back(static_cast<unsigned char>(character >> 8));
  } else {
    items->push_back(static_cast<unsigned char>(machine::kFar + ((character - machine::kFarFirst) >> 8)));
  }
  items->push_back(static_cast<unsigned char>(character));
}

std::vector<unsigned char> MakePairs(const Page &page, iconv_t decoder, iconv_t encoder) {
  std::vector<unsigned char> items;
  std::vector<bool> seen(0x10000);
  unsigned previous = 0;
  unsigned char *skip = nullptr;
  for (unsigned code = 0x8000; code < 0x10000; code++) {
    if (!IsLead(page, code >> 8) || (code & 0xFF) < machine::kFirstTrail) continue;
    const char16_t character = Decode(decoder, code);
    if (character == kUndefined) {
      if (skip == nullptr || *skip == 0xFF) {
        items.insert(items.end(), {machine::kSkip, 0});
        skip = &items.back();
      }
      ++*skip;
      continue;
    }
    skip = nullptr;
    if (seen[character] && Encode(encoder, character) == code) items.push_back(machine::kPreferred);
    seen[character] = true;
    AppendCharacter(character, previous, &items);
    previous = character;
  }
  return items;
}

template <typename Numbers>
void PrintArray(std::FILE *file, const char *type, const char *name, unsigned page, const Numbers &numbers) {
  std::fprintf(file, "constexpr %s %s%u[] = {", type, name, page);
  unsigned column = 0;
  for (const unsigned number : numbers) std::fprintf(file, "%s%u,", column++ % 24 == 0 ? "\n" : "", number);
  std::fprintf(file, "\n};\n");
}

// The tables of one page. False when iconv does not know it, or its lower half is not ASCII.
bool PrintTables(std::FILE *file, const Page &page) {
  const std::string name = "CP" + std::to_string(page.number);
  const Converter decoder = OpenConverter("UTF-16LE", name), encoder = OpenConverter(name, "UTF-16LE");
  if (decoder == nullptr || encoder == nullptr) return false;
  std::array<char16_t, 128> upperHalf{};
  for (unsigned byte = 0; byte < 256; byte++) {
    const char16_t character = IsLead(page, byte) ? kUndefined : Decode(decoder.get(), byte);
    if (byte >= 0x80) upperHalf[byte - 0x80] = character;
    if (byte < 0x80 && character != byte) return false;
  }
  PrintArray(file, "char16_t", "kUpperHalf", page.number, upperHalf);
  if (page.leads.empty()) return true;
  PrintArray(file, "unsigned char", "kPairs", page.number, MakePairs(page, decoder.get(), encoder.get()));
  std::fprintf(file, "constexpr ByteRange kLeads%u[] = {", page.number);
  for (const ByteRange &range : page.leads) std::fprintf(file, "{%u, %u},", range.first, range.last);
  std::fprintf(file, "};\n");
  return true;
}

int PrintAll(std::FILE *file) {
  std::fprintf(file, "#include \"platform/text/code_page_table.h\"\n\nnamespace machine {\nnamespace {\n\n");
  for (const Page &page : kPages) {
    if (PrintTables(file, page)) continue;
    std::fprintf(stderr, "make_code_pages: iconv does not know code page %u; install the C library's converters\n",
                 page.number);
    return 1;
  }
  std::fprintf(file, "\nconstexpr CodePageTable kTables[] = {\n");
  for (const Page &page : kPages) {
    const unsigned number = page.number;
    if (page.leads.empty()) std::fprintf(file, "{%u, {}, kUpperHalf%u, {}},\n", number, number);
    if (!page.leads.empty()) {
      std::fprintf(file, "{%u, kLeads%u, kUpperHalf%u, kPairs%u},\n", number, number, number, number);
    }
  }
  std::fprintf(file,
               "};\n\n}  // namespace\n\nconst std::span<const CodePageTable> kCodePageTables = kTables;\n\n"
               "}  // namespace machine\n");
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  std::FILE *file = argc == 2 ? std::fopen(argv[1], "w") : nullptr;
  if (file == nullptr) {
    std::fprintf(stderr, "make_code_pages: name a file that can be written\n");
    return 2;
  }
  const int status = PrintAll(file);
  return std::fclose(file) == 0 ? status : 1;
}
