// One value as a hive stores it, and its forms at the ANSI calls and for people.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/platform.h"

namespace machine {

struct StoredValue {
  std::u16string name;  // empty: the key's default value
  DWORD type = REG_NONE;
  std::vector<BYTE> bytes;  // texts are UTF-16LE, terminated or not, as they were set
};

// Whether values of this type are converted between the code page and UTF-16 at the ANSI calls.
bool IsTextType(DWORD type);

// UTF-16LE bytes of a text. Adds no terminator.
std::vector<BYTE> StoredText(std::u16string_view text);
// The whole of a stored text, terminators included; half a character at its end is dropped.
std::u16string WholeText(const std::vector<BYTE> &bytes);

// The bytes that the ANSI calls trade in for `value`, and the reverse.
std::vector<BYTE> AnsiData(const StoredValue &value);
std::vector<BYTE> StoredData(DWORD type, const BYTE *data, std::size_t size);

// Null when `values` has none of that name.
StoredValue *FindValue(std::vector<StoredValue> *values, const std::u16string &foldedName);
// Replaces the value of that name, which keeps its spelling, or adds it.
void PutValue(std::vector<StoredValue> *values, StoredValue value);

// A value for people, in the machine's ANSI code page: the text itself, the texts of a list separated by ", ", a number
// as 0x00000003 (3), other bytes in hexadecimal with the end of long ones left out.
std::string DataForPeople(DWORD type, const std::vector<BYTE> &bytes);

}  // namespace machine
