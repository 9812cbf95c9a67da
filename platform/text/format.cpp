// Formatted text as Windows' C library makes it: long is 32 bits, %S is UTF-16 text, %p is 16 upper-case digits. One
// formatter for every build, so that a log is the same wherever it is written; and Windows' own gives up at a UTF-16
// character that the runtime's locale lacks, which cost the log the whole line.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "platform/platform.h"

namespace {

constexpr std::size_t kNoPrecision = static_cast<std::size_t>(-1);

enum class Size { kNone, kShort, kLong, kWide, k64 };

struct Conversion {
  bool left = false, plus = false, blank = false, alternate = false, zeros = false;
  std::size_t width = 0, precision = kNoPrecision;
  Size size = Size::kNone;
  char letter = 0;
};

// The text so far: `length` counts all characters, of which those that fit are in the buffer.
struct Output {
  char *buffer;
  std::size_t size;
  std::size_t length = 0;
};

void Put(Output *output, std::string_view text) {
  if (output->length < output->size) {
    std::memcpy(output->buffer + output->length, text.data(), std::min(text.size(), output->size - output->length));
  }
  output->length += text.size();
}

void PutRepeated(Output *output, char character, std::size_t count) {
  if (output->length < output->size) {
    std::memset(output->buffer + output->length, character, std::min(count, output->size - output->length));
  }
  output->length += count;
}

// Sign or base, leading zeros, digits or text, filled to the width.
void PutField(Output *output, const Conversion &conversion, std::string_view prefix, std::size_t zeros,
              std::string_view text) {
  const std::size_t used = prefix.size() + zeros + text.size();
  const std::size_t fill = conversion.width > used ? conversion.width - used : 0;
  if (!conversion.left && !conversion.zeros) PutRepeated(output, ' ', fill);
  Put(output, prefix);
  if (!conversion.left && conversion.zeros) PutRepeated(output, '0', fill);
  PutRepeated(output, '0', zeros);
  Put(output, text);
  if (conversion.left) PutRepeated(output, ' ', fill);
}

// --- Taking a conversion apart --------------------------------------------------------------------------------------

struct Arguments {
  va_list list;
};

// A number or "*" in the format; a negative "*" is a width to the left, or no precision.
std::int64_t TakeCount(const char **format, Arguments *arguments) {
  if (**format == '*') {
    (*format)++;
    return va_arg(arguments->list, int);
  }
  constexpr std::int64_t kMost = 0xFFFF;  // beyond any buffer
  std::int64_t count = 0;
  for (; **format >= '0' && **format <= '9'; (*format)++) count = std::min(kMost, count * 10 + (**format - '0'));
  return count;
}

void TakeFlags(const char **format, Conversion *conversion) {
  for (;; (*format)++) {
    switch (**format) {
      case '-':
        conversion->left = true;
        break;
      case '+':
        conversion->plus = true;
        break;
      case ' ':
        conversion->blank = true;
        break;
      case '#':
        conversion->alternate = true;
        break;
      case '0':
        conversion->zeros = true;
        break;
      default:
        return;
    }
  }
}

Size TakeSize(const char **format) {
  struct Modifier {
    const char *text;
    Size size;
  };
  // Longer ones first where one begins another. A bare I is the size of a pointer, and hh no more than h.
  constexpr Modifier kModifiers[] = {{"I64", Size::k64}, {"I32", Size::kLong}, {"I", Size::k64},    {"ll", Size::k64},
                                     {"l", Size::kLong}, {"hh", Size::kShort}, {"h", Size::kShort}, {"w", Size::kWide}};
  for (const Modifier &modifier : kModifiers) {
    const std::size_t length = std::strlen(modifier.text);
    if (std::strncmp(*format, modifier.text, length) != 0) continue;
    *format += length;
    return modifier.size;
  }
  return Size::kNone;
}

Conversion TakeConversion(const char **format, Arguments *arguments) {
  Conversion conversion;
  TakeFlags(format, &conversion);
  const std::int64_t width = TakeCount(format, arguments);
  conversion.left = conversion.left || width < 0;
  conversion.width = static_cast<std::size_t>(width < 0 ? -width : width);
  if (**format == '.') {
    (*format)++;
    const std::int64_t precision = TakeCount(format, arguments);
    conversion.precision = precision < 0 ? kNoPrecision : static_cast<std::size_t>(precision);
  }
  conversion.size = TakeSize(format);
  conversion.letter = **format;
  if (conversion.letter != '\0') (*format)++;
  return conversion;
}

// --- Numbers --------------------------------------------------------------------------------------------------------

void PutDigits(Output *output, Conversion conversion, std::uint64_t value, unsigned base, std::string_view prefix) {
  const char *digits = conversion.letter == 'x' ? "0123456789abcdef" : "0123456789ABCDEF";
  char text[24];
  char *begin = text + sizeof text;
  for (; value != 0; value /= base) *--begin = digits[value % base];
  const auto length = static_cast<std::size_t>(text + sizeof text - begin);
  std::size_t least = 1;
  if (conversion.precision != kNoPrecision) {
    least = conversion.precision;
    conversion.zeros = false;
  }
  if (base == 8 && conversion.alternate) least = std::max(least, length + 1);
  PutField(output, conversion, prefix, least > length ? least - length : 0, std::string_view(begin, length));
}

void PutSigned(Output *output, const Conversion &conversion, Arguments *arguments) {
  std::int64_t value = 0;
  if (conversion.size == Size::k64) {
    value = va_arg(arguments->list, std::int64_t);
  } else {
    value = va_arg(arguments->list, int);
    if (conversion.size == Size::kShort) value = static_cast<std::int16_t>(value);
  }
  const char *sign = value < 0 ? "-" : conversion.plus ? "+" : conversion.blank ? " " : "";
  PutDigits(output, conversion, value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value),
            10, sign);
}

