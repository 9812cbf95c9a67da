#include "log/product.h"

#include "log/characters.h"

void RemoveTrailingBackslash(char *path) {
  if (path == nullptr) return;
  char *last = path;
  for (char *at = path; *at != '\0'; at += CharacterLength(at)) last = at;
  if (*last == '\\') *last = '\0';
}
