// Writes an extension file from a few facts; extension_format.h has the keys.
//
//   make_extension OUT key=value...
#include <cstdio>
#include <fstream>

#include "tests/support/extension_format.h"

int main(int argc, char **argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: make_extension OUT key=value...\n");
    return 2;
  }
  std::string image = BlankExtension();
  for (int i = 2; i < argc; ++i) {
    if (!PutExtensionField(&image, argv[i])) {
      std::fprintf(stderr, "make_extension: %s: unknown key, or a value that does not fit\n", argv[i]);
      return 2;
    }
  }
  std::ofstream out(argv[1], std::ios::binary);
  out.write(image.data(), static_cast<std::streamsize>(image.size()));
  if (!out.flush()) {
    std::fprintf(stderr, "make_extension: %s: cannot be written\n", argv[1]);
    return 1;
  }
  return 0;
}
