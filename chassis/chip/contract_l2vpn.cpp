// The contract functions of layer-2 services: pseudowires, their redundancy, virtual bridges.
//
// Two records of the routing suite may ask for the same incoming label, the same frames or the same
// place in a group: the second is refused, and that is no mistake.
#include "chassis/chip/contract.h"

namespace chassis::chip {

namespace {

using Outcome = Chip::Outcome;

template <class Request> bool has_ipv4_peer(const Request &request) {
    return std::all_of(request.peer + 4, std::end(request.peer),
                       [](std::uint8_t byte) { return byte == 0; });
}

template <class Request> Wire wire_of(const Request &request) {
    return {request.in_label,
            request.out_label,
            {request.nhid, request.tunnel_id},
            request.control_word,
            request.mode};
}

// Whether something else has the label; `own` is the pseudowire of this kind that may have it.
template <class Kind>
bool is_label_taken(const Chip &chip, std::uint32_t label, const Pseudowire &own) {
    const auto is_of_another = [&]<class Other>(Other) {
        return chip.beside<Other>().in_labels.find_if(label, [&](const Pseudowire &key) {
            return !std::is_same_v<Other, Kind> || key != own;
        }) != nullptr;
    };
    return chip.held<kinds::ilm>().contains(label) || is_of_another(kinds::vpws()) ||
           is_of_another(kinds::vpls_pw());
}

// Whether other circuits match some of these frames; of point-to-point ones those that count.
bool are_frames_taken(const Chip &chip, const std::vector<Match> &matches, const auto &counts) {
    return std::ranges::any_of(matches, [&](const Match &match) {
        return chip.beside<kinds::vpws>().find_clash(match, counts) != nullptr ||
               chip.beside<kinds::vpls_ac>().find_clash(match, [](auto) { return true; });
    });
}

// A request for what an object names was refused on order: that stays in use.
template <class Kind> void excuse_used(Chip &chip, const typename Kind::Key &key) {
    const auto excuse = [&]<class Used>(Used, const auto &name) {
        if constexpr (!Used::may_differ)
            chip.excuse_named<Used>(name);
    };
    if (const auto found = chip.held<Kind>().find(key); found != chip.held<Kind>().end())
        Kind::uses(found->second,
                   [&]<class... Used>(Use<Used...> use) { (excuse(Used(), use.key), ...); });
}

// --- point-to-point pseudowires --------------------------------------------------------------

Pseudowire key_of(const dal_vpws_pw &request) {
    return {request.vc_id, ipv4(request.peer)};
}

VlanSet vlan_set(const std::uint16_t *vlans, std::uint32_t count) {
    VlanSet set;
    for (const std::uint16_t vlan : std::span(vlans, count))
        set.add(vlan);
    return set;
}

struct VpwsRequest : Operation {
    VpwsRequest(const void *ac, const void *pw, std::uint32_t role, VlanSet vlans = {})
        : pw(*static_cast<const dal_vpws_pw *>(pw)), key(key_of(this->pw)), value{} {
        const auto &circuit = *static_cast<const dal_vpws_ac *>(ac);
        value.circuit = {circuit.port,        circuit.vlan,      circuit.svlan,
                         circuit.svlan_tpid,  circuit.cvlan,     circuit.action_vlan,
                         circuit.vlan_action, circuit.match_rule};
        value.wire = wire_of(this->pw);
        value.role = role;
        value.vlans = std::move(vlans);
    }
    std::string text() const override {
        return kinds::vpws::key_text(key) + " " + kinds::vpws::value_text(value);
    }
    // What stands against it beside what it would replace.
    Outcome objection(const Chip &chip) const;
    bool is_same_group(const Chip &chip, const Pseudowire &other) const {
        const auto found = chip.held<kinds::vpws>().find(other);
        return value.aps_id != 0 && found != chip.held<kinds::vpws>().end() &&
               found->second.aps_id == value.aps_id;
    }
    bool is_place_taken(const Chip &chip) const {
        const auto has_role = [&](const Pseudowire &other) {
            return other != key && chip.held<kinds::vpws>().at(other).role == value.role;
        };
        return value.aps_id != 0 &&
               chip.beside<kinds::vpws>().members.find_if(value.aps_id, has_role) != nullptr;
    }
    const dal_vpws_pw &pw;
    const Pseudowire key;
    Vpws value;
};

Outcome VpwsRequest::objection(const Chip &chip) const {
    if (!has_ipv4_peer(pw))
        return mistake("a malformed ", kinds::vpws::name);
    if (!kinds::vpws::is_valid(key, value))
        return {out_of_range};
    if (const auto name = chip.lacking<kinds::vpws>(value); !name.empty())
        return mistake("no such ", name);
    const auto is_another = [&](const Pseudowire &other) {
        return other != key && !is_same_group(chip, other);
    };
    const bool is_taken = is_label_taken<kinds::vpws>(chip, value.wire.in_label, key) ||
                          is_place_taken(chip) ||
                          are_frames_taken(chip, kinds::vpws::matches(key, value), is_another);
    return {is_taken ? already_taken : 0};
}

struct PutVpws : VpwsRequest {
    PutVpws(const void *ac, const void *pw, Index *ac_nhid, Index *pw_nhid, Index *aps_id,
            std::uint32_t role, VlanSet vlans = {})
        : VpwsRequest(ac, pw, role, std::move(vlans)), ac_nhid(ac_nhid), pw_nhid(pw_nhid),
          aps_id(aps_id) {}
    Outcome act(Chip &chip, bool again) override;
    bool makes_group() const { return pw.is_protected != 0 && *aps_id == 0; }
    void hand_out(Chip &chip) const override {
        *ac_nhid = chip.new_index();
        *pw_nhid = chip.new_index();
        if (makes_group())
            *aps_id = chip.new_index();
    }
    Index *const ac_nhid, *const pw_nhid, *const aps_id;
};

Outcome PutVpws::act(Chip &chip, bool again) {
    const auto found = chip.held<kinds::vpws>().find(key);
    const bool is_there = found != chip.held<kinds::vpws>().end();
    if (again)
        return is_there && found->second.is_same_service(value)
                   ? Outcome()
                   : mistake("no such ", kinds::vpws::name, " to program again");
    if (is_there)
        return mistake("the ", kinds::vpws::name, " is there");
    value.aps_id = pw.is_protected != 0 ? *aps_id : 0;
    if (Outcome outcome = objection(chip); outcome.code != 0)
        return outcome;
    const bool is_first = makes_group();
    hand_out(chip);
    value.ac_nhid = *ac_nhid, value.pw_nhid = *pw_nhid;
    value.aps_id = pw.is_protected != 0 ? *aps_id : 0;
    if (is_first)
        chip.keep<kinds::pw_group>(value.aps_id, DAL_PW_PRIMARY);
    return chip.put<kinds::vpws>(key, value);
}

struct RenewVpws : VpwsRequest {
    RenewVpws(const void *ac, const void *pw, Index *pw_nhid, Index *aps_id, std::uint32_t role)
        : VpwsRequest(ac, pw, role), pw_nhid(pw_nhid), aps_id(aps_id) {}
    Outcome act(Chip &chip, bool again) override;
    void excuse(Chip &chip) const override { excuse_used<kinds::vpws>(chip, key); }
    Index *const pw_nhid, *const aps_id;
};

Outcome RenewVpws::act(Chip &chip, bool again) {
    const auto found = chip.held<kinds::vpws>().find(key);
    if (found == chip.held<kinds::vpws>().end())
        return mistake("no such ", kinds::vpws::name);
    const Vpws &old = found->second;
    value.ac_nhid = old.ac_nhid, value.pw_nhid = old.pw_nhid, value.aps_id = old.aps_id;
    value.vlans = old.vlans;
    if (again && old != value)
        return mistake("the ", kinds::vpws::name, " is another");
    if (Outcome outcome = objection(chip); outcome.code != 0)
        return outcome;
    if (old != value)
        chip.keep<kinds::vpws>(key, value);
    *pw_nhid = value.pw_nhid, *aps_id = value.aps_id;
    return {};
}

struct DropVpws : Drop<kinds::vpws> {
    explicit DropVpws(const void *request, Arguments more = {})
        : Drop(key_of(*static_cast<const dal_vpws_pw *>(request)), {}, std::move(more)) {}
    Outcome act(Chip &chip, bool again) override {
        const auto found = chip.held<kinds::vpws>().find(key);
        const Index group =
            found != chip.held<kinds::vpws>().end() ? found->second.aps_id : Index(0);
        Outcome outcome = Drop::act(chip, again);
        if (outcome.code == 0 && group != 0 && !chip.users<kinds::pw_group>().contains(group))
            return chip.drop<kinds::pw_group>(group);
        return outcome;
    }
    void excuse(Chip &chip) const override { excuse_used<kinds::vpws>(chip, key); }
};

struct SwitchGroup : Put<kinds::pw_group> {
    using Put::Put;
    Outcome act(Chip &chip, bool again) override {
        const auto found = chip.held<kinds::pw_group>().find(key);
        if (found == chip.held<kinds::pw_group>().end())
            return mistake("no such ", kinds::pw_group::name);
        if (again && found->second != value)
            return mistake("the ", kinds::pw_group::name, " uses another");
        return Put::act(chip, again);
    }
};

// --- virtual bridges -------------------------------------------------------------------------

bool is_well_formed(const dal_vpls_ac &request) {
    return request.zero == 0;
}
VplsCircuit key_of(const dal_vpls_ac &request) {
    return {request.port, request.vlan, request.svlan, request.cvlan};
}
VplsAc value_of(const dal_vpls_ac &request) {
    return {request.vpls_id, request.vlan_action, request.svlan_tpid, 0, 0};
}
bool is_taken(const Chip &chip, const VplsCircuit &key, const VplsAc &value) {
    return are_frames_taken(chip, kinds::vpls_ac::matches(key, value), [](auto) { return true; });
}
// A delete names the same circuit.
bool is_named(const VplsAc &held, const VplsAc &value) {
    return held.vpls_id == value.vpls_id;
}

bool is_well_formed(const dal_vpls_pw &request) {
    return has_ipv4_peer(request);
}
Pseudowire key_of(const dal_vpls_pw &request) {
    return {request.vpls_id, ipv4(request.peer)};
}
VplsPw value_of(const dal_vpls_pw &request) {
    return {request.vpls_id, wire_of(request), request.is_spoke, 0, 0};
}
bool is_taken(const Chip &chip, const Pseudowire &key, const VplsPw &value) {
    return is_label_taken<kinds::vpls_pw>(chip, value.wire.in_label, key);
}
bool is_named(const VplsPw &, const VplsPw &) {
    return true;
}

// A circuit or a pseudowire of a virtual bridge.
template <class Kind, class Request> struct PutPort : Operation {
    PutPort(const void *request, Index *nhid, Index *logic_port)
        : request(*static_cast<const Request *>(request)), key(key_of(this->request)),
          value(value_of(this->request)), nhid(nhid), logic_port(logic_port) {}
    Outcome act(Chip &chip, bool again) override;
    std::string text() const override {
        return Kind::key_text(key) + " " + Kind::value_text(value);
    }
    void hand_out(Chip &chip) const override {
        *nhid = chip.new_index();
        *logic_port = chip.new_index();
    }
    const Request &request;
    const typename Kind::Key key;
    typename Kind::Value value;
    Index *const nhid, *const logic_port;
};

template <class Kind, class Request> Outcome PutPort<Kind, Request>::act(Chip &chip, bool again) {
    if (!is_well_formed(request))
        return mistake("a malformed ", Kind::name);
    if (!Kind::is_valid(key, value))
        return {out_of_range};
    const auto found = chip.held<Kind>().find(key);
    const bool is_there = found != chip.held<Kind>().end();
    if (is_there)
        value.nhid = found->second.nhid, value.logic_port = found->second.logic_port;
    if (again)
        return is_there && found->second == value
                   ? Outcome()
                   : mistake("no such ", Kind::name, " to program again");
    if (const auto name = chip.lacking<Kind>(value); !name.empty())
        return mistake("no such ", name);
    if (is_there && !Kind::is_ambiguous)
        return mistake("the ", Kind::name, " is there");
    if (is_there || is_taken(chip, key, value))
        return {already_taken};
    hand_out(chip);
    value.nhid = *nhid, value.logic_port = *logic_port;
    return chip.put<Kind>(key, value);
}

template <class Kind, class Request> struct DropPort : Drop<Kind> {
    explicit DropPort(const void *request)
        : Drop<Kind>(key_of(*static_cast<const Request *>(request))),
          named(value_of(*static_cast<const Request *>(request))) {}
    Outcome act(Chip &chip, bool again) override {
        const auto found = chip.held<Kind>().find(this->key);
        if (found != chip.held<Kind>().end() && !is_named(found->second, named))
            return mistake("the ", Kind::name, " is another");
        return Drop<Kind>::act(chip, again);
    }
    void excuse(Chip &chip) const override { excuse_used<Kind>(chip, this->key); }
    const typename Kind::Value named;
};

} // namespace
} // namespace chassis::chip

