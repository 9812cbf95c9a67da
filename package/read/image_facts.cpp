// What the headers of a driver image say. They are as hostile as the package, so only what is read whole counts.
#include <cstring>

#include "package/read/sources.h"
#include "platform/scope_guard.h"

namespace package {
namespace {

constexpr WORD kI386 = 0x14C, kItanium = 0x200, kArmThumb = 0x1C4, kAmd64Image = 0x8664, kArm64Image = 0xAA64;

// Offsets, in bytes.
constexpr DWORD kDosHeaderSize = 64, kPeOffset = 60;
constexpr DWORD kPeHeaderSize = 24, kMachine = 4, kOptionalSize = 20;  // with the signature before it
constexpr DWORD kSubsystemMajor = 48, kSubsystemMinor = 50;            // in the optional header
constexpr WORD kMagic32 = 0x10B, kMagic64 = 0x20B;
constexpr DWORD kDirectories32 = 96, kDirectories64 = 112;  // behind their number, of four bytes
constexpr DWORD kCertificates = 4, kDirectorySize = 8;
constexpr DWORD kOptionalMax = kDirectories64 + 16 * kDirectorySize;

constexpr DWORD kCertificateHeader = 8;  // length, revision, type
constexpr WORD kRevision = 0x200, kSignedData = 2;

// A file that is open, and its size.
struct ImageFile {
  HANDLE handle;
  DWORD64 size;
};

template <typename Number>
Number At(const BYTE *bytes, DWORD offset) {
  Number number;
  std::memcpy(&number, bytes + offset, sizeof number);
  return number;
}

bool ReadAt(const ImageFile &file, DWORD offset, void *buffer, DWORD size) {
  if (static_cast<DWORD64>(offset) + size > file.size) return false;
  LONG high = 0;
  platform::SetLastError(NO_ERROR);
  const DWORD position = platform::SetFilePointer(file.handle, static_cast<LONG>(offset), &high, FILE_BEGIN);
  if (position == INVALID_SET_FILE_POINTER && platform::GetLastError() != NO_ERROR) return false;
  DWORD read = 0;
  return platform::ReadFile(file.handle, buffer, size, &read, nullptr) && read == size;
}

// Whether the directory leads to a certificate that lies in the file whole. Unlike in other directories its first
// number is an offset in the file.
bool HasCertificate(const ImageFile &file, const BYTE *directory) {
  const auto offset = At<DWORD>(directory, 0), size = At<DWORD>(directory, 4);
  if (offset == 0 || offset % 8 != 0 || size < kCertificateHeader) return false;
  if (static_cast<DWORD64>(offset) + size > file.size) return false;
  BYTE header[kCertificateHeader] = {};
  if (!ReadAt(file, offset, header, sizeof header)) return false;
  const auto length = At<DWORD>(header, 0);
  return length >= kCertificateHeader && length <= size && At<WORD>(header, 4) == kRevision &&
         At<WORD>(header, 6) == kSignedData;
}

bool ReadFacts(const ImageFile &file, ImageFacts *facts) {
  BYTE dos[kDosHeaderSize] = {};
  if (!ReadAt(file, 0, dos, sizeof dos) || std::memcmp(dos, "MZ", 2) != 0) return false;
  const auto begin = At<DWORD>(dos, kPeOffset);
  BYTE header[kPeHeaderSize] = {};
  if (begin > 0x7FFFFFFF || !ReadAt(file, begin, header, sizeof header)) return false;
  if (std::memcmp(header, "PE\0\0", 4) != 0) return false;
  facts->machine = At<WORD>(header, kMachine);

  BYTE optional[kOptionalMax] = {};
  DWORD size = At<WORD>(header, kOptionalSize);
  if (size > kOptionalMax) size = kOptionalMax;
  if (size < kSubsystemMinor + sizeof(WORD) || !ReadAt(file, begin + kPeHeaderSize, optional, size)) return false;
  const auto magic = At<WORD>(optional, 0);
  if (magic != kMagic32 && magic != kMagic64) return false;
  facts->subsystemMajor = At<WORD>(optional, kSubsystemMajor);
  facts->subsystemMinor = At<WORD>(optional, kSubsystemMinor);

  const DWORD directories = magic == kMagic64 ? kDirectories64 : kDirectories32;
  const DWORD certificates = directories + kCertificates * kDirectorySize;
  if (size < certificates + kDirectorySize || At<DWORD>(optional, directories - 4) <= kCertificates) return true;
  facts->signedInside = HasCertificate(file, optional + certificates);
  return true;
}

}  // namespace

bool ReadImageFacts(const std::string &path, ImageFacts *facts) {
  *facts = {};
  const HANDLE handle =
      platform::CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return false;
  const ScopeGuard close([handle] { platform::CloseHandle(handle); });
  DWORD high = 0;
  const DWORD low = platform::GetFileSize(handle, &high);
  return ReadFacts({handle, static_cast<DWORD64>(high) << 32 | low}, facts);
}

WORD ImageMachine(const Target &target) {
  switch (target.architecture) {
    case kX86:
      return kI386;
    case kIa64:
      return kItanium;
    case kAmd64:
      return kAmd64Image;
    case kArm:
      return kArmThumb;
    case kArm64:
      return kArm64Image;
    default:
      return 0;
  }
}

}  // namespace package
