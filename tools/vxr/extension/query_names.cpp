#include "tools/vxr/extension/query_names.h"

#include <algorithm>
#include <cstring>

#include "platform/text/ansi_case.h"
#include "tools/vxr/base/read_number.h"
#include "tools/vxr/extension/extension_file.h"

namespace {

#define ITEM(code, form) \
  ItemName { code, #code, AnswerForm::form }

const std::vector<ItemName> kVolumeItems = {ITEM(VXREQV_VolCount, kNumber),
                                            ITEM(VXREQV_VolIndex, kSigned),
                                            ITEM(VXREQV_SystVolInd, kSigned),
                                            ITEM(VXREQV_BootVolInd, kSigned),
                                            ITEM(VXREQV_MntPnt, kText),
                                            ITEM(VXREQV_BMName, kText),
                                            ITEM(VXREQV_Volume, kText),
                                            ITEM(VXREQV_Label, kText),
                                            ITEM(VXREQV_UniqId, kBytes),
                                            ITEM(VXREQV_Serial, kNumber),
                                            ITEM(VXREQV_FSName, kText),
                                            ITEM(VXREQV_Device, kBytes),
                                            ITEM(VXREQV_DiskCount, kNumber),
                                            ITEM(VXREQV_DiskNumber, kNumber),
                                            ITEM(VXREQV_DiskDescription, kText),
                                            ITEM(VXREQV_DiskInstanceId, kText),
                                            ITEM(VXREQV_DiskManufacturer, kText),
                                            ITEM(VXREQV_DiskProvider, kText),
                                            ITEM(VXREQV_DiskDevGuid, kGuid),
                                            ITEM(VXREQV_DiskImgFileTime, kTime),
                                            ITEM(VXREQV_DiskImgFileSize, kNumber),
                                            ITEM(VXREQV_DiskImgFileName, kText),
                                            ITEM(VXREQV_DiskImgFileDesc, kText),
                                            ITEM(VXREQV_DiskImgFileVersion, kText),
                                            ITEM(VXREQV_DiskInfFileTime, kTime),
                                            ITEM(VXREQV_DiskInfFileSize, kNumber),
                                            ITEM(VXREQV_DiskInfFileName, kText),
                                            ITEM(VXREQV_DiskInfFileDesc, kText),
                                            ITEM(VXREQV_DiskInfFileVersion, kText),
                                            ITEM(VXREQV_DiskSrvName, kText),
                                            ITEM(VXREQV_DiskSrvGroup, kText),
                                            ITEM(VXREQV_DiskSrvImage, kText)};

const std::vector<ItemName> kSystemItems = {ITEM(VXREQS_BootMedia, kNumber), ITEM(VXREQS_SystemPath, kText),
                                            ITEM(VXREQS_WindowsPath, kText), ITEM(VXREQS_SysOs, kOs),
                                            ITEM(VXREQS_Reference, kAddress)};

const std::vector<ItemName> kNetworkItems = {ITEM(VXREQN_Name, kText)};

const std::vector<ItemName> kArchitectItems = {ITEM(VXREQA_KernelType, kNumber), ITEM(VXREQA_HalType, kNumber)};

const ClassName kClasses[] = {{VXREQ_Volume, "VXREQ_Volume", kVolumeItems},
                              {VXREQ_System, "VXREQ_System", kSystemItems},
                              {VXREQ_Network, "VXREQ_Network", kNetworkItems},
                              {VXREQ_Architect, "VXREQ_Architect", kArchitectItems}};

bool IsName(std::string_view text, const char *name) {
  return machine::SameUtf8(text, name) || machine::SameUtf8(text, ShortName(name));
}

template <typename Named>
std::string List(const Named &all) {
  std::string list;
  for (const auto &each : all) list += (list.empty() ? "" : ", ") + std::string(ShortName(each.name));
  return list;
}

// A little-endian number of as many bytes as there are, at most 8.
std::uint64_t Number(const std::vector<std::uint8_t> &bytes) {
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < bytes.size() && i < sizeof number; ++i) number |= std::uint64_t{bytes[i]} << (8 * i);
  return number;
}

// The record at the beginning of the answer, zero beyond its end.
template <typename Record>
Record Copied(const std::vector<std::uint8_t> &bytes) {
  Record record{};
  std::copy_n(bytes.begin(), std::min(bytes.size(), sizeof record), reinterpret_cast<std::uint8_t *>(&record));
  return record;
}

std::vector<std::string> OsLines(const VXR_SYSOSINFO &os) {
  struct Field {
    const char *name;
    VXR_LE32 value;
  };
  const Field fields[] = {{"MajorVersion", os.MajorVersion},
                          {"MinorVersion", os.MinorVersion},
                          {"BuildNumber", os.BuildNumber},
                          {"PlatformId", os.PlatformId},
                          {"ServicePackMajor", os.ServicePackMajor},
                          {"ServicePackMinor", os.ServicePackMinor},
                          {"SuiteMask", os.SuiteMask},
                          {"ProductType", os.ProductType},
                          {"NumberOfProcessors", os.NumberOfProcessors},
                          {"ProcessorType", os.ProcessorType},
                          {"ProcessorLevel", os.ProcessorLevel},
                          {"ProcessorRevision", os.ProcessorRevision},
                          {"ProcessorArchitecture", os.ProcessorArchitecture},
                          {"PageSize", os.PageSize}};
  std::vector<std::string> lines;
  for (const Field &field : fields) {
    lines.push_back(std::string(field.name) + "=" + std::to_string(VxrGet32(field.value)));
  }
  lines.push_back("TotalPhys=" + std::to_string(VxrGet64(os.TotalPhys)));
  return lines;
}

}  // namespace

