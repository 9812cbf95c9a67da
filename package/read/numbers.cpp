#include "package/read/numbers.h"

#include <string_view>

#include "platform/inf/inf_file.h"

namespace package {
namespace {

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

int DigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  const char upper = machine::UpperAscii(c);
  return upper >= 'A' && upper <= 'F' ? upper - 'A' + 10 : 16;
}

bool ParseDigits(std::string_view digits, DWORD base, DWORD64 most, DWORD64 *number) {
  if (digits.empty()) return false;
  *number = 0;
  for (const char c : digits) {
    const auto digit = static_cast<DWORD>(DigitValue(c));
    if (digit >= base) return false;
    *number = *number * base + digit;
    if (*number > most) return false;
  }
  return true;
}

bool HasHexPrefix(std::string_view text) {
  return text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

}  // namespace

bool ParseNumber(const std::string &text, DWORD *number) {
  std::string_view digits = Trimmed(text);
  const bool negative = !digits.empty() && digits.front() == '-';
  if (negative || (!digits.empty() && digits.front() == '+')) digits.remove_prefix(1);
  const bool hex = HasHexPrefix(digits);
  if (hex) digits.remove_prefix(2);
  DWORD64 value = 0;
  if (!ParseDigits(digits, hex ? 16 : 10, negative ? 0x80000000 : 0xFFFFFFFF, &value)) return false;
  *number = static_cast<DWORD>(negative ? 0 - value : value);
  return true;
}

bool ParseByte(const std::string &text, char *byte) {
  std::string_view digits = Trimmed(text);
  if (HasHexPrefix(digits)) digits.remove_prefix(2);
  DWORD64 number = 0;
  if (!ParseDigits(digits, 16, 0xFF, &number)) return false;
  *byte = static_cast<char>(number);
  return true;
}

}  // namespace package
