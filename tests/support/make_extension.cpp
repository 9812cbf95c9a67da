// Writes an extension file from a few facts, by the byte offsets of the format. Shares no declaration with the library,
// so that a mistake in the library's records cannot hide in the files that tests and examples feed it.
//
//   make_extension OUT key=value...
//
// Keys: magic (hot or cold), version, hal, kernel, media, system, windows, major, minor, build, platform, sp_major,
// sp_minor, suite, product, processors, processor_type, level, revision, arch, page_size, memory, computer. Numbers are
// decimal or 0x hexadecimal; what is not given is 0 or empty, magic hot, version 1.

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kFileSize = 80332;

struct Field {
  const char *key;
  std::size_t offset;
  std::size_t size;  // bytes; above 8: a text field
};

constexpr Field kFields[] = {
    {"version", 4, 4},   {"hal", 12, 4},         {"kernel", 16, 4},      {"media", 20, 4},
    {"system", 24, 260}, {"windows", 284, 260},  {"major", 544, 4},      {"minor", 548, 4},
    {"build", 552, 4},   {"platform", 556, 4},   {"sp_major", 560, 4},   {"sp_minor", 564, 4},
    {"suite", 568, 4},   {"product", 572, 4},    {"processors", 576, 4}, {"processor_type", 580, 4},
    {"level", 584, 4},   {"revision", 588, 4},   {"arch", 592, 4},       {"page_size", 596, 4},
    {"memory", 600, 8},  {"computer", 80176, 16}};

void PutNumber(std::vector<char> &image, std::size_t offset, std::size_t size, std::uint64_t value) {
  for (std::size_t i = 0; i < size; ++i) image[offset + i] = static_cast<char>(value >> (8 * i));
}

bool PutField(std::vector<char> &image, const Field &field, const std::string &value) {
  if (field.size > 8) {
    if (value.size() >= field.size) return false;
    std::memcpy(image.data() + field.offset, value.data(), value.size());
    return true;
  }
  char *end = nullptr;
  errno = 0;
  const std::uint64_t number = std::strtoull(value.c_str(), &end, 0);
  if (value.empty() || *end != '\0' || errno != 0 || (field.size < 8 && number >> 32 != 0)) return false;
  PutNumber(image, field.offset, field.size, number);
  return true;
}

bool PutArgument(std::vector<char> &image, const std::string &argument) {
  const std::size_t equals = argument.find('=');
  if (equals == std::string::npos) return false;
  const std::string key = argument.substr(0, equals), value = argument.substr(equals + 1);
  if (key == "magic") {
    if (value != "hot" && value != "cold") return false;
    std::memcpy(image.data(), value == "hot" ? "HbMe" : "CbMe", 4);
    return true;
  }
  for (const Field &field : kFields) {
    if (key == field.key) return PutField(image, field, value);
  }
  return false;
}

// What every file holds whatever the machine: sizes and capacities, and no boot or system volume.
std::vector<char> BlankImage() {
  std::vector<char> image(kFileSize, 0);
  std::memcpy(image.data(), "HbMe", 4);
  PutNumber(image, 4, 4, 1);
  PutNumber(image, 8, 4, 80324);
  PutNumber(image, 612, 4, 4);
  PutNumber(image, 616, 4, 0xFFFFFFFFu);
  PutNumber(image, 620, 4, 0xFFFFFFFFu);
  return image;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: make_extension OUT key=value...\n");
    return 2;
  }
  std::vector<char> image = BlankImage();
  for (int i = 2; i < argc; ++i) {
    if (!PutArgument(image, argv[i])) {
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
