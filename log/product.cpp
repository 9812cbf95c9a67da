#include "log/product.h"

void RemoveTrailingBackslash(char *path) {
  if (path == nullptr) return;
  char *last = nullptr;
  for (char *at = path; *at != '\0'; ++at) {
    last = at;
    if (platform::IsDBCSLeadByte(static_cast<BYTE>(*at)) && at[1] != '\0') {
      last = nullptr;  // a whole two-byte character is never a backslash
      ++at;
    }
  }
  if (last != nullptr && *last == '\\') *last = '\0';
}