void PutUnsigned(Output *output, const Conversion &conversion, Arguments *arguments) {
  std::uint64_t value = 0;
  if (conversion.size == Size::k64) {
    value = va_arg(arguments->list, std::uint64_t);
  } else {
    value = va_arg(arguments->list, unsigned);
    if (conversion.size == Size::kShort) value = static_cast<std::uint16_t>(value);
  }
  const char letter = conversion.letter;
  const unsigned base = letter == 'u' ? 10 : letter == 'o' ? 8 : 16;
  const bool showBase = base == 16 && conversion.alternate && value != 0;
  PutDigits(output, conversion, value, base, !showBase ? "" : letter == 'x' ? "0x" : "0X");
}

void PutPointer(Output *output, Conversion conversion, Arguments *arguments) {
  conversion.precision = 16;
  PutDigits(output, conversion, reinterpret_cast<std::uintptr_t>(va_arg(arguments->list, void *)), 16,
            conversion.alternate ? "0X" : "");
}

// --- Texts ----------------------------------------------------------------------------------------------------------

// %S and %C are UTF-16 unless h says otherwise; %s and %c are 8-bit unless l or w do.
bool IsWide(const Conversion &conversion) {
  const bool capital = conversion.letter == 'S' || conversion.letter == 'C';
  if (conversion.size == Size::kShort) return false;
  return capital || conversion.size == Size::kLong || conversion.size == Size::kWide;
}

// One character in the ANSI code page, and how many UTF-16 units it comes from.
struct AnsiCharacter {
  std::size_t units = 1, length = 0;
  char bytes[4];
};

// What the code page lacks becomes '?'. A near letter, which Windows offers on its own, would tell of another file.
AnsiCharacter ConvertCharacter(const WCHAR *units, std::size_t count) {
  AnsiCharacter character;
  character.units = count;
  const int length = platform::WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, units, static_cast<int>(count),
                                                   character.bytes, sizeof character.bytes, nullptr, nullptr);
  character.length = static_cast<std::size_t>(length);
  if (length <= 0) {
    character.bytes[0] = '?';
    character.length = 1;
  }
  return character;
}

// UTF-16 text up to its terminator, or to as many units as `left`; read by bytes since it may be misaligned.
struct WideText {
  const char *at;
  std::size_t left;
};

WCHAR PeekUnit(const WideText &text, std::size_t index) {
  WCHAR unit = 0;
  if (index < text.left) std::memcpy(&unit, text.at + index * sizeof unit, sizeof unit);
  return unit;
}

