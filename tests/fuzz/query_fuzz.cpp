// Queries about images that may hold anything. An input is 24 bytes of question (class, code, capacity, in value, disk
// index, flags; 32 bits each) and then the beginning of an image, zero behind it.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "vxrcore/bmext.h"
#include "vxrcore/vxrcore.h"

namespace {

constexpr std::size_t kQuestionSize = 24;
constexpr std::uint32_t kMostRoom = 1024;  // more than any answer
constexpr std::uint8_t kCanary = 0xA5;

enum Flags : std::uint32_t { kKeepHeader = 1, kNoOut = 2, kNoIn = 4 };

struct Question {
  std::uint32_t queryClass, code, capacity, inValue;
  std::int32_t disk;
  std::uint32_t flags;
};
static_assert(sizeof(Question) == kQuestionSize);

void Check(bool holds) {
  if (!holds) std::abort();
}

// Most inputs are to get past the header.
void PutHeader(std::uint8_t *image, std::uint32_t flags) {
  if ((flags & kKeepHeader) != 0) return;
  const VXR_EXTHEADER header = {VxrPut32(VXR_EXT_MAGIC_COLD), VxrPut32(VXR_EXT_VERSION)};
  std::memcpy(image, &header, sizeof header);
}

bool IsInside(const std::uint8_t *image, const std::uint8_t *answer, std::size_t size) {
  return std::search(image, image + VXR_EXT_FILE_SIZE, answer, answer + size) != image + VXR_EXT_FILE_SIZE;
}

// Whether the item answers with something that stands nowhere in the image.
bool IsComputed(const Question &question) {
  return (question.queryClass == VXREQ_System && question.code == VXREQS_Reference) ||
         (question.queryClass == VXREQ_Volume && question.code == VXREQV_VolIndex);
}

// Whether the bytes from `from` on are as they were.
bool Untouched(const std::uint8_t *out, std::uint32_t from, std::uint32_t room) {
  return std::all_of(out + std::min(from, room), out + room, [](std::uint8_t byte) { return byte == kCanary; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size < kQuestionSize) return 0;
  Question question;
  std::memcpy(&question, data, kQuestionSize);
  // Of exactly their sizes, so that the sanitizer sees one byte too many.
  const auto image = std::make_unique<std::uint8_t[]>(VXR_EXT_FILE_SIZE);
  std::memcpy(image.get(), data + kQuestionSize, std::min<std::size_t>(size - kQuestionSize, VXR_EXT_FILE_SIZE));
  PutHeader(image.get(), question.flags);
  const std::uint32_t room = std::min(question.capacity, kMostRoom);
  const auto out = std::make_unique<std::uint8_t[]>(room);
  std::memset(out.get(), kCanary, room);

  std::uint32_t outSize = room;
  const bool given =
      VXRExt_QueryData(question.queryClass, question.code, (question.flags & kNoOut) != 0 ? nullptr : out.get(),
                       &outSize, (question.flags & kNoIn) != 0 ? nullptr : &question.disk, question.inValue,
                       image.get()) != 0;
  const bool written = given && (question.flags & kNoOut) == 0;
  // An unknown code of the system class leaves the size, which is then that of the room.
  const bool unknown = question.queryClass == VXREQ_System && question.code > VXREQS_Reference;
  Check(!given || outSize <= room);
  Check(Untouched(out.get(), written && !unknown ? outSize : 0, room));
  if (written && !unknown && !IsComputed(question)) Check(IsInside(image.get(), out.get(), outSize));
  return 0;
}
