#include "inf/field_reader.h"

#include <cstring>

#include "engine/base/strings.h"
#include "inf/checks.h"
#include "inf/walks.h"
#include "log/log.h"

namespace {

constexpr SIZE_T kSectionNameSize = 256;

HeapText ReadField(HINF hInf, DWORD index, INFCONTEXT *line, DWORD *size, DWORD type, const Caller &trace) {
  switch (type) {
    case VXRINF_TYPE_SZ:
      return VXRDev_GetInfLineFieldSZ(hInf, index, line, size, FALSE);
    case VXRINF_TYPE_MSZ:
      return VXRDev_GetInfLineFieldSZ(hInf, index, line, size, TRUE);
    case VXRINF_TYPE_INT:
      return VXRDev_GetInfLineFieldINT(hInf, index, line, size);
    case VXRINF_TYPE_BIN:
      return VXRDev_GetInfLineFieldBIN(hInf, index, line, size);
    default:
      trace.Error("unknown type = %u\n", type);
      return nullptr;
  }
}

bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// The value of a digit, or `base` when the character is none.
DWORD DigitValue(char c, DWORD base) {
  DWORD value = base;
  if (c >= '0' && c <= '9') value = static_cast<DWORD>(c - '0');
  if (c >= 'a' && c <= 'f') value = static_cast<DWORD>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') value = static_cast<DWORD>(c - 'A' + 10);
  return value < base ? value : base;
}

DWORD LeadingDigits(const char *text, DWORD base) {
  DWORD number = 0;
  for (DWORD digit; (digit = DigitValue(*text, base)) < base; ++text) number = number * base + digit;
  return number;
}

// The number that a text begins with: hexadecimal after 0x, else decimal; 0 when it begins with none.
DWORD LeadingNumber(const char *text) {
  if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) return LeadingDigits(text + 2, 16);
  while (IsBlank(*text)) ++text;
  const bool negative = *text == '-';
  if (*text == '-' || *text == '+') ++text;
  const DWORD number = LeadingDigits(text, 10);
  return negative ? 0 - number : number;
}

}  // namespace

HeapText VXRDev_GetInfLineField(HINF hInf, DWORD index, INFCONTEXT *pContext, DWORD *size, DWORD type) {
  const CallTrace trace = TraceCall();
  if (!Given(pContext, "pContext")) return nullptr;
  DWORD bytes = 0;
  HeapText field = ReadField(hInf, index, pContext, &bytes, type, trace);
  if (field != nullptr && (type == VXRINF_TYPE_SZ || type == VXRINF_TYPE_MSZ)) {
    HeapText converted = VXRDev_InfConvertStringToken(hInf, field.get(), &bytes, type);
    if (converted != nullptr) field = std::move(converted);
  }
  if (size != nullptr) *size = bytes;
  trace.Flush("index=%u:type=%u:size=%u bytes:ret at %p\n", index, type, bytes, field.get());
  return field;
}

HeapText VXRDev_GetInfLineFieldSZ(HINF, DWORD index, INFCONTEXT *pContext, DWORD *size, BOOL bMultiSz) {
  const CallTrace trace = TraceCall();
  const auto read = bMultiSz ? platform::SetupGetMultiSzFieldA : platform::SetupGetStringFieldA;
  DWORD bytes = 0;
  if (!read(pContext, index, nullptr, 0, &bytes) || bytes == 0) return nullptr;
  HeapText data = AllocText(bytes, "pData");
  if (data == nullptr) return nullptr;
  if (!read(pContext, index, data.get(), bytes, nullptr)) {
    trace.Failed(bMultiSz ? "SetupGetMultiSzField" : "SetupGetStringField", "None");
    return nullptr;
  }
  trace.Flush("pData(%u bytes:%s) = %s\n", bytes, bMultiSz ? "MSZ" : "SZ", data.get());
  *size = bytes;
  return data;
}

HeapText VXRDev_GetInfLineFieldINT(HINF hInf, DWORD index, INFCONTEXT *pContext, DWORD *size) {
  const CallTrace trace = TraceCall();
  int value = 0;
  HeapText data = AllocText(sizeof(value), "VXRDev_GetInfLineFieldINT:pData");
  if (data == nullptr) return nullptr;
  *size = sizeof(value);
  if (!platform::SetupGetIntField(pContext, index, &value)) {
    DWORD textSize = 0;
    const HeapText text = VXRDev_GetInfLineFieldSZ(hInf, index, pContext, &textSize, FALSE);
    if (text == nullptr) {
      trace.Failed("VXRDev_GetInfLineFieldSZ", "Failed to get int as string token");
      *size = 0;
      return nullptr;
    }
    value = static_cast<int>(LeadingNumber(text.get()));
  }
  std::memcpy(data.get(), &value, sizeof(value));
  trace.Flush("field ind=%02d:val=0x%08x\n", index, value);
  return data;
}

