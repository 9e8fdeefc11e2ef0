// views.h - what `vexhost ctl show` shows, as data.
// In:  a snapshot, bindings, stations. Out: JSON whose members stand in the order of the columns: an object
// of values, or an array of objects that are the rows of a table. ctl_tables.h makes text of it.
#pragma once

#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "host/live/mac_table.h"
#include "host/live/snapshot.h"
#include "service/binding.h"

namespace vex::host::live {

using Json = nlohmann::ordered_json;

Json SummaryView(const Snapshot& snapshot);
Json PortsView(const Snapshot& snapshot);
Json LimitsView(const Snapshot& snapshot);
Json SwitchesView(const Snapshot& snapshot);
Json ChannelsView(const Snapshot& snapshot);
Json StatsView(const Snapshot& snapshot);
// now: seconds since the epoch.
Json BindingsView(const std::vector<service::Binding>& bindings, const std::vector<PortRecord>& ports,
                  uint64_t now);
Json StationsView(const std::vector<MacTable::Station>& stations, const std::vector<PortRecord>& ports);

}  // namespace vex::host::live
