#include "platform/inf/inf_decoding.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "platform/text/ansi_case.h"
#include "platform/text/code_page.h"

namespace machine {
namespace {

constexpr char kEndOfFile = 0x1A;

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

}  // namespace

InfBytes CopyInfBytes(std::string_view text) {
  InfBytes copy{std::make_unique_for_overwrite<char[]>(text.size()), text.size()};
  std::copy(text.begin(), text.end(), copy.memory.get());
  return copy;
}

void DecodeInf(InfBytes bytes, unsigned codePage, InfFile *file) {
  std::string_view text(bytes.memory.get(), bytes.size);
  if (text.starts_with("\xFF\xFE")) {
    bytes = Utf16LeToAnsi(text.substr(2), codePage);
    text = {bytes.memory.get(), bytes.size};
  } else if (text.starts_with("\xEF\xBB\xBF")) {
    text.remove_prefix(3);
    if (!std::all_of(text.begin(), text.end(), IsAscii)) {
      bytes = CopyInfBytes(Utf8ToAnsi(text, codePage));
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

}  // namespace machine
