#include <cstring>

#include "package/choose/candidates.h"
#include "platform/platform.h"
#include "vxrcore/drivers.h"

namespace package {
namespace {

Target TargetOf(const VXRDRV_TARGET &asked) {
  Target target;
  target.major = asked.major;
  target.minor = asked.minor;
  target.build = asked.build;
  target.architecture = static_cast<WORD>(asked.architecture);
  target.product = asked.product;
  target.suite = asked.suite;
  target.language = static_cast<WORD>(asked.language);
  return target;
}

void Answer(const Candidate &candidate, const VXRDRV_ANSWER &answer) {
  const std::string date = DateText(candidate.rank.date);
  const char *reason = RefusalWord(candidate.refusal);
  VXRDRV_CANDIDATE told = {};
  told.inf = candidate.rank.path.c_str();
  told.models = candidate.models.c_str();
  told.section = candidate.section.c_str();
  told.description = candidate.description.c_str();
  told.manufacturer = candidate.manufacturer.c_str();
  told.provider = candidate.provider.c_str();
  told.id = candidate.id.c_str();
  told.rank = candidate.rank.value;
  told.date = date.empty() ? nullptr : date.c_str();
  told.version = candidate.version.c_str();
  told.service = candidate.service.empty() ? nullptr : candidate.service.c_str();
  told.reason = reason;
  told.reasonText = reason == nullptr ? nullptr : candidate.refusalText.c_str();
  answer.candidate(answer.context, &told);
}

}  // namespace
}  // namespace package

extern "C" int32_t VXRDrv_FindDrivers(const VXRDRV_QUERY *query, const VXRDRV_ANSWER *answer, uint32_t *files) {
  using namespace package;
  *files = 0;
  Index index = MakeIndex(TargetOf(query->target));
  for (const char *directory = query->directories; *directory != '\0'; directory += std::strlen(directory) + 1) {
    AddDirectory(&index, directory, false);
  }
  *files = static_cast<uint32_t>(index.files.size());
  const DeviceIds device = IdsOf(query->hardwareIds, query->compatibleIds);
  const std::vector<Candidate> candidates = FindCandidates(index, device, {}, &index.unread);
  if (answer->unread != nullptr) {
    for (const UnreadFile &unread : index.unread) {
      answer->unread(answer->context, unread.path.c_str(), unread.reason.c_str());
    }
  }
  for (const Candidate &candidate : candidates) Answer(candidate, *answer);
  return !candidates.empty() && candidates.front().refusal == Refusal::kNone;
}
