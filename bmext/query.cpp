#include "bmext/query.h"

#include <cstring>

#include "log/log.h"
#include "vxrcore/vxrcore.h"

namespace {

constexpr uint32_t kUnknownClass = 5;  // the one unknown class that gets a line

constexpr QueryItem kSystemItems[] = {QUERY_ITEM(VXREQS_BootMedia, VXR_SYSINFO, BootMedia, kBytes),
                                      QUERY_ITEM(VXREQS_SystemPath, VXR_SYSINFO, SystemPath, kText),
                                      QUERY_ITEM(VXREQS_WindowsPath, VXR_SYSINFO, WindowsPath, kText),
                                      QUERY_ITEM(VXREQS_SysOs, VXR_SYSINFO, SysOs, kBytes)};
static_assert(InCodeOrder(kSystemItems));

constexpr QueryItem kNetworkItems[] = {QUERY_ITEM(VXREQN_Name, VXR_NETINFO, ComputerName, kText)};

constexpr QueryItem kArchitectItems[] = {QUERY_ITEM(VXREQA_KernelType, VXR_ARCHITECT, KernelType, kBytes),
                                         QUERY_ITEM(VXREQA_HalType, VXR_ARCHITECT, HalType, kBytes)};
static_assert(InCodeOrder(kArchitectItems));

BOOL CheckHeader(const VXR_EXTHEADER &header, const Caller &trace) {
  const uint32_t magic = VxrGet32(header.Magic);
  if (magic != VXR_EXT_MAGIC_COLD && magic != VXR_EXT_MAGIC_HOT) {
    trace.Error("VXR Magic not magch!has 0x%08X:but CBM=0x%08x HBM=9x%08x!\n", magic, VXR_EXT_MAGIC_COLD,
                VXR_EXT_MAGIC_HOT);
    return FALSE;
  }
  const uint32_t version = VxrGet32(header.Version);
  if (version != VXR_EXT_VERSION) {
    trace.Error("VXR Verion not match!has=%08X:requires=%08X!\n", version, VXR_EXT_VERSION);
    return FALSE;
  }
  return TRUE;
}

}  // namespace

QueryAnswer ReadItem(const QueryItem &item, const void *record) {
  const auto *bytes = static_cast<const uint8_t *>(record);
  const uint8_t *field = bytes + item.offset;
  uint32_t size = item.size;
  if (item.shape == QueryShape::kText) {
    // A text from outside may fill its field without a terminator.
    const void *end = std::memchr(field, '\0', size);
    if (end != nullptr) size = static_cast<uint32_t>(static_cast<const uint8_t *>(end) - field);
  } else if (item.shape == QueryShape::kCounted) {
    VXR_LE32 count;
    std::memcpy(&count, bytes + item.countOffset, sizeof(count));
    if (VxrGet32(count) < size) size = VxrGet32(count);
  }
  return {item.name, field, size, size};
}

BOOL GiveAnswer(const QueryAnswer &answer, uint8_t *out, uint32_t *outSize, CopyLine copyLine, const Caller &trace) {
  const uint32_t capacity = *outSize;
  *outSize = answer.size;
  if (answer.size > capacity) {
    trace.Info("%s:has %u bytes but requires %u bytes\n", answer.name, capacity, answer.size);
    return FALSE;
  }
  if (out == nullptr || answer.source == nullptr || answer.size == 0) return TRUE;
  if (copyLine == CopyLine::kYes) {
    trace.Flush("copy %u bytes data:%p->%p\n", answer.copied, answer.source, out);
  }
  std::memcpy(out, answer.source, answer.copied);
  return TRUE;
}

int32_t VXRExt_QueryData(uint32_t queryClass, uint32_t query, uint8_t *out, uint32_t *outSize, const int32_t *in,
                         uint32_t inValue, const void *head) {
  const CallTrace trace = TraceCall();
  if (head == nullptr) {
    trace.Null("pHead");
    return FALSE;
  }
  if (outSize == nullptr) {
    trace.Null("pdwOut");
    return FALSE;
  }
  trace.Flush("class=%u:qry=0x%08X:pO=%p:pIn=%p:%u:pHead=%p\n", queryClass, query, out, in, inValue, head);
  const auto *image = static_cast<const VXR_EXTIMAGE *>(head);
  if (!CheckHeader(image->Header, trace)) return FALSE;
  const VXR_BMEXTNSON &extension = image->Extension;
  switch (queryClass) {
    case VXREQ_Volume:
      return VXRExt_QueryVolume(query, out, outSize, in, inValue, &extension.Volumes);
    case VXREQ_System:
      return VXRExt_QuerySystem(query, out, outSize, in, inValue, &extension.SysInfo);
    case VXREQ_Network:
      return VXRExt_QueryNetwork(query, out, outSize, in, inValue, &extension.NetInfo);
    case VXREQ_Architect:
      return VXRExt_QueryArchitect(query, out, outSize, in, inValue, &extension.Architect);
    case kUnknownClass:
      trace.Error("Uknown query!\n");
      return FALSE;
    default:
      return FALSE;
  }
}

BOOL VXRExt_QuerySystem(uint32_t query, uint8_t *out, uint32_t *outSize, const int32_t *, uint32_t,
                        const VXR_SYSINFO *system) {
  const CallTrace trace = TraceCall();
  if (system == nullptr) {
    trace.Null("pSys");
    return FALSE;
  }
  if (outSize == nullptr) {
    trace.Null("pdwOut");
    return FALSE;
  }
  if (query == VXREQS_Reference) {
    // The size of the whole record for four bytes of its address: what hosts were promised, kept as it is.
    const VXR_LE32 address = VxrPut32(LowHalf(system));
    const QueryAnswer answer = {"VXREQS_Reference", &address, sizeof(*system), sizeof(address)};
    return GiveAnswer(answer, out, outSize, CopyLine::kNo, trace);
  }
  const QueryItem *item = FindItem(kSystemItems, query);
  if (item == nullptr) return TRUE;  // hosts rely on it: an unknown code of this class, alone, is no failure
  return GiveAnswer(ReadItem(*item, system), out, outSize, CopyLine::kNo, trace);
}

BOOL VXRExt_QueryNetwork(uint32_t query, uint8_t *out, uint32_t *outSize, const int32_t *in, uint32_t inValue,
                         const VXR_NETINFO *names) {
  const CallTrace trace = TraceCall();
  BOOL given = FALSE;
  if (names == nullptr) {
    trace.Null("pNet");
  } else if (const QueryItem *item = FindItem(kNetworkItems, query); item != nullptr) {
    given = GiveAnswer(ReadItem(*item, names), out, outSize, CopyLine::kNo, trace);
  }
  // At the default level: this class alone costs a log line a query.
  trace.Check("DONE:qry=%d:pIn=%p:%u:pO=%p:%p:%u\n", query, in, inValue, out, outSize, *outSize);
  return given;
}

BOOL VXRExt_QueryArchitect(uint32_t query, uint8_t *out, uint32_t *outSize, const int32_t *, uint32_t,
                           const VXR_ARCHITECT *architect) {
  const CallTrace trace = TraceCall();
  BOOL given = FALSE;
  if (architect == nullptr) {
    trace.Null("pArch");
  } else if (const QueryItem *item = FindItem(kArchitectItems, query); item != nullptr) {
    given = GiveAnswer(ReadItem(*item, architect), out, outSize, CopyLine::kYes, trace);
  }
  trace.Flush("DONE:RET=%s\n", TruthText(given));
  return given;
}