using namespace chassis::chip;

// --- point-to-point pseudowires --------------------------------------------------------------

int dal_driver_vpws_entry_add(const void *ac, const void *pw, uint32_t *ac_nhid, uint32_t *pw_nhid,
                              uint32_t *aps_id, uint32_t value, uint32_t slot_bits) {
    return answer<Function::vpws_entry_add>(PutVpws(ac, pw, ac_nhid, pw_nhid, aps_id, value), ac,
                                            pw, ac_nhid, pw_nhid, aps_id, value, slot_bits);
}

int dal_driver_vpws_entry_del(const void *request, uint32_t value, uint32_t slot_bits) {
    return answer<Function::vpws_entry_del>(DropVpws(request), request, value, slot_bits);
}

int dal_driver_vpws_entry_update(const void *ac, const void *pw, uint32_t *pw_nhid,
                                 uint32_t *aps_id, uint32_t value, uint32_t slot_bits) {
    return answer<Function::vpws_entry_update>(RenewVpws(ac, pw, pw_nhid, aps_id, value), ac, pw,
                                               pw_nhid, aps_id, value, slot_bits);
}

int dal_driver_vpws_entry_add_test(const void *ac, const void *pw, uint32_t *ac_nhid,
                                   uint32_t *pw_nhid, uint32_t *aps_id, uint32_t value,
                                   const uint16_t *vlans, uint32_t vlan_count, uint32_t slot_bits) {
    return answer<Function::vpws_entry_add_test>(
        PutVpws(ac, pw, ac_nhid, pw_nhid, aps_id, value, vlan_set(vlans, vlan_count)), ac, pw,
        ac_nhid, pw_nhid, aps_id, value, vlans, vlan_count, slot_bits);
}

