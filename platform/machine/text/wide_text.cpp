// UTF-16 texts in the machine's code page.
#include <algorithm>
#include <string>

#include "platform/machine/base/answer.h"
#include "platform/platform.h"
#include "platform/text/code_page.h"

namespace platform {

// No fault point: the log stands on it.
int WideCharToMultiByte(UINT, DWORD, const WCHAR *wide, int length, char *buffer, int size, const char *, BOOL *) {
  const std::string text = machine::Utf16ToAnsi(std::u16string_view(wide, static_cast<std::size_t>(length)));
  if (text.size() > static_cast<std::size_t>(size)) return machine::FailWith(ERROR_INSUFFICIENT_BUFFER, 0);
  std::copy(text.begin(), text.end(), buffer);
  return static_cast<int>(text.size());
}

}  // namespace platform
