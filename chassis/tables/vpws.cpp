// Point-to-point pseudowires: attachment circuits, ways out and ways in.
//
// A pseudowire is in the chip while its circuit has a port, its ways out and in are there, and a
// label path to its peer is.  A circuit has one primary pseudowire, the first in table order, and
// one standby: the first that names the primary, or without a primary the first.  The two are a
// group.

#include "chassis/tables/l2vpn.h"
#include "platform/dal.h"

namespace chassis::tables {

namespace {

struct Pseudowires {
    using Key = std::pair<std::uint32_t, AddressBytes>;

    explicit Pseudowires(const Reading &);

    template <class Entry>
    static const Entry *find(const std::map<Key, const Entry *> &ways, std::uint32_t vc_id,
                             const std::uint8_t *peer) {
        const auto found = ways.find({vc_id, address_bytes(DPM_FAMILY_IPV4, peer)});
        return found == ways.end() ? nullptr : found->second;
    }

    struct Circuit {
        const dpm_vpws_acif *acif = nullptr; // of several the first by name
        const dpm_vpws_acif *in_chip = nullptr;
        const dpm_vpws_vc_fib *primary = nullptr, *standby = nullptr;
        std::vector<const dpm_vpws_vc_fib *> ways; // these, and what waits for their place
    };

    Circuit circuit(std::uint32_t number) const {
        const auto found = circuits.find(number);
        return found == circuits.end() ? Circuit() : found->second;
    }

