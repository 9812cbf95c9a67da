// Queries about an extension image: what VXRExt_QueryData (vxrcore/vxrcore.h) is made of.
#pragma once

#include "log/log.h"
#include "platform/platform.h"
#include "vxrcore/bmext.h"

enum class QueryShape : uint8_t {
  kBytes,   // the whole field
  kText,    // up to its terminator, at most the whole field
  kCounted  // as many bytes as another field of the record says, at most the whole field
};

// A code that asks for a field of a record.
struct QueryItem {
  uint32_t code;
  const char *name;
  uint32_t offset, size;  // of the field in its record, in bytes
  QueryShape shape;
  uint32_t countOffset;  // kCounted: of the VXR_LE32 that counts
};

// `field` may name one of a record inside the record.
#define QUERY_ITEM(code, record, field, shape)                                                                \
  QueryItem {                                                                                                 \
    code, #code, offsetof(record, field), sizeof(static_cast<record *>(nullptr)->field), QueryShape::shape, 0 \
  }
#define QUERY_COUNTED_ITEM(code, record, field, count)                                                         \
  QueryItem {                                                                                                  \
    code, #code, offsetof(record, field), sizeof(static_cast<record *>(nullptr)->field), QueryShape::kCounted, \
        offsetof(record, count)                                                                                \
  }

// Whether a table's codes follow one another from its first on, so that a code finds its item without a search.
template <size_t kCount>
constexpr bool InCodeOrder(const QueryItem (&items)[kCount]) {
  for (size_t i = 1; i < kCount; ++i) {
    if (items[i].code != items[0].code + i) return false;
  }
  return true;
}

// Null when the table has no such code.
template <size_t kCount>
constexpr const QueryItem *FindItem(const QueryItem (&items)[kCount], uint32_t code) {
  const uint32_t index = code - items[0].code;
  return index < kCount ? &items[index] : nullptr;
}

struct QueryAnswer {
  const char *name;    // the item's
  const void *source;  // null: no answer
  uint32_t size;       // what the caller is told, in bytes
  uint32_t copied;     // bytes at `source`, not above `size`
};

// What the item asks for in the record at `record`, which is read at any address.
QueryAnswer ReadItem(const QueryItem &item, const void *record);

enum class CopyLine : bool { kNo, kYes };

// The size protocol: FALSE, after a line at level 4, when `*outSize`, the capacity, is less than the answer's size;
// else copies the answer into `out` unless that is null. `*outSize` becomes the answer's size either way.
BOOL GiveAnswer(const QueryAnswer &answer, uint8_t *out, uint32_t *outSize, CopyLine copyLine, const Caller &trace);

inline const char *TruthText(BOOL value) { return value ? "TRUE" : "FALSE"; }

// One function a class: the arguments of VXRExt_QueryData and the class's record in the image. `outSize` is not null.
// FALSE, after logging where the class does, when there is no answer.
BOOL VXRExt_QueryVolume(uint32_t query, uint8_t *out, uint32_t *outSize, const int32_t *in, uint32_t inValue,
                        const VXR_VOLUMES *volumes);
BOOL VXRExt_QuerySystem(uint32_t query, uint8_t *out, uint32_t *outSize, const int32_t *in, uint32_t inValue,
                        const VXR_SYSINFO *system);
BOOL VXRExt_QueryNetwork(uint32_t query, uint8_t *out, uint32_t *outSize, const int32_t *in, uint32_t inValue,
                         const VXR_NETINFO *names);
BOOL VXRExt_QueryArchitect(uint32_t query, uint8_t *out, uint32_t *outSize, const int32_t *in, uint32_t inValue,
                           const VXR_ARCHITECT *architect);
