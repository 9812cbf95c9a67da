// The queries of VXRExt_QueryData by name, and how to print their answers.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "vxrcore/bmext.h"

constexpr std::uint32_t kSelectorBits = 0xF0000000;  // of a code of the volume class: whose driver; below them the item

enum class AnswerForm { kText, kNumber, kSigned, kGuid, kTime, kBytes, kOs, kAddress };

struct ItemName {
  std::uint32_t code;
  const char *name;  // in full, such as VXREQV_Label
  AnswerForm form;
};

struct ClassName {
  std::uint32_t code;
  const char *name;  // in full, such as VXREQ_Volume
  std::vector<ItemName> items;
};

// By name, its prefix optional and case ignored, or by number (decimal, or 0x hexadecimal). Null when there is none.
const ClassName *FindClass(std::string_view text);

// The same. Of a disk's item a number may have selector bits, which `*code` then keeps.
const ItemName *FindItem(const ClassName &queryClass, std::string_view text, std::uint32_t *code);

// What exists, for a line of complaint: the short names with commas.
std::string ClassList();
std::string ItemList(const ClassName &queryClass);

// The name without its prefix.
const char *ShortName(const char *name);

// The answer's lines. Texts come from `codePage`.
std::vector<std::string> AnswerLines(AnswerForm form, const std::vector<std::uint8_t> &answer, unsigned codePage);
