// Driver directories for benchmarks, the same for the same count on every machine.
#pragma once

#include <filesystem>

// Fills `directory` with `count` INF files of 2 to 40 KB as driver packs hold them: one in ten UTF-16LE, five classes,
// a dozen vendors, comments, tokens, decorated and plain models sections. None lists PCI\VEN_1AF4&DEV_1042.
void MakeInfDirectory(const std::filesystem::path &directory, unsigned count);