// False at the end of the text.
bool TakeCharacter(WideText *text, AnsiCharacter *character) {
  const WCHAR first = PeekUnit(*text, 0);
  if (first == 0) return false;
  const WCHAR units[] = {first, (first & 0xFC00) == 0xD800 ? PeekUnit(*text, 1) : WCHAR{0}};
  *character = ConvertCharacter(units, (units[1] & 0xFC00) == 0xDC00 ? 2 : 1);
  text->at += character->units * sizeof(WCHAR);
  text->left -= character->units;
  return true;
}

// The precision is in bytes of the ANSI code page; a character that would only partly fit is left out.
void PutWideText(Output *output, const Conversion &conversion, const void *text) {
  const WideText whole{static_cast<const char *>(text), conversion.precision};
  AnsiCharacter character;
  std::size_t length = 0, count = 0;
  for (WideText rest = whole; length < conversion.precision && TakeCharacter(&rest, &character); ++count) {
    if (character.length > conversion.precision - length) break;
    length += character.length;
  }
  const std::size_t fill = conversion.width > length ? conversion.width - length : 0;
  if (!conversion.left) PutRepeated(output, conversion.zeros ? '0' : ' ', fill);
  for (WideText rest = whole; count > 0 && TakeCharacter(&rest, &character); --count) {
    Put(output, std::string_view(character.bytes, character.length));
  }
  if (conversion.left) PutRepeated(output, ' ', fill);
}

void PutText(Output *output, const Conversion &conversion, Arguments *arguments) {
  const void *text = va_arg(arguments->list, const void *);
  if (text != nullptr && IsWide(conversion)) {
    PutWideText(output, conversion, text);
    return;
  }
  const char *narrow = text == nullptr ? "(null)" : static_cast<const char *>(text);
  // Not longer than the precision: such a text need not be terminated.
  const void *end = conversion.precision == kNoPrecision ? nullptr : std::memchr(narrow, 0, conversion.precision);
  const std::size_t length = conversion.precision == kNoPrecision ? std::strlen(narrow)
                             : end == nullptr                     ? conversion.precision
                                              : static_cast<std::size_t>(static_cast<const char *>(end) - narrow);
  PutField(output, conversion, "", 0, std::string_view(narrow, length));
}

void PutCharacter(Output *output, const Conversion &conversion, Arguments *arguments) {
  const int value = va_arg(arguments->list, int);
  if (IsWide(conversion)) {
    const auto unit = static_cast<WCHAR>(value);
    const AnsiCharacter character = ConvertCharacter(&unit, 1);
    PutField(output, conversion, "", 0, std::string_view(character.bytes, character.length));
    return;
  }
  const auto character = static_cast<char>(value);
  PutField(output, conversion, "", 0, std::string_view(&character, 1));
}

void PutConversion(Output *output, const Conversion &conversion, Arguments *arguments) {
  switch (conversion.letter) {
    case 'd':
    case 'i':
      return PutSigned(output, conversion, arguments);
    case 'u':
    case 'o':
    case 'x':
    case 'X':
      return PutUnsigned(output, conversion, arguments);
    case 'p':
      return PutPointer(output, conversion, arguments);
    case 's':
    case 'S':
      return PutText(output, conversion, arguments);
    case 'c':
    case 'C':
      return PutCharacter(output, conversion, arguments);
    case '\0':
      return;
    default:
      return Put(output, std::string_view(&conversion.letter, 1));  // %% and what is no conversion
  }
}

}  // namespace

namespace platform {

// No fault point: it cannot fail, and the log stands on it.
int FormatText(char *buffer, SIZE_T size, const char *format, va_list arguments) {
  Output output{buffer, buffer == nullptr ? 0 : size};
  Arguments own;
  va_copy(own.list, arguments);
  while (*format != '\0') {
    const char *text = format;
    while (*format != '\0' && *format != '%') format++;
    Put(&output, std::string_view(text, static_cast<std::size_t>(format - text)));
    if (*format == '\0') break;
    format++;
    PutConversion(&output, TakeConversion(&format, &own), &own);
  }
  va_end(own.list);
  if (output.size == 0) return -1;
  const bool cut = output.length >= output.size;
  buffer[cut ? output.size - 1 : output.length] = '\0';
  return cut ? -1 : static_cast<int>(output.length);
}

}  // namespace platform
