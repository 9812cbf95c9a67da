// Queries of the volume class: the table's, a volume's, a disk's.
#include <cstring>

#include "bmext/query.h"
#include "log/log.h"

namespace {

constexpr uint32_t kSelectorBits = 0xF0000000;
constexpr uint32_t kItemBits = 0x0FFFFFFF;

// VXREQV_VolIndex, which is a search, stands here for its name and its place among the codes.
constexpr QueryItem kTableItems[] = {QUERY_ITEM(VXREQV_VolCount, VXR_VOLUMES, VolCount, kBytes),
                                     QueryItem{VXREQV_VolIndex, "VXREQV_VolIndex", 0, 0, QueryShape::kBytes, 0},
                                     QUERY_ITEM(VXREQV_SystVolInd, VXR_VOLUMES, SystVolInd, kBytes),
                                     QUERY_ITEM(VXREQV_BootVolInd, VXR_VOLUMES, BootVolInd, kBytes)};
static_assert(InCodeOrder(kTableItems));

constexpr QueryItem kVolumeItems[] = {QUERY_ITEM(VXREQV_MntPnt, VXR_VOLUME, MntPnt, kText),
                                      QUERY_ITEM(VXREQV_BMName, VXR_VOLUME, BMName, kText),
                                      QUERY_ITEM(VXREQV_Volume, VXR_VOLUME, Volume, kText),
                                      QUERY_ITEM(VXREQV_Label, VXR_VOLUME, Label, kText),
                                      QUERY_COUNTED_ITEM(VXREQV_UniqId, VXR_VOLUME, UniqId, UniqIdLen),
                                      QUERY_ITEM(VXREQV_Serial, VXR_VOLUME, Serial, kBytes),
                                      QUERY_ITEM(VXREQV_FSName, VXR_VOLUME, FileSystem, kText),
                                      QUERY_COUNTED_ITEM(VXREQV_Device, VXR_VOLUME, Device, DeviceLen),
                                      QUERY_ITEM(VXREQV_DiskCount, VXR_VOLUME, VolDisks.DiskCount, kBytes)};
static_assert(InCodeOrder(kVolumeItems));

constexpr QueryItem kDiskNumberItem = QUERY_ITEM(VXREQV_DiskNumber, VXR_VOLDISK, DiskExtent.DiskNumber, kBytes);

constexpr QueryItem kDriverItems[] = {QUERY_ITEM(VXREQV_DiskDescription, VXR_DEVDRV, Description, kText),
                                      QUERY_ITEM(VXREQV_DiskInstanceId, VXR_DEVDRV, InstanceID, kText),
                                      QUERY_ITEM(VXREQV_DiskManufacturer, VXR_DEVDRV, Manufacturer, kText),
                                      QUERY_ITEM(VXREQV_DiskProvider, VXR_DEVDRV, ProviderName, kText),
                                      QUERY_ITEM(VXREQV_DiskDevGuid, VXR_DEVDRV, DevGuid, kBytes),
                                      QUERY_ITEM(VXREQV_DiskImgFileTime, VXR_DEVDRV, ImgFile.LastWriteTime, kBytes),
                                      QUERY_ITEM(VXREQV_DiskImgFileSize, VXR_DEVDRV, ImgFile.FileSize, kBytes),
                                      QUERY_ITEM(VXREQV_DiskImgFileName, VXR_DEVDRV, ImgFile.FileName, kText),
                                      QUERY_ITEM(VXREQV_DiskImgFileDesc, VXR_DEVDRV, ImgFile.FileDescription, kText),
                                      QUERY_ITEM(VXREQV_DiskImgFileVersion, VXR_DEVDRV, ImgFile.FileVersion, kText),
                                      QUERY_ITEM(VXREQV_DiskInfFileTime, VXR_DEVDRV, InfFile.LastWriteTime, kBytes),
                                      QUERY_ITEM(VXREQV_DiskInfFileSize, VXR_DEVDRV, InfFile.FileSize, kBytes),
                                      QUERY_ITEM(VXREQV_DiskInfFileName, VXR_DEVDRV, InfFile.FileName, kText),
                                      QUERY_ITEM(VXREQV_DiskInfFileDesc, VXR_DEVDRV, InfFile.FileDescription, kText),
                                      QUERY_ITEM(VXREQV_DiskInfFileVersion, VXR_DEVDRV, InfFile.FileVersion, kText),
                                      QUERY_ITEM(VXREQV_DiskSrvName, VXR_DEVDRV, Service.Name, kText),
                                      QUERY_ITEM(VXREQV_DiskSrvGroup, VXR_DEVDRV, Service.Group, kText),
                                      QUERY_ITEM(VXREQV_DiskSrvImage, VXR_DEVDRV, Service.Image, kText)};
static_assert(InCodeOrder(kDriverItems) && kDriverItems[0].code == kDiskNumberItem.code + 1);

constexpr QueryAnswer kNone = {};

bool IsDiskCode(uint32_t query) { return query > VXREQV_DiskCount; }

// How many entries of a table of `capacity` may be read, whatever its count claims. Log lines show the count as it is
// in the file, since that is what a reader of the log has to find there.
int32_t UsableCount(uint32_t count, int32_t capacity) {
  return count < static_cast<uint32_t>(capacity) ? static_cast<int32_t>(count) : capacity;
}

// By the byte that its mount point begins with; -1 after logging.
int32_t FindVolume(const VXR_VOLUMES &volumes, char letter, const Caller &trace) {
  const int32_t count = UsableCount(VxrGet32(volumes.VolCount), VXR_MAX_VOLUMES);
  for (int32_t i = 0; i < count; ++i) {
    if (volumes.Vols[i].MntPnt[0] == letter) return i;
  }
  trace.Error("VXREQV_VolIndex:input cDrv=%C!!not found\n", static_cast<uint8_t>(letter));
  return -1;
}

// Null after logging.
const VXR_VOLUME *VolumeAt(const VXR_VOLUMES &volumes, uint32_t inValue, const Caller &trace) {
  const auto index = static_cast<int32_t>(inValue);
  const uint32_t count = VxrGet32(volumes.VolCount);
  if (index < 0 || index >= UsableCount(count, VXR_MAX_VOLUMES)) {
    trace.Error("request vxrvol index = %d invalid! vxrvols count = %d!!\n", index, count);
    return nullptr;
  }
  trace.Flush("volume index = %d\n", index);
  return &volumes.Vols[index];
}

// Null after logging. The host's index may lie at any address.
const VXR_VOLDISK *DiskAt(const VXR_VOLDISKS &disks, const void *in, const Caller &trace) {
  if (in == nullptr) {
    trace.Null("pIn");
    return nullptr;
  }
  int32_t index = 0;
  std::memcpy(&index, in, sizeof(index));
  const uint32_t count = VxrGet32(disks.DiskCount);
  if (index < 0 || index >= UsableCount(count, VXR_MAX_VOLUME_DISKS)) {
    trace.Error("request vxrvoldisk index = %d invalid! vxrvoldisks count = %d!!\n", index, count);
    return nullptr;
  }
  trace.Flush("vxrvoldisk=%d:0x%08p\n", index, &disks.Disks[index]);
  return &disks.Disks[index];
}

// The first of the selector's bits counts; null without one.
const VXR_DEVDRV *SelectDriver(const VXR_VOLDISK &disk, uint32_t selector) {
  if ((selector & VXREQV_DiskDriver) != 0) return &disk.DiskDriver;
  if ((selector & VXREQV_BusEDriver) != 0) return &disk.BusEDriver;
  if ((selector & VXREQV_CtrlDriver) != 0) return &disk.CtrlDriver;
  return nullptr;
}

QueryAnswer AskDisk(uint32_t query, const void *in, const VXR_VOLUME &volume, const Caller &trace) {
  const VXR_VOLDISK *disk = DiskAt(volume.VolDisks, in, trace);
  if (disk == nullptr) return kNone;
  const uint32_t selector = query & kSelectorBits, code = query & kItemBits;
  trace.Flush("qtType=0x%08X:drvType = 0x%08X devType=0x%08X\n", query, selector, code);
  const VXR_DEVDRV *driver = SelectDriver(*disk, selector);
  if (driver == nullptr) {
    trace.Null("pDevDrv");
    return kNone;
  }
  trace.Flush("pDevDrv=0x%08p\n", driver);
  if (code == kDiskNumberItem.code) return ReadItem(kDiskNumberItem, disk);
  const QueryItem *item = FindItem(kDriverItems, code);
  if (item != nullptr) return ReadItem(*item, driver);
  VXRDbg_Log(kError, "%s:failed...\n", trace.name);
  return kNone;
}

// `*index` takes the number that VXREQV_VolIndex answers with.
QueryAnswer AskVolumes(uint32_t query, const void *in, uint32_t inValue, const VXR_VOLUMES &volumes, VXR_LE32 *index,
                       const Caller &trace) {
  if (query == VXREQV_VolIndex) {
    const int32_t found = FindVolume(volumes, static_cast<char>(inValue), trace);
    if (found < 0) return kNone;
    *index = VxrPut32(static_cast<uint32_t>(found));
    return {FindItem(kTableItems, query)->name, index, sizeof(*index), sizeof(*index)};
  }
  if (const QueryItem *item = FindItem(kTableItems, query); item != nullptr) return ReadItem(*item, &volumes);
  const VXR_VOLUME *volume = VolumeAt(volumes, inValue, trace);
  if (volume == nullptr) return kNone;
  if (const QueryItem *item = FindItem(kVolumeItems, query); item != nullptr) return ReadItem(*item, volume);
  return AskDisk(query, in, *volume, trace);
}

}  // namespace

BOOL VXRExt_QueryVolume(uint32_t query, uint8_t *out, uint32_t *outSize, const int32_t *in, uint32_t inValue,
                        const VXR_VOLUMES *volumes) {
  const CallTrace trace = TraceCall();
  QueryAnswer answer = kNone;
  VXR_LE32 index = {};
  BOOL given = FALSE;
  if (volumes == nullptr) {
    trace.Null("pVols");
  } else {
    answer = AskVolumes(query, in, inValue, *volumes, &index, trace);
    if (answer.source != nullptr) given = GiveAnswer(answer, out, outSize, CopyLine::kYes, trace);
  }
  const bool ofDisk = IsDiskCode(query);
  trace.Flush("q=[0x%08X:0x%08X:0x%08X]:in=[%u:%p]:out=%p->[%u:%p]:ret=%s\n", query, ofDisk ? query & kSelectorBits : 0,
              ofDisk ? query & kItemBits : 0, inValue, in, answer.source, answer.size, out, TruthText(given));
  return given;
}
