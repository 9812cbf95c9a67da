// Code pages as Windows converts them itself.
#include "platform/text/code_page.h"

#include <algorithm>

#include "platform/platform.h"

namespace machine {
namespace {

unsigned ownCodePage = 0;  // 0: the system's

UINT Page(unsigned codePage) {
  const unsigned page = codePage != 0 ? codePage : ownCodePage != 0 ? ownCodePage : ::GetACP();
  return ::IsValidCodePage(page) ? page : kDefaultCodePage;
}

std::u16string ToWide(std::string_view text, UINT page) {
  const auto length = static_cast<int>(text.size());
  std::u16string wide(text.size(), u'\0');  // never longer: each unit comes from a byte or more
  auto *units = reinterpret_cast<wchar_t *>(wide.data());
  const int count = length == 0 ? 0 : ::MultiByteToWideChar(page, 0, text.data(), length, units, length);
  wide.resize(static_cast<std::size_t>(count));
  return wide;
}

std::string FromWide(std::u16string_view wide, UINT page) {
  const auto length = static_cast<int>(wide.size());
  const auto *units = reinterpret_cast<const wchar_t *>(wide.data());
  std::string text(wide.size() * 4, '\0');
  const auto room = static_cast<int>(text.size());
  const int count =
      length == 0 ? 0 : ::WideCharToMultiByte(page, 0, units, length, text.data(), room, nullptr, nullptr);
  text.resize(static_cast<std::size_t>(count));
  return text;
}

}  // namespace

std::string Utf8ToAnsi(std::string_view text, unsigned codePage) {
  return FromWide(ToWide(text, CP_UTF8), Page(codePage));
}

std::string AnsiToUtf8(std::string_view text, unsigned codePage) {
  return FromWide(ToWide(text, Page(codePage)), CP_UTF8);
}

std::u16string AnsiToUtf16(std::string_view text, unsigned codePage) { return ToWide(text, Page(codePage)); }
std::string Utf16ToAnsi(std::u16string_view text, unsigned codePage) { return FromWide(text, Page(codePage)); }
std::u16string Utf8ToUtf16(std::string_view text) { return ToWide(text, CP_UTF8); }
std::string Utf16ToUtf8(std::u16string_view text) { return FromWide(text, CP_UTF8); }

bool IsLeadByte(unsigned char byte, unsigned codePage) { return ::IsDBCSLeadByteEx(Page(codePage), byte) != 0; }

bool KnownCodePage(unsigned codePage) {
  CPINFO info;
  return codePage != CP_UTF8 && codePage != 0 && ::GetCPInfo(codePage, &info) && info.MaxCharSize <= 2;
}

void SetCodePage(unsigned codePage) { ownCodePage = codePage; }

std::string ToUpper(std::string_view text) {
  std::u16string wide = AnsiToUtf16(text);
  ::CharUpperBuffW(reinterpret_cast<wchar_t *>(wide.data()), static_cast<DWORD>(wide.size()));
  return Utf16ToAnsi(wide);
}

int CompareNoCase(std::string_view a, std::string_view b) { return ToUpper(a).compare(ToUpper(b)); }

}  // namespace machine
