// Virtual bridges (VPLS), their circuits, and the ways out and in of their pseudowires.
//
// A bridge is in the chip unless that refuses it; a circuit while its bridge is and it has a port;
// a pseudowire while its bridge is, both its ways are there, and a label path to its peer is.

#include "chassis/tables/l2vpn.h"

namespace chassis::tables {

namespace {

struct Bridges {
    using Key = std::pair<std::uint32_t, AddressBytes>;

    explicit Bridges(const Reading &);

    template <class Entries, class Key> static auto find(const Entries &entries, const Key &key) {
        const auto found = entries.find(key);
        return found == entries.end() ? nullptr : found->second;
    }

    std::map<std::uint32_t, const dpm_vpls_vsi *> by_id;
    std::map<Key, const dpm_vpls_vc_fib *> out;
    std::map<Key, const dpm_vpls_vc_ilm *> in;
};

Bridges::Key key_of(const auto &way) {
    return {way.vpls_id, address_bytes(DPM_FAMILY_IPV4, way.vc_peer)};
}

Bridges::Bridges(const Reading &) {
    vpls.each([this](const dpm_vpls_vsi &bridge) { by_id[bridge.vpls_id] = &bridge; });
    vpls_out.each([this](const dpm_vpls_vc_fib &way) { out[key_of(way)] = &way; });
    vpls_in.each([this](const dpm_vpls_vc_ilm &way) { in[key_of(way)] = &way; });
}

std::string name_of(std::uint32_t vpls_id) {
    return "vpls " + std::to_string(vpls_id);
}
std::string name_of(const dpm_vpls_vc_fib &way) {
    return "pseudowire of " + name_of(way.vpls_id) + " to " + peer_text(way);
}
std::string name_of(const dpm_vpls_vc_ilm &way) {
    return "pseudowire of " + name_of(way.vpls_id) + " from " + peer_text(way);
}

std::string waits_for(const dpm_vpls_vsi &bridge) {
    return is_programmed(bridge) ? "" : refusal_of(bridge);
}

std::string missing_bridge(std::uint32_t vpls_id, const Reading &reading) {
    const dpm_vpls_vsi *const bridge = Bridges::find(reading.made<Bridges>().by_id, vpls_id);
    if (!bridge)
        return name_of(vpls_id);
    const std::string lacks = waits_for(*bridge);
    return lacks.empty() ? "" : name_of(vpls_id) + ", which waits for " + lacks;
}

std::string missing_of(const dpm_vpls_acif &circuit, const Reading &reading) {
    std::string missing = missing_bridge(circuit.vpls_id, reading);
    if ((is_programmed(circuit) ? +circuit.port : port_behind(circuit.ifindex)) == 0)
        add_missing(missing, "a port of " + std::string(circuit.ifname));
    return missing;
}

std::string missing_of(const dpm_vpls_vc_fib &way, const Reading &reading) {
    std::string missing = missing_bridge(way.vpls_id, reading);
    if (!Bridges::find(reading.made<Bridges>().in, key_of(way)))
        add_missing(missing, "its way in");
    add_missing(missing, missing_path(peer_of(way), reading));
    return missing;
}

std::string waits_for(const auto &entry, const Reading &reading) {
    if (is_programmed(entry))
        return "";
    const std::string missing = missing_of(entry, reading);
    return missing.empty() ? refusal_of(entry) : missing;
}

const dpm_vpls_vc_fib *way_out_of(const dpm_vpls_vc_ilm &way, const Reading &reading) {
    return Bridges::find(reading.made<Bridges>().out, key_of(way));
}

std::string waits_for_way_out(const dpm_vpls_vc_ilm &way, const Reading &reading) {
    const dpm_vpls_vc_fib *const out = way_out_of(way, reading);
    return out ? waits_for(*out, reading) : "its way out";
}

void want_bridge(const dpm_vpls_vsi &bridge, Wanted &wanted) {
    if (is_programmed(bridge))
        wanted.want<kinds::vpls>(bridge.vpls_id, +bridge.fid);
    else if (bridge.sdk_result == 0)
        wanted.differ(name_of(bridge.vpls_id) + " waits for nothing");
}

void want_circuit(const dpm_vpls_acif &circuit, Wanted &wanted) {
    compare_need(circuit, "circuit " + std::string(circuit.ifname),
                 missing_of(circuit, wanted.reading), wanted);
    if (is_programmed(circuit))
        wanted.want<kinds::vpls_ac>(
            {circuit.port, circuit.port_vlan, circuit.svlan_id, circuit.cvlan_id},
            chip::VplsAc{circuit.vpls_id, circuit.vlan_action, circuit.svlan_tpid, circuit.nhid,
                         circuit.logic_port});
}

void want_pseudowire(const dpm_vpls_vc_fib &way, Wanted &wanted) {
    compare_service(way, name_of(way), missing_of(way, wanted.reading), wanted);
    const dpm_vpls_vc_ilm *const in = Bridges::find(wanted.reading.made<Bridges>().in, key_of(way));
    if (is_programmed(way) && in)
        wanted.want<kinds::vpls_pw>({way.vpls_id, chip_peer(way)},
                                    chip::VplsPw{way.vpls_id, wire_of(way, in->in_label),
                                                 way.is_spoke, way.nhid, way.logic_port});
}

std::vector<Place> place_of(const auto &way) {
    return {{0, peer_of(way), way.vpls_id}};
}

} // namespace

const TableOf<dpm_vpls_vsi> vpls{
    .each = walk<dpm_api_get_vpls_vsi_first, dpm_api_get_vpls_vsi_next>,
    .key = [](auto &bridge) { return name_of(bridge.vpls_id); },
    .places =
        [](auto &bridge) {
            return std::vector<Place>{{0, {}, bridge.vpls_id}};
        },
    .own = [](auto &bridge, auto &) { bridge.node = {}; },
    .columns = {{"vpls", TABLE_MEMBER(vpls_id)},
                {"state", service_state<dpm_vpls_vsi>},
                {"fid", TABLE_MEMBER(fid)},
                {"+sdk_result", TABLE_MEMBER(sdk_result)}},
    .in_chip = want_bridge,
    .waits_for = [](auto &bridge) { return waits_for(bridge); },
    .why =
        [](auto &bridge) {
            return name_of(bridge.vpls_id) + ": " + label_why(waits_for(bridge)) + "\n";
        },
};

const TableOf<dpm_vpls_acif> vpls_ac{
    .each = walk<dpm_api_get_vpls_acif_first, dpm_api_get_vpls_acif_next>,
    .key = [](auto &circuit) { return std::string("dev ") + circuit.ifname; },
    .places =
        [](auto &circuit) {
            return std::vector<Place>{{0, {}, circuit.vpls_id}};
        },
    .own =
        [](auto &circuit, auto &reading) {
            circuit.node = {};
            circuit.ifindex = leads(reading, circuit.ifname, circuit.ifindex);
        },
    .columns = {{"interface", TABLE_MEMBER(ifname)},
                {"vpls", TABLE_MEMBER(vpls_id)},
                {"state", service_state<dpm_vpls_acif>},
                {"port", TABLE_MEMBER(port)},
                {"svlan", TABLE_MEMBER(svlan_id)},
                {"cvlan", TABLE_MEMBER(cvlan_id)},
                {"+tpid", TABLE_MEMBER(svlan_tpid)},
                {"+action", TABLE_MEMBER(vlan_action)},
                {"+vlan", TABLE_MEMBER(port_vlan)},
                {"+nhid", TABLE_MEMBER(nhid)},
                {"+logic_port", TABLE_MEMBER(logic_port)},
                {"+sdk_result", TABLE_MEMBER(sdk_result)}},
    .in_chip = want_circuit,
    .waits_for = [](auto &circuit, auto &reading) { return waits_for(circuit, reading); },
    .why =
        [](auto &circuit, auto &reading) {
            return std::string(circuit.ifname) + " is a circuit of " + name_of(circuit.vpls_id) +
                   ": " + label_why(waits_for(circuit, reading)) + "\n";
        },
};

const TableOf<dpm_vpls_vc_fib> vpls_out{
    .each = walk<dpm_api_get_vpls_vc_fib_first, dpm_api_get_vpls_vc_fib_next>,
    .key = [](auto &way) { return name_of(way); },
    .places = [](auto &way) { return place_of(way); },
    .own =
        [](auto &way, auto &reading) {
            way.node = {};
            way.pend = {};
            way.nw_ifindex = leads(reading, way.out_ifname, way.nw_ifindex);
        },
    .columns = {{"vpls", TABLE_MEMBER(vpls_id)},
                {"peer", [](auto &way) { return peer_text(way); }},
                {"state", service_state<dpm_vpls_vc_fib>},
                {"label", TABLE_MEMBER(out_label)},
                {"spoke", [](auto &way) { return yes_or_no(way.is_spoke != 0); }},
                {"+vc_id", TABLE_MEMBER(vc_id)},
                {"+control_word", TABLE_MEMBER(c_word)},
                {"+mode", TABLE_MEMBER(pw_mode)},
                {"+index", TABLE_MEMBER(pw_index)},
                {"+nhid", TABLE_MEMBER(nhid)},
                {"+logic_port", TABLE_MEMBER(logic_port)},
                {"+path_nhid", TABLE_MEMBER(path_nhid)},
                {"+path_id", TABLE_MEMBER(path_id)},
                {"+sdk_result", TABLE_MEMBER(sdk_result)}},
    .in_chip = want_pseudowire,
    .waits_for = [](auto &way, auto &reading) { return waits_for(way, reading); },
    .why =
        [](auto &way, auto &reading) {
            return name_of(way) + " sends label " + std::to_string(way.out_label) + ": " +
                   label_why(waits_for(way, reading)) + "\n";
        },
};

const TableOf<dpm_vpls_vc_ilm> vpls_in{
    .each = walk<dpm_api_get_vpls_vc_ilm_first, dpm_api_get_vpls_vc_ilm_next>,
    .key = [](auto &way) { return name_of(way); },
    .places = [](auto &way) { return place_of(way); },
    .own =
        [](auto &way, auto &reading) {
            way.node = {};
            way.pend = {};
            way.in_ifindex = leads(reading, way.in_ifname, way.in_ifindex);
        },
    .columns = {{"vpls", TABLE_MEMBER(vpls_id)},
                {"peer", [](auto &way) { return peer_text(way); }},
                {"state", service_state<dpm_vpls_vc_ilm>},
                {"label", TABLE_MEMBER(in_label)},
                {"interface", TABLE_MEMBER(in_ifname)}},
    .in_chip =
        [](auto &way, Wanted &wanted) {
            compare_way_in(way, way_out_of(way, wanted.reading), name_of(way), wanted);
        },
    .waits_for = waits_for_way_out,
    .why =
        [](auto &way, auto &reading) {
            return name_of(way) + " comes with label " + std::to_string(way.in_label) + ": " +
                   label_why(waits_for_way_out(way, reading)) + "\n";
        },
};

} // namespace chassis::tables
