#include "platform/machine/setup/driver_match.h"

#include <algorithm>
#include <unordered_set>

#include "platform/machine/setup/decoration.h"

namespace machine {
namespace {

// The models section of a manufacturer line for this system; null when the line is not for it.
// Where no decoration fits, the plain section serves, on a 64-bit system too: Windows is stricter there, but so a
// 64-bit recovery environment can serve a 32-bit restored system.
std::uint32_t ModelsSection(InfFile *file, const InfSection &manufacturers, const InfLine &line, const System &system) {
  if (line.valueCount == 0) return kInfNone;
  std::string name = FieldText(file, manufacturers, line, 1);
  std::vector<std::string> texts;
  for (std::uint32_t field = 2; field <= line.valueCount; ++field) {
    texts.push_back(FieldText(file, manufacturers, line, field));
  }
  const std::string_view best = BestDecoration({texts.begin(), texts.end()}, system);
  if (!best.empty()) (name += '.') += best;
  return FindSectionIndex(*file, name);
}

void AddIds(const std::vector<std::string> &ids, bool compatible, DeviceIds *result) {
  for (std::size_t i = 0; i < ids.size(); ++i) {
    if (!ids[i].empty()) result->places.try_emplace(ids[i], DeviceIds::Place{compatible, i});
  }
}

}  // namespace

void ForEachModel(InfFile *file, const System &system, const std::function<void(const ModelLine &)> &take) {
  const InfSection *manufacturers = FindSection(file, "Manufacturer");
  if (manufacturers == nullptr) return;
  std::unordered_set<std::uint32_t> taken;
  for (const InfLine &manufacturer : manufacturers->lines) {
    const std::uint32_t index = ModelsSection(file, *manufacturers, manufacturer, system);
    if (index == kInfNone || !taken.insert(index).second) continue;
    const InfSection &models = ParsedSection(file, index);
    for (const InfLine &model : models.lines) {
      if (model.hasKey) take({manufacturers, &manufacturer, &models, &model});
    }
  }
}

DeviceIds IdsOf(const Device &device) {
  DeviceIds ids;
  AddIds(device.hardwareIds, false, &ids);
  AddIds(device.compatibleIds, true, &ids);
  return ids;
}

std::vector<std::string> IdsOf(InfFile *file, const ModelLine &line) {
  std::vector<std::string> ids;
  for (std::uint32_t field = 2; field <= line.model->valueCount; ++field) {
    ids.push_back(FieldText(file, *line.models, *line.model, field));
  }
  return ids;
}

MatchRank RankOf(const std::vector<std::string> &lineIds, const DeviceIds &device) {
  MatchRank best;
  for (std::size_t i = 0; i < lineIds.size(); ++i) {
    if (lineIds[i].empty()) continue;
    const auto found = device.places.find(lineIds[i]);
    if (found == device.places.end()) continue;
    const unsigned kind = (found->second.compatible ? 2 : 0) + (i == 0 ? 0 : 1);
    best = std::min(best, MatchRank{kind, found->second.position, i});
  }
  return best;
}

IdIndex IndexIds(const Description &description) {
  IdIndex index;
  for (std::uint32_t i = 0; i < description.devices.size(); ++i) {
    for (const auto &[id, place] : IdsOf(description.devices[i]).places) index[id].push_back(i);
  }
  return index;
}

std::vector<std::uint32_t> ServedDevices(InfFile *file, const Description &description, const IdIndex &index) {
  std::vector<bool> serves(description.devices.size());
  ForEachModel(file, description.system, [&](const ModelLine &line) {
    for (std::uint32_t field = 2; field <= line.model->valueCount; ++field) {
      const std::string_view raw = RawField(*line.models, *line.model, field);
      const bool plain = raw.find('%') == std::string_view::npos;
      const auto found = plain ? index.find(raw) : index.find(ReplaceTokens(file, raw));
      if (found == index.end()) continue;
      for (const std::uint32_t device : found->second) serves[device] = true;
    }
  });
  std::vector<std::uint32_t> served;
  for (std::uint32_t i = 0; i < serves.size(); ++i) {
    if (serves[i]) served.push_back(i);
  }
  return served;
}

}  // namespace machine