const char *ShortName(const char *name) { return std::strchr(name, '_') + 1; }

const ClassName *FindClass(std::string_view text) {
  std::uint32_t number = 0;
  const bool isNumber = ReadNumber(text, &number);
  for (const ClassName &each : kClasses) {
    if (isNumber ? each.code == number : IsName(text, each.name)) return &each;
  }
  return nullptr;
}

const ItemName *FindItem(const ClassName &queryClass, std::string_view text, std::uint32_t *code) {
  std::uint32_t number = 0;
  const bool isNumber = ReadNumber(text, &number);
  const std::uint32_t selector = queryClass.code == VXREQ_Volume ? number & kSelectorBits : 0;
  for (const ItemName &item : queryClass.items) {
    const bool found = isNumber ? (item.code | selector) == number : IsName(text, item.name);
    if (!found || (selector != 0 && item.code < VXREQV_DiskNumber)) continue;
    *code = item.code | selector;
    return &item;
  }
  return nullptr;
}

std::string ClassList() { return List(kClasses); }

std::string ItemList(const ClassName &queryClass) { return List(queryClass.items); }

std::vector<std::string> AnswerLines(AnswerForm form, const std::vector<std::uint8_t> &answer, unsigned codePage) {
  const std::uint64_t number = Number(answer);
  switch (form) {
    case AnswerForm::kText:
      return {FieldText(reinterpret_cast<const char *>(answer.data()), answer.size(), codePage)};
    case AnswerForm::kNumber:
      return {std::to_string(number)};
    case AnswerForm::kSigned:
      return {std::to_string(static_cast<std::int32_t>(number))};
    case AnswerForm::kGuid:
      return {GuidText(Copied<VXR_GUID>(answer))};
    case AnswerForm::kTime: {
      const std::string time = TimeText(Copied<VXR_LE64>(answer));
      return {time.empty() ? std::to_string(number) : time};  // what is no time is still a number
    }
    case AnswerForm::kOs:
      return OsLines(Copied<VXR_SYSOSINFO>(answer));
    case AnswerForm::kAddress:
      return {HexNumber(number & 0xFFFFFFFF, 8)};
    case AnswerForm::kBytes:
      break;
  }
  return {HexText(answer.data(), answer.size())};
}
