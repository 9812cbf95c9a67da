#include "platform/machine/text/fold_name.h"

#include <algorithm>

#include "platform/text/code_page.h"

namespace machine {
namespace {

bool IsAscii(std::string_view text) {
  return std::none_of(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0x80) != 0; });
}

}  // namespace

std::string FoldName(std::string_view name) {
  if (!IsAscii(name)) return ToUpper(Utf8ToAnsi(name));
  std::string folded(name);
  std::transform(folded.begin(), folded.end(), folded.begin(), UpperAscii);
  return folded;
}

}  // namespace machine
