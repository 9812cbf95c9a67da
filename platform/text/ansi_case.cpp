#include "platform/text/ansi_case.h"

#include <algorithm>
#include <cstring>

#include "platform/text/code_page.h"

namespace machine {

std::string FoldAnsiName(std::string_view name) {
  std::string folded(name);
  for (char &c : folded) {
    if (!IsAscii(c)) return ToUpper(name);
    c = UpperAscii(c);
  }
  return folded;
}

std::string FoldName(std::string_view utf8Name) {
  const bool ascii = std::all_of(utf8Name.begin(), utf8Name.end(), IsAscii);
  return ascii ? FoldAnsiName(utf8Name) : FoldAnsiName(Utf8ToAnsi(utf8Name));
}

std::uint32_t HashName(std::string_view name) {
  // Eight characters at a time, of which the last may have been taken before: that is quicker than fewer. Without the
  // bit that tells an ASCII letter's case some other characters become the same too, which a hash may.
  constexpr std::uint64_t kNoCase = 0xDFDFDFDFDFDFDFDF, kNotAscii = 0x8080808080808080;
  constexpr std::uint64_t kMix = 0x9E3779B97F4A7C15;
  constexpr std::size_t kStep = sizeof(std::uint64_t);
  std::uint64_t hash = name.size(), part = 0, all = 0;
  const auto mix = [&] {
    all |= part;
    hash = (hash ^ (part & kNoCase)) * kMix;
    hash ^= hash >> 29;
  };
  for (std::size_t at = 0; at + kStep <= name.size(); at += kStep) {
    std::memcpy(&part, name.data() + at, kStep);
    mix();
  }
  if (name.size() % kStep != 0) {
    part = 0;
    if (name.size() > kStep) {
      std::memcpy(&part, name.data() + name.size() - kStep, kStep);
    } else {
      std::memcpy(&part, name.data(), name.size());
    }
    mix();
  }
  if ((all & kNotAscii) != 0) return static_cast<std::uint32_t>(std::hash<std::string>{}(ToUpper(name)));
  return static_cast<std::uint32_t>(hash >> 32 ^ hash);
}

bool SameName(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (!IsAscii(a[i]) || !IsAscii(b[i])) return CompareNoCase(a, b) == 0;
    if (UpperAscii(a[i]) != UpperAscii(b[i])) return false;
  }
  return true;
}

bool SameUtf8(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return UpperAscii(x) == UpperAscii(y); });
}

}  // namespace machine
