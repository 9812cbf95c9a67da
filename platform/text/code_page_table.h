// The tables of the ANSI and OEM code pages, as the build makes them (make_code_pages.cpp): a rescue system may lack
// the modules that the C library converts with.
#pragma once

#include <cstdint>
#include <span>

#include "platform/text/utf.h"

namespace machine {

struct ByteRange {
  unsigned char first, last;
  bool Holds(unsigned byte) const { return byte >= first && byte <= last; }
};

// The bytes that can be the second of a two-byte character.
inline constexpr unsigned kFirstTrail = 0x40, kLastTrail = 0xFF;

// How the characters of a page's pairs are told, by lead and trail byte: a byte for the next pair, which below kFar
// says how far its character lies behind the one before it, less one; or one of these.
enum PairItem : unsigned char {
  kFar = 0x80,       // up to kSkip, with a byte behind it: counted from kFarFirst in steps of 256
  kSkip = 0xF0,      // a byte follows: that many pairs stand for nothing
  kWhole = 0xF1,     // the character follows, high byte first
  kPreferred = 0xF2  // of several pairs for the character of the next item, that one is written
};
inline constexpr unsigned kFarFirst = 0x3000, kFarLast = kFarFirst + (kSkip - kFar) * 256 - 1;

struct CodePageTable {
  unsigned number;
  std::span<const ByteRange> leads;  // the first bytes of two-byte characters
  const char16_t *upperHalf;         // the characters of the single bytes 0x80 to 0xFF, the others being ASCII
  std::span<const unsigned char> pairs;
};

extern const std::span<const CodePageTable> kCodePageTables;

}  // namespace machine
