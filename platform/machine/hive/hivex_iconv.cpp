// What libhivex asks of iconv when it is linked in: names between UTF-8, Latin-1 and UTF-16. The C library would load a
// module for the latter two, and libhivex read no name without it.
#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/text/utf.h"

namespace {

enum Encoding : std::uintptr_t { kUtf8, kLatin1, kUtf16 };
constexpr const char *kNames[] = {"UTF-8", "LATIN1", "UTF-16LE"};

// A converter has no state but its two encodings.
iconv_t ConverterOf(std::uintptr_t to, std::uintptr_t from) { return reinterpret_cast<iconv_t>(1 + to + 3 * from); }
Encoding ToOf(iconv_t converter) { return Encoding((reinterpret_cast<std::uintptr_t>(converter) - 1) % 3); }
Encoding FromOf(iconv_t converter) { return Encoding((reinterpret_cast<std::uintptr_t>(converter) - 1) / 3); }

int TakeUtf16Bytes(std::string_view *text, char32_t *character) {
  char16_t units[2] = {};
  const std::size_t count = std::min<std::size_t>(text->size() / 2, 2);
  std::memcpy(units, text->data(), 2 * count);
  if (count == 0 || (count == 1 && (units[0] & 0xFC00) == 0xD800)) return EINVAL;
  std::u16string_view rest(units, count);
  *character = machine::TakeUtf16(&rest);
  if (*character == machine::kUndefined && units[0] != machine::kUndefined) return EILSEQ;
  text->remove_prefix(2 * (count - rest.size()));
  return 0;
}

// Takes the next character off a text that is not empty. 0, EILSEQ for none, or EINVAL for half of one.
int Take(Encoding from, std::string_view *text, char32_t *character) {
  if (from == kUtf16) return TakeUtf16Bytes(text, character);
  const std::size_t size = text->size();
  if (from == kUtf8) {
    *character = machine::TakeUtf8(text);
    return *character == machine::kUndefined && size - text->size() == 1 ? EILSEQ : 0;
  }
  *character = static_cast<unsigned char>(text->front());
  text->remove_prefix(1);
  return 0;
}

// 0, or EILSEQ when the encoding lacks the character.
int Append(Encoding to, char32_t character, std::string *bytes) {
  if (to == kUtf8) {
    machine::AppendUtf8(character, bytes);
  } else if (to == kUtf16) {
    std::u16string units;
    machine::AppendUtf16(character, &units);
    bytes->append(reinterpret_cast<const char *>(units.data()), 2 * units.size());
  } else if (character > 0xFF) {
    return EILSEQ;
  } else {
    *bytes += static_cast<char>(character);
  }
  return 0;
}

}  // namespace

extern "C" {

iconv_t iconv_open(const char *to, const char *from) {
  const auto find = [](const char *name) {
    return std::find(std::begin(kNames), std::end(kNames), std::string_view(name)) - std::begin(kNames);
  };
  const std::ptrdiff_t target = find(to), source = find(from);
  if (target < std::ssize(kNames) && source < std::ssize(kNames)) {
    return ConverterOf(static_cast<std::uintptr_t>(target), static_cast<std::uintptr_t>(source));
  }
  errno = EINVAL;
  return reinterpret_cast<iconv_t>(-1);
}

std::size_t iconv(iconv_t converter, char **in, std::size_t *inLeft, char **out, std::size_t *outLeft) {
  while (in != nullptr && *in != nullptr && *inLeft > 0) {
    std::string_view rest(*in, *inLeft);
    char32_t character = 0;
    std::string bytes;
    int error = Take(FromOf(converter), &rest, &character);
    if (error == 0) error = Append(ToOf(converter), character, &bytes);
    if (error == 0 && bytes.size() > *outLeft) error = E2BIG;
    if (error != 0) {
      errno = error;
      return static_cast<std::size_t>(-1);
    }
    *in += *inLeft - rest.size();
    *inLeft = rest.size();
    *out = std::copy(bytes.begin(), bytes.end(), *out);
    *outLeft -= bytes.size();
  }
  return 0;
}

int iconv_close(iconv_t) { return 0; }

}  // extern "C"
