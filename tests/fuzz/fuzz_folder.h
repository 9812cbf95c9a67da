// What fuzzers of readers of files share: a folder that goes with the program, and what is in it.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <string_view>

inline void Require(bool condition, const char *what, const std::string &about = "") {
  if (condition) return;
  std::fprintf(stderr, "broken: %s: %s\n", what, about.c_str());
  std::abort();
}

// Made at the first call; its path has no link in it.
inline const std::filesystem::path &FuzzFolder() {
  static const std::filesystem::path folder = [] {
    std::string name = (std::filesystem::canonical(std::filesystem::temp_directory_path()) / "vxr-fuzz-XXXXXX");
    Require(::mkdtemp(name.data()) != nullptr, "no temporary folder");
    return name;
  }();
  static const int removed = std::atexit([] {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  });
  Require(removed == 0, "the temporary folder would stay");
  return folder;
}

inline std::string ReadWhole(const std::filesystem::path &file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

inline void WriteWhole(const std::filesystem::path &file, std::string_view content) {
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << content;
}

// Every name below the folder with its kind and contents: a letter, behind it a file's bytes or a link's text.
using Tree = std::map<std::string, std::string>;

inline Tree TreeOf(const std::filesystem::path &folder) {
  namespace fs = std::filesystem;
  Tree tree;
  for (const fs::directory_entry &entry : fs::recursive_directory_iterator(folder)) {
    std::string &what = tree[entry.path().lexically_relative(folder)];
    if (entry.is_symlink()) {
      what = "l" + fs::read_symlink(entry.path()).native();
    } else if (entry.is_regular_file()) {
      what = "f" + ReadWhole(entry.path());
    } else {
      what = entry.is_directory() ? "d" : "other";
    }
  }
  return tree;
}
