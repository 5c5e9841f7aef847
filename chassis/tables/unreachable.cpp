// Addresses that something waits for.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"

namespace chassis::tables {

namespace {

std::int64_t now_sec() {
    return card().os.now_nsec() / os::nsec_per_sec;
}

std::int64_t waited_sec(const dpm_unreachable_entry &entry) {
    return now_sec() - dpm_api_get_unreachable_since(&entry);
}

std::string answer_of(const dpm_unreachable_entry &entry) {
    return "the neighbour to answer since " + seconds_text(waited_sec(entry)) + "; " +
           std::to_string(entry.probe_cnt) + " probes left, the next in " +
           seconds_text(entry.timer.expiry_sec - now_sec());
}

} // namespace

const TableOf<dpm_unreachable_entry> unreachable{
    .each = walk<dpm_api_get_unreachable_entry_first, dpm_api_get_unreachable_entry_next>,
    .places =
        [](auto &entry) {
            return std::vector<Place>{{entry.vrf, host_of(entry.ip.family, entry.ip.address)}};
        },
    .columns = {{"vrf", TABLE_MEMBER(vrf)},
                {"address", [](auto &entry) { return text_of(entry.ip); }},
                {"interface", [](auto &entry) { return interface_name(entry.ifindex); }},
                {"waited_sec", waited_sec},
                {"probes_left", TABLE_MEMBER(probe_cnt)},
                {"next_probe_in_sec", [](auto &entry) { return seconds_until(entry.timer); }}},
    .waits_for = answer_of,
    .why = [](auto &entry) { return "waits for " + answer_of(entry) + "\n"; },
};

} // namespace chassis::tables
