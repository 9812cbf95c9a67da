// toml++'s functions, for a program that links no library of them.
#define TOML_HEADER_ONLY 0
#define TOML_IMPLEMENTATION

#include <toml++/toml.h>