int dal_driver_vpws_entry_del_test(const void *request, uint32_t value, const uint16_t *vlans,
                                   uint32_t vlan_count, uint32_t slot_bits) {
    return answer<Function::vpws_entry_del_test>(DropVpws(request, {{"vlans", vlan_count}}),
                                                 request, value, vlans, vlan_count, slot_bits);
}

int dal_driver_pw_group_switch(uint32_t group, uint32_t protect, uint32_t slot_bits) {
    return answer<Function::pw_group_switch>(SwitchGroup(group, protect), group, protect,
                                             slot_bits);
}

// --- virtual bridges -------------------------------------------------------------------------

int dal_driver_vpls_add(uint16_t vpls_id, uint32_t fid, uint32_t slot_bits) {
    return answer<Function::vpls_add>(Put<kinds::vpls>(vpls_id, fid), vpls_id, fid, slot_bits);
}

int dal_driver_vpls_del(uint16_t vpls_id, uint32_t slot_bits) {
    return answer<Function::vpls_del>(Drop<kinds::vpls>(vpls_id), vpls_id, slot_bits);
}

int dal_driver_vpls_ac_entry_add(const void *request, uint32_t *nhid, uint32_t *logic_port,
                                 uint32_t slot_bits) {
    return answer<Function::vpls_ac_entry_add>(
        PutPort<kinds::vpls_ac, dal_vpls_ac>(request, nhid, logic_port), request, nhid, logic_port,
        slot_bits);
}

int dal_driver_vpls_ac_entry_del(const void *request, uint32_t slot_bits) {
    return answer<Function::vpls_ac_entry_del>(DropPort<kinds::vpls_ac, dal_vpls_ac>(request),
                                               request, slot_bits);
}

int dal_driver_vpls_pw_entry_add(const void *request, uint32_t *nhid, uint32_t *logic_port,
                                 uint32_t slot_bits) {
    return answer<Function::vpls_pw_entry_add>(
        PutPort<kinds::vpls_pw, dal_vpls_pw>(request, nhid, logic_port), request, nhid, logic_port,
        slot_bits);
}

int dal_driver_vpls_pw_entry_del(const void *request, uint32_t slot_bits) {
    return answer<Function::vpls_pw_entry_del>(DropPort<kinds::vpls_pw, dal_vpls_pw>(request),
                                               request, slot_bits);
}
