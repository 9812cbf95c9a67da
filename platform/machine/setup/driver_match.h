// Which model lines of an INF file serve a device of the running system, and how well.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/inf/inf_file.h"
#include "platform/machine/description/records.h"

namespace machine {

// A line of a models section that the running system takes its drivers from.
struct ModelLine {
  const InfSection *manufacturers = nullptr;
  const InfLine *manufacturer = nullptr;
  const InfSection *models = nullptr;
  const InfLine *model = nullptr;
};

// Calls `take` with each model line that is for the system, in file order. A models section that several manufacturer
// lines lead to is taken once, for the first of them.
void ForEachModel(InfFile *file, const System &system, const std::function<void(const ModelLine &)> &take);

// How well a line's id serves a device's: the smallest is the best. Of the two positions the device's counts first.
struct MatchRank {
  // Hardware id against hardware id, device's hardware id against the line's compatible id, the reverse, compatible id
  // against compatible id.
  unsigned kind = 4;
  std::size_t devicePosition = 0, linePosition = 0;

  auto operator<=>(const MatchRank &) const = default;
  bool Matches() const { return kind < 4; }
};

// A device's ids, each with its best place.
struct DeviceIds {
  struct Place {
    bool compatible = false;
    std::size_t position = 0;
  };
  NameTable<Place> places;
};

DeviceIds IdsOf(const Device &device);
// The ids of a model line: its hardware id, which may be empty, then its compatible ids.
std::vector<std::string> IdsOf(InfFile *file, const ModelLine &line);
MatchRank RankOf(const std::vector<std::string> &lineIds, const DeviceIds &device);

// The ids of all described devices, each with the numbers of the devices that have it.
using IdIndex = NameTable<std::vector<std::uint32_t>>;
IdIndex IndexIds(const Description &description);
// The numbers of the devices that some model line of the file serves, in ascending order.
std::vector<std::uint32_t> ServedDevices(InfFile *file, const Description &description, const IdIndex &index);

}  // namespace machine