    std::map<std::uint32_t, Circuit> circuits;
    std::map<Key, const dpm_vpws_vc_fib *> out;
    std::map<Key, const dpm_vpws_vc_ilm *> in;
};

bool is_standby(const dpm_vpws_vc_fib &way) {
    return way.vc_role == DPM_VC_STANDBY;
}

// The pseudowire that the circuit of one names: a standby one has the primary's.
std::uint32_t circuit_of(const dpm_vpws_vc_fib &way) {
    return is_standby(way) ? way.sibling_vc_id : way.vc_id;
}

bool names(const dpm_vpws_vc_fib &standby, const dpm_vpws_vc_fib &primary) {
    return std::equal(std::begin(standby.sibling_vc_peer), std::end(standby.sibling_vc_peer),
                      primary.vc_peer);
}

Pseudowires::Pseudowires(const Reading &) {
    vpws_ac.each([this](const dpm_vpws_acif &acif) {
        Circuit &circuit = circuits[acif.vc_id];
        if (!circuit.acif || std::string_view(acif.ifname) < circuit.acif->ifname)
            circuit.acif = &acif;
        if (is_programmed(acif))
            circuit.in_chip = &acif;
    });
    vpws_out.each([this](const dpm_vpws_vc_fib &way) {
        out[{way.vc_id, address_bytes(DPM_FAMILY_IPV4, way.vc_peer)}] = &way;
        circuits[circuit_of(way)].ways.push_back(&way);
    });
    vpws_in.each([this](const dpm_vpws_vc_ilm &way) {
        in[{way.vpn_id, address_bytes(DPM_FAMILY_IPV4, way.vc_peer)}] = &way;
    });
    for (auto &[number, circuit] : circuits) {
        for (const dpm_vpws_vc_fib *way : circuit.ways)
            if (!circuit.primary && !is_standby(*way))
                circuit.primary = way;
        for (const dpm_vpws_vc_fib *way : circuit.ways)
            if (!circuit.standby && is_standby(*way) &&
                (!circuit.primary || names(*way, *circuit.primary)))
                circuit.standby = way;
    }
}

std::string name_of(const dpm_vpws_vc_fib &way) {
    return "pseudowire " + std::to_string(way.vc_id) + " to " + peer_text(way);
}
std::string name_of(const dpm_vpws_vc_ilm &way) {
    return "pseudowire " + std::to_string(way.vpn_id) + " from " + peer_text(way);
}

std::string missing_circuit(const dpm_vpws_vc_fib &way, const Pseudowires::Circuit &circuit) {
    if (!circuit.acif)
        return "an attachment circuit";
    const bool has_port =
        is_programmed(way) ? circuit.acif->port != 0 : port_behind(circuit.acif->ifindex) != 0;
    return has_port ? "" : "a port of its circuit " + std::string(circuit.acif->ifname);
}

std::string missing_place(const dpm_vpws_vc_fib &way, const Pseudowires::Circuit &circuit) {
    const dpm_vpws_vc_fib *const holder = is_standby(way) ? circuit.standby : circuit.primary;
    if (holder == &way)
        return "";
    return holder ? "the place that " + name_of(*holder) + " has"
                  : "the primary " + name_of(*circuit.primary) + " to be its sibling";
}

std::string missing_of(const dpm_vpws_vc_fib &way, const Reading &reading) {
    const Pseudowires &pseudowires = reading.made<Pseudowires>();
    const Pseudowires::Circuit circuit = pseudowires.circuit(circuit_of(way));
    std::string missing;
    add_missing(missing, missing_circuit(way, circuit));
    add_missing(missing, missing_place(way, circuit));
    if (!Pseudowires::find(pseudowires.in, way.vc_id, way.vc_peer))
        add_missing(missing, "its way in");
    add_missing(missing, missing_path(peer_of(way), reading));
    return missing;
}

std::string waits_for(const dpm_vpws_vc_fib &way, const Reading &reading) {
    if (is_programmed(way))
        return "";
    const std::string missing = missing_of(way, reading);
    return missing.empty() ? refusal_of(way) : missing;
}

const dpm_vpws_vc_fib *way_out_of(const dpm_vpws_vc_ilm &way, const Reading &reading) {
    return Pseudowires::find(reading.made<Pseudowires>().out, way.vpn_id, way.vc_peer);
}

std::string waits_for(const dpm_vpws_vc_ilm &way, const Reading &reading) {
    const dpm_vpws_vc_fib *const out = way_out_of(way, reading);
    return out ? waits_for(*out, reading) : "its way out";
}

std::string waits_for(const dpm_vpws_acif &acif, const Reading &reading) {
    if (is_programmed(acif))
        return "";
    const Pseudowires::Circuit circuit = reading.made<Pseudowires>().circuit(acif.vc_id);
    const std::string number = std::to_string(acif.vc_id);
    if (circuit.acif != &acif)
        return std::string(circuit.acif->ifname) + ", which is the circuit of pseudowire " + number;
    return circuit.ways.empty() ? "the way out of pseudowire " + number
                                : waits_for(*circuit.ways.front(), reading);
}

// A circuit stands on its port while one of its pseudowires is in the chip.
void compare_circuit(const dpm_vpws_acif &acif, Wanted &wanted) {
    const auto circuit = wanted.reading.made<Pseudowires>().circuit(acif.vc_id);
    bool is_wanted = false, is_settled = true;
    for (const dpm_vpws_vc_fib *way : circuit.ways)
        if (is_programmed(*way)) {
            is_wanted = circuit.acif == &acif;
            is_settled = is_settled && way->sdk_result == 0;
        }
    if (is_settled && (is_programmed(acif) != is_wanted || (acif.port != 0) != is_wanted))
        wanted.differ("circuit " + std::string(acif.ifname) + " is not where its pseudowires are");
}

chip::VlanSet vlans_of(const dpm_vpws_acif &acif) {
    chip::VlanSet set;
    for (unsigned bit = 0; bit < 8 * sizeof acif.vlans; bit++)
        if (acif.vlans[bit / 8] >> bit % 8 & 1)
            set.add(std::uint16_t(bit + 1));
    return set;
}

chip::Circuit chip_circuit(const dpm_vpws_acif &acif) {
    return {acif.port,     acif.port_vlan,   acif.svlan_id,    acif.svlan_tpid,
            acif.cvlan_id, acif.action_vlan, acif.vlan_action, acif.matchRule};
}

std::uint32_t role_of(const dpm_vpws_vc_fib &way) {
    return is_standby(way) ? DAL_PW_STANDBY : DAL_PW_PRIMARY;
}

// The chip has a pseudowire with its circuit and both its ways; a group uses one of two.
void want_pseudowire(const dpm_vpws_vc_fib &way, Wanted &wanted) {
    const Pseudowires &pseudowires = wanted.reading.made<Pseudowires>();
    const dpm_vpws_acif *const acif = pseudowires.circuit(circuit_of(way)).in_chip;
    const dpm_vpws_vc_ilm *const in = Pseudowires::find(pseudowires.in, way.vc_id, way.vc_peer);
    if (!is_programmed(way))
        return;
    if (!acif || !in)
        return wanted.differ(name_of(way) + " is in the chip without circuit or way in");
    wanted.want<kinds::vpws>({way.vc_id, chip_peer(way)},
                             chip::Vpws{chip_circuit(*acif), wire_of(way, in->in_label),
                                        role_of(way), way.ac_nhid, way.pw_nhid, way.aps_id,
                                        vlans_of(*acif)});
    if (way.aps_id != 0)
        wanted.want<kinds::pw_group>(way.aps_id,
                                     way.switched != 0 ? DAL_PW_STANDBY : DAL_PW_PRIMARY);
}

std::vector<Place> place_of(const auto &way, std::uint32_t vc_id) {
    return {{0, peer_of(way), vc_id}};
}

std::string sibling_text(const dpm_vpws_vc_fib &way) {
    return way.sibling_vc_id == 0 ? ""
                                  : std::to_string(way.sibling_vc_id) + " " +
                                        address_text(DPM_FAMILY_IPV4, way.sibling_vc_peer);
}

// Of a group one is used, whichever is in the chip.
std::string use_text(const dpm_vpws_vc_fib &way) {
    return is_programmed(way) ? yes_or_no(way.aps_id == 0 || is_standby(way) == (way.switched != 0))
                              : "";
}

} // namespace

const TableOf<dpm_vpws_acif> vpws_ac{
    .each = walk<dpm_api_get_vpws_acif_first, dpm_api_get_vpws_acif_next>,
    .key = [](auto &acif) { return std::string("dev ") + acif.ifname; },
    .places =
        [](auto &acif) {
            return std::vector<Place>{{0, {}, acif.vc_id}};
        },
    .own =
        [](auto &acif, auto &reading) {
            acif.node = {};
            acif.ifindex = leads(reading, acif.ifname, acif.ifindex);
        },
    .columns = {{"interface", TABLE_MEMBER(ifname)},
                {"vc_id", TABLE_MEMBER(vc_id)},
                {"state", service_state<dpm_vpws_acif>},
                {"port", TABLE_MEMBER(port)},
                {"svlan", TABLE_MEMBER(svlan_id)},
                {"cvlan", TABLE_MEMBER(cvlan_id)},
                {"+tpid", TABLE_MEMBER(svlan_tpid)},
                {"+action", TABLE_MEMBER(vlan_action)},
                {"+match", TABLE_MEMBER(matchRule)},
                {"+vlan", TABLE_MEMBER(port_vlan)}},
    .in_chip = compare_circuit,
    .waits_for = [](auto &acif, auto &reading) { return waits_for(acif, reading); },
    .why =
        [](auto &acif, auto &reading) {
            return std::string(acif.ifname) + " is the circuit of pseudowire " +
                   std::to_string(acif.vc_id) + ": " + label_why(waits_for(acif, reading)) + "\n";
        },
};

const TableOf<dpm_vpws_vc_fib> vpws_out{
    .each = walk<dpm_api_get_vpws_vc_fib_first, dpm_api_get_vpws_vc_fib_next>,
    .key = [](auto &way) { return name_of(way); },
    .places = [](auto &way) { return place_of(way, way.vc_id); },
    .own =
        [](auto &way, auto &reading) {
            way.node = {};
            way.pend = {};
            way.ac_ifindex = leads(reading, way.in_ifname, way.ac_ifindex);
            way.nw_ifindex = leads(reading, way.out_ifname, way.nw_ifindex);
        },
    .columns = {{"vc_id", TABLE_MEMBER(vc_id)},
                {"peer", [](auto &way) { return peer_text(way); }},
                {"state", service_state<dpm_vpws_vc_fib>},
                {"label", TABLE_MEMBER(out_label)},
                {"role",
                 [](auto &way) { return std::string(is_standby(way) ? "standby" : "primary"); }},
                {"sibling", sibling_text},
                {"group", TABLE_MEMBER(aps_id)},
                {"in_use", use_text},
                {"+control_word", TABLE_MEMBER(c_word)},
                {"+mode", TABLE_MEMBER(pw_mode)},
                {"+index", TABLE_MEMBER(pw_index)},
                {"+ac_nhid", TABLE_MEMBER(ac_nhid)},
                {"+pw_nhid", TABLE_MEMBER(pw_nhid)},
                {"+path_nhid", TABLE_MEMBER(path_nhid)},
                {"+path_id", TABLE_MEMBER(path_id)},
                {"+sdk_result", TABLE_MEMBER(sdk_result)}},
    .in_chip =
        [](auto &way, Wanted &wanted) {
            compare_service(way, name_of(way), missing_of(way, wanted.reading), wanted);
            want_pseudowire(way, wanted);
        },
    .waits_for = [](auto &way, auto &reading) { return waits_for(way, reading); },
    .why =
        [](auto &way, auto &reading) {
            return name_of(way) + " sends label " + std::to_string(way.out_label) + ": " +
                   label_why(waits_for(way, reading)) + "\n";
        },
};

const TableOf<dpm_vpws_vc_ilm> vpws_in{
    .each = walk<dpm_api_get_vpws_vc_ilm_first, dpm_api_get_vpws_vc_ilm_next>,
    .key = [](auto &way) { return name_of(way); },
    .places = [](auto &way) { return place_of(way, way.vpn_id); },
    .own =
        [](auto &way, auto &reading) {
            way.node = {};
            way.pend = {};
            way.in_ifindex = leads(reading, way.in_ifname, way.in_ifindex);
            way.out_ifindex = leads(reading, way.out_ifname, way.out_ifindex);
        },
    .columns = {{"vc_id", TABLE_MEMBER(vpn_id)},
                {"peer", [](auto &way) { return peer_text(way); }},
                {"state", service_state<dpm_vpws_vc_ilm>},
                {"label", TABLE_MEMBER(in_label)},
                {"interface", TABLE_MEMBER(in_ifname)}},
    .in_chip =
        [](auto &way, Wanted &wanted) {
            compare_way_in(way, way_out_of(way, wanted.reading), name_of(way), wanted);
        },
    .waits_for = [](auto &way, auto &reading) { return waits_for(way, reading); },
    .why =
        [](auto &way, auto &reading) {
            return name_of(way) + " comes with label " + std::to_string(way.in_label) + ": " +
                   label_why(waits_for(way, reading)) + "\n";
        },
};

} // namespace chassis::tables
