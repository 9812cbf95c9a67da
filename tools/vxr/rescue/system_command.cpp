#include "tools/vxr/rescue/system_command.h"

#include <algorithm>
#include <utility>

#include "rescue/boot_drivers.h"
#include "tools/vxr/base/json_values.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/rescue/facts_text.h"
#include "tools/vxr/rescue/rescue_facts.h"

using Json = nlohmann::ordered_json;

namespace {

std::string Number(const std::optional<std::uint32_t> &number) { return number ? std::to_string(*number) : "none"; }

void PrintControlSets(const rescue::BootState &state) {
  std::string sets;
  for (const std::uint32_t set : state.controlSets) sets += (sets.empty() ? "" : ", ") + std::to_string(set);
  PrintTitle("Control sets");
  PrintLine("  " + sets + "; current " + Number(state.current) + ", default " + Number(state.standard) +
            ", last known good " + Number(state.lastKnownGood) + ", failed " + Number(state.failed));
}

// What keeps a driver from being loaded, or what it is.
std::string DriverState(const rescue::BootDriver &driver, const rescue::RestoredSystem &system) {
  if (driver.file.empty()) return "its file is missing";
  if (!driver.architecture) return "its file is no driver";
  if (*driver.architecture != system.architecture) {
    return "its file is for " + ArchitectureText(*driver.architecture);
  }
  return driver.version.empty() ? "present" : driver.version;
}

bool IsSound(const rescue::BootDriver &driver, const rescue::RestoredSystem &system) {
  return !driver.file.empty() && driver.architecture == system.architecture;
}

bool IsHeldBack(const rescue::BootDriver &driver) { return driver.startOverride.value_or(0) != 0; }

// Those that are held back, or those that are not.
void PrintDrivers(const char *title, bool heldBack, const rescue::BootState &state,
                  const rescue::RestoredSystem &system) {
  std::size_t name = 0;
  for (const rescue::BootDriver &driver : state.drivers) name = std::max(name, driver.service.size());
  bool titled = false;
  for (const rescue::BootDriver &driver : state.drivers) {
    if (IsHeldBack(driver) != heldBack) continue;
    if (!std::exchange(titled, true)) PrintTitle(title);
    const std::string line = "  " + Padded(driver.service, name) + "  " + DriverState(driver, system);
    // A driver that is held back is not missed.
    if (heldBack) {
      PrintLine(line + " (StartOverride " + std::to_string(*driver.startOverride) + ")", Style::kDim);
    } else {
      PrintLine(line, IsSound(driver, system) ? Style::kPlain : Style::kBad);
    }
  }
}

void PrintDevices(const rescue::BootState &state, const rescue::RestoredSystem &system) {
  PrintTitle(system.driverDatabase ? "Driver database" : "Critical devices");
  PrintLine("  " + std::to_string(state.devices) + (state.devices == 1 ? " id" : " ids"));
  for (const rescue::BootDevice &device : state.asked) {
    const bool named = !device.service.empty() || !device.inf.empty();
    const std::string service = device.service.empty() ? "no service" : "service " + device.service;
    PrintLine("  " + device.id + "  " +
                  (!named               ? "is not named"
                   : device.inf.empty() ? service
                                        : device.inf + ", " + service),
              named ? Style::kPlain : Style::kBad);
  }
}

void PrintJson(const RescueFacts &facts, const rescue::BootState &state) {
  Json drivers = Json::array(), devices = Json::array();
  for (const rescue::BootDriver &driver : state.drivers) {
    drivers.push_back({{"service", driver.service},
                       {"group", OrNull(driver.group)},
                       {"image", OrNull(driver.image)},
                       {"file", OrNull(driver.file.string())},
                       {"version", OrNull(driver.version)},
                       {"architecture", driver.architecture ? Json(ArchitectureText(*driver.architecture)) : Json()},
                       {"start_override", OrNull(driver.startOverride)}});
  }
  for (const rescue::BootDevice &device : state.asked) {
    devices.push_back({{"id", device.id}, {"service", OrNull(device.service)}, {"inf", OrNull(device.inf)}});
  }
  const Json document = {{"system", SystemJson(*facts.system)},
                         {"control_sets",
                          {{"all", state.controlSets},
                           {"current", OrNull(state.current)},
                           {"default", OrNull(state.standard)},
                           {"last_known_good", OrNull(state.lastKnownGood)},
                           {"failed", OrNull(state.failed)}}},
                         {"boot_drivers", std::move(drivers)},
                         {"device_ids", state.devices},
                         {"asked", std::move(devices)},
                         {"obstacles", ObstaclesJson(facts)}};
  PrintDocument(document);
}

}  // namespace

int SystemCommand(const SystemOptions &options) {
  RescueFacts facts;
  if (const int failed = GatherSystem(options.root, &facts); failed != 0) return failed;
  rescue::BootState state;
  if (machine::Status read = rescue::ReadBootState(*facts.system, options.ids, &state); !read) {
    PrintError(Words(read));
    return 1;
  }
  if (options.json) {
    PrintJson(facts, state);
    return 0;
  }
  PrintSystem(*facts.system);
  for (const rescue::Obstacle &obstacle : facts.obstacles) PrintLine("  " + obstacle.text, Style::kBad);
  PrintControlSets(state);
  PrintDrivers("Drivers that start with it", false, state, *facts.system);
  PrintDrivers("Drivers that are held back", true, state, *facts.system);
  PrintDevices(state, *facts.system);
  return 0;
}
