#include "package/plan/file_bytes.h"

#include <cstring>
#include <vector>

#include "engine/base/files.h"

namespace package {
namespace {

constexpr DWORD kChunk = 64 * 1024;
constexpr DWORD kFixedSignature = 0xFEEF04BD;

// The beginning of a version resource's fixed part.
struct FixedVersion {
  DWORD signature, structure, high, low;
};

// Null for a file that is not there, which is an answer and no failure.
OpenedFile OpenToRead(const std::string &path) {
  const HANDLE file = platform::CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                            FILE_ATTRIBUTE_NORMAL, nullptr);
  return OpenedFile(file != INVALID_HANDLE_VALUE ? file : nullptr);
}

bool SizeOf(HANDLE file, DWORD64 *size) {
  DWORD high = 0;
  platform::SetLastError(NO_ERROR);
  const DWORD low = platform::GetFileSize(file, &high);
  *size = DWORD64{high} << 32 | low;
  return low != INVALID_FILE_SIZE || platform::GetLastError() == NO_ERROR;
}

bool ReadChunk(HANDLE file, std::vector<char> *chunk) {
  chunk->resize(kChunk);
  DWORD read = 0;
  if (!platform::ReadFile(file, chunk->data(), kChunk, &read, nullptr)) return false;
  chunk->resize(read);
  return true;
}

}  // namespace

bool SameBytes(const std::string &a, const std::string &b) {
  const OpenedFile fileA = OpenToRead(a);
  const OpenedFile fileB = fileA != nullptr ? OpenToRead(b) : nullptr;
  DWORD64 sizeA = 0, sizeB = 0;
  if (fileB == nullptr || !SizeOf(fileA.get(), &sizeA) || !SizeOf(fileB.get(), &sizeB) || sizeA != sizeB) return false;
  std::vector<char> chunkA, chunkB;
  do {
    if (!ReadChunk(fileA.get(), &chunkA) || !ReadChunk(fileB.get(), &chunkB) || chunkA != chunkB) return false;
  } while (!chunkA.empty());
  return true;
}

DWORD64 FileVersion(const std::string &path) {
  DWORD handle = 0;
  const DWORD size = platform::GetFileVersionInfoSizeA(path.c_str(), &handle);
  if (size == 0) return 0;
  std::vector<char> block(size);
  void *value = nullptr;
  UINT length = 0;
  FixedVersion fixed = {};
  if (!platform::GetFileVersionInfoA(path.c_str(), 0, size, block.data()) ||
      !platform::VerQueryValueA(block.data(), "\\", &value, &length) || length < sizeof fixed) {
    return 0;
  }
  std::memcpy(&fixed, value, sizeof fixed);
  return fixed.signature == kFixedSignature ? DWORD64{fixed.high} << 32 | fixed.low : 0;
}

bool ReadableSize(const std::string &path, DWORD64 *size) {
  const OpenedFile file = OpenToRead(path);
  return file != nullptr && SizeOf(file.get(), size);
}

}  // namespace package