HeapText VXRDev_GetInfLineFieldBIN(HINF, DWORD index, INFCONTEXT *pContext, DWORD *size) {
  const CallTrace trace = TraceCall();
  *size = 0;
  DWORD bytes = 0;
  if (!platform::SetupGetBinaryField(pContext, index, nullptr, 0, &bytes) || bytes == 0) return nullptr;
  HeapText data = AllocText(bytes, "SetupGetBinaryField");
  if (data == nullptr) return nullptr;
  if (!platform::SetupGetBinaryField(pContext, index, reinterpret_cast<BYTE *>(data.get()), bytes, nullptr)) {
    trace.Failed("SetupGetBinaryField", "None");
    return nullptr;
  }
  trace.Flush("field ind=%02d:total %02d bytes\n", index, bytes);
  *size = bytes;
  return data;
}

HeapText VXRDev_InfConvertStringToken(HINF hInf, const char *szToken, DWORD *size, DWORD type) {
  const CallTrace trace = TraceCall();
  if (!Given(szToken, "szToken")) return nullptr;
  const SIZE_T length = std::strlen(szToken);
  // %% is not a token without a name: a line whose key is empty must not answer for it.
  if (length < 3 || szToken[0] != '%' || szToken[length - 1] != '%') return nullptr;
  const char *name = szToken + 1;
  const SIZE_T nameLength = length - 2;

  INFCONTEXT line = {};
  if (!FirstLine(hInf, "Strings", &line)) return nullptr;
  const DWORD keySize = static_cast<DWORD>(length + 1);
  const HeapText key = AllocText(keySize, "szStrKey");
  if (key == nullptr) return nullptr;
  for (BOOL more = TRUE; more; more = NextLine(&line)) {
    DWORD bytes = 0;
    if (!platform::SetupGetStringFieldA(&line, 0, nullptr, 0, &bytes) || bytes != nameLength + 1) continue;
    std::memset(key.get(), 0, keySize);
    if (!platform::SetupGetStringFieldA(&line, 0, key.get(), keySize, nullptr)) {
      trace.Failed("SetupGetStringField", "Failed to get key name!");
      return nullptr;
    }
    if (VXREng_StrNICmp(key.get(), name, nameLength) != 0) continue;
    DWORD valueSize = 0;
    HeapText value = ReadField(hInf, 1, &line, &valueSize, type, trace);
    if (value == nullptr) continue;
    *size = valueSize;
    return value;
  }
  return nullptr;
}

BOOL VXRDev_FindInfSection(HINF hInf, const char *szSection, const char *szDecoration, const char *szSuffix,
                           const char *szDecorations, INFCONTEXT *pContext) {
  const CallTrace trace = TraceCall();
  const HeapText name = AllocText(kSectionNameSize, "szSectArch");
  if (name == nullptr) return FALSE;
  const auto compose = [&](const char *decoration) {
    return PutText(name.get(), kSectionNameSize, "section name",
                   {szSection, decoration != nullptr ? "." : "", decoration, szSuffix != nullptr ? "." : "", szSuffix},
                   trace);
  };
  if (!compose(szDecoration)) return FALSE;
  trace.Flush("looking for szSectArch=%s\n", name.get());

  const char *next = szDecorations != nullptr ? szDecorations : "";
  for (DWORD attempt = 0;; ++attempt) {
    trace.Flush("checking %u:%s\n", attempt, name.get());
    if (FirstLine(hInf, name.get(), pContext)) break;
    if (next == nullptr) return FALSE;
    // The empty text that closes the list stands for the last attempt, the name without a decoration.
    const char *decoration = *next != '\0' ? next : nullptr;
    next = decoration != nullptr ? NextText(decoration) : nullptr;
    if (!compose(decoration)) return FALSE;
  }
  trace.Flush("found section %s\n", name.get());
  return TRUE;
}

BOOL VXRDev_CheckHardwareIDMatch(const char *szModelID, const char *szHardwareID, const VXR_DRIVER *pVXRDriver) {
  const CallTrace trace = TraceCall();
  return szModelID != nullptr && szHardwareID != nullptr && pVXRDriver != nullptr &&
         VXREng_StrICmp(szModelID, szHardwareID) == 0;
}

InfFile OpenInfFile(const char *path) {
  UINT errorLine = 0;
  const HINF inf = platform::SetupOpenInfFileA(path, nullptr, INF_STYLE_WIN4, &errorLine);
  return InfFile(inf != INVALID_HANDLE_VALUE ? inf : nullptr);
}
