// The contract functions of label entries: prefixes that labels lead to, and incoming labels.
//
// A request outside the chip's ranges (labels of more than 20 bits, lengths past the family's) is
// refused; one that no library may make (bytes that must be zero, a delete that names something
// else than what stands) is a mistake.
#include "chassis/chip/contract.h"

namespace chassis::chip {

namespace {

using Outcome = Chip::Outcome;

Address prefix_of(std::uint32_t vrf, std::uint8_t family, std::uint8_t length,
                  const std::uint8_t *address) {
    return {std::int32_t(vrf), family, address_bytes(family, address), length};
}

template <class Request> LabelHop hop_of(const Request &request) {
    return {request.port_type, request.port_id, request.vlan, mac_of(request.mac)};
}

LabelRule rule_of(const dal_label &label) {
    return {label.ttl_mode, label.ttl, label.exp_type, label.exp};
}

template <class Request> void remember(Chip &chip, const Request &request) {
    const auto *const first = reinterpret_cast<const std::uint8_t *>(&request);
    chip.label_record.assign(first, first + sizeof request);
}

template <std::size_t Count> bool are_zero(const std::uint8_t (&bytes)[Count]) {
    return std::ranges::all_of(bytes, [](std::uint8_t byte) { return byte == 0; });
}
template <std::size_t Count> bool are_clean(const dal_label (&labels)[Count]) {
    return std::ranges::all_of(labels, [](const dal_label &label) { return label.zero == 0; });
}

// --- prefixes --------------------------------------------------------------------------------

FtnKey key_of(const dal_ftn_request &request) {
    FtnKey key{};
    key.tunnel =
        prefix_of(0, request.tunnel_family, request.tunnel_prefix_len, request.tunnel_address);
    if (request.vrf != 0)
        key.vpn =
            prefix_of(request.vrf, request.vpn_family, request.vpn_prefix_len, request.vpn_address);
    key.tunnel_label = request.labels[DAL_FTN_TUNNEL].label;
    key.vpn_label = request.labels[DAL_FTN_VPN].label;
    key.hop = hop_of(request);
    return key;
}

bool is_well_formed(const dal_ftn_request &request) {
    return request.flag == 1 && are_zero(request.zero1) && are_zero(request.zero2) &&
           are_clean(request.labels);
}

// Tunnels stand in front of the VPN prefixes that lead to them.
bool has_tunnel(const Chip &chip, const FtnKey &key) {
    const auto &held = chip.held<kinds::ftn>();
    const auto found = held.lower_bound(FtnKey{key.tunnel, {}, 0, 0, {}});
    return found != held.end() && found->first.tunnel == key.tunnel && found->first.vpn.family == 0;
}

struct PutFtn : Operation {
    PutFtn(const void *request, Index *nhid, Index *tunnel_id)
        : request(*static_cast<const dal_ftn_request *>(request)),
          key(key_of(this->request)), value{0, 0, rule_of(this->request.labels[DAL_FTN_TUNNEL]),
                                            rule_of(this->request.labels[DAL_FTN_VPN])},
          nhid(nhid), tunnel_id(tunnel_id) {}
    Outcome act(Chip &chip, bool again) override {
        remember(chip, request);
        if (!is_well_formed(request))
            return mistake("a malformed ", kinds::ftn::name);
        if (!kinds::ftn::is_valid(key, value))
            return {out_of_range};
        if (key.vpn.family != 0 && !has_tunnel(chip, key))
            return mistake("no such ", "tunnel");
        const auto found = chip.held<kinds::ftn>().find(key);
        if (again)
            return found != chip.held<kinds::ftn>().end()
                       ? Outcome()
                       : mistake("no such ", kinds::ftn::name, " to program again");
        if (found == chip.held<kinds::ftn>().end()) {
            hand_out(chip);
            value.nhid = *nhid, value.tunnel_id = *tunnel_id;
        }
        return chip.put<kinds::ftn>(key, value);
    }
    std::string text() const override {
        return kinds::ftn::key_text(key) + " " + kinds::ftn::value_text(value);
    }
    void hand_out(Chip &chip) const override {
        *nhid = chip.new_index();
        *tunnel_id = chip.new_index();
    }
    const dal_ftn_request &request;
    const FtnKey key;
    Ftn value;
    Index *const nhid, *const tunnel_id;
};

struct DropFtn : Drop<kinds::ftn> {
    explicit DropFtn(const void *request)
        : Drop(key_of(*static_cast<const dal_ftn_request *>(request))),
          request(*static_cast<const dal_ftn_request *>(request)) {}
    Outcome act(Chip &chip, bool again) override {
        remember(chip, request);
        return Drop::act(chip, again);
    }
    const dal_ftn_request &request;
};

// --- incoming labels -------------------------------------------------------------------------

std::uint32_t in_label(const dal_ilm_request &request) {
    const bool is_vpn = request.label_type == DAL_ILM_VPN_LABEL;
    return request.labels[is_vpn ? DAL_ILM_VPN_IN : DAL_ILM_TUNNEL_IN].label;
}

Ilm value_of(const dal_ilm_request &request) {
    const bool is_vpn = request.label_type == DAL_ILM_VPN_LABEL;
    Ilm value{};
    value.lookup = request.lookup;
    value.label_type = request.label_type;
    value.action = request.action;
    value.out_label = request.labels[is_vpn ? DAL_ILM_VPN_OUT : DAL_ILM_TUNNEL_OUT].label;
    value.fec = prefix_of(request.vrf, request.family, request.prefix_len, request.address);
    value.other = request.address_family;
    value.hop = hop_of(request);
    value.rule = rule_of(request.labels[DAL_ILM_TUNNEL_IN]);
    return value;
}

// The slots of the other kind of label are empty.
bool is_well_formed(const dal_ilm_request &request) {
    const bool is_vpn = request.label_type == DAL_ILM_VPN_LABEL;
    const unsigned unused[] = {is_vpn ? DAL_ILM_TUNNEL_IN : DAL_ILM_VPN_IN,
                               is_vpn ? DAL_ILM_TUNNEL_OUT : DAL_ILM_VPN_OUT};
    return request.zero1 == 0 && are_zero(request.zero2) && are_clean(request.labels) &&
           std::ranges::all_of(
               unused, [&](unsigned slot) { return request.labels[slot].label == DAL_NO_LABEL; });
}

bool is_label_of_pseudowire(const Chip &chip, std::uint32_t label) {
    return chip.beside<kinds::vpws>().in_labels.find(label) != nullptr ||
           chip.beside<kinds::vpls_pw>().in_labels.find(label) != nullptr;
}

struct PutIlm : Operation {
    PutIlm(const void *request, Index *nhid, Index *tunnel_id)
        : request(*static_cast<const dal_ilm_request *>(request)), label(in_label(this->request)),
          value(value_of(this->request)), nhid(nhid), tunnel_id(tunnel_id) {}
    Outcome act(Chip &chip, bool again) override {
        remember(chip, request);
        if (!is_well_formed(request))
            return mistake("a malformed ", kinds::ilm::name);
        if (!kinds::ilm::is_valid(label, value))
            return {out_of_range};
        const auto found = chip.held<kinds::ilm>().find(label);
        const bool is_there = found != chip.held<kinds::ilm>().end();
        if (again)
            return is_there && found->second.is_same_path(value)
                       ? Outcome()
                       : mistake("no such ", kinds::ilm::name, " to program again");
        if (!is_there && is_label_of_pseudowire(chip, label))
            return {already_taken};
        if (!is_there) {
            hand_out(chip);
            value.nhid = *nhid, value.tunnel_id = *tunnel_id;
        }
        return chip.put<kinds::ilm>(label, value);
    }
    std::string text() const override {
        return kinds::ilm::key_text(label) + " " + kinds::ilm::value_text(value);
    }
    void hand_out(Chip &chip) const override {
        *nhid = chip.new_index();
        *tunnel_id = chip.new_index();
    }
    const dal_ilm_request &request;
    const std::uint32_t label;
    Ilm value;
    Index *const nhid, *const tunnel_id;
};

struct DropIlm : Operation {
    explicit DropIlm(const void *request)
        : request(*static_cast<const dal_ilm_request *>(request)), label(in_label(this->request)),
          value(value_of(this->request)) {}
    Outcome act(Chip &chip, bool) override {
        remember(chip, request);
        const auto found = chip.held<kinds::ilm>().find(label);
        if (found != chip.held<kinds::ilm>().end() && !found->second.is_same_path(value))
            return mistake("the ", kinds::ilm::name, " is another");
        return chip.drop<kinds::ilm>(label);
    }
    std::string text() const override { return kinds::ilm::key_text(label); }
    const dal_ilm_request &request;
    const std::uint32_t label;
    const Ilm value;
};

} // namespace
} // namespace chassis::chip

using namespace chassis::chip;

int dal_driver_mpls_ftn_add(const void *request, uint32_t *nhid, uint32_t *tunnel_id,
                            uint32_t slot_bits) {
    return answer<Function::mpls_ftn_add>(PutFtn(request, nhid, tunnel_id), request, nhid,
                                          tunnel_id, slot_bits);
}

int dal_driver_mpls_ftn_del(const void *request, uint32_t slot_bits) {
    return answer<Function::mpls_ftn_del>(DropFtn(request), request, slot_bits);
}

int dal_driver_mpls_ilm_add(const void *request, uint32_t *nhid, uint32_t *tunnel_id,
                            uint32_t slot_bits) {
    return answer<Function::mpls_ilm_add>(PutIlm(request, nhid, tunnel_id), request, nhid,
                                          tunnel_id, slot_bits);
}

int dal_driver_mpls_ilm_del(const void *request, uint32_t slot_bits) {
    return answer<Function::mpls_ilm_del>(DropIlm(request), request, slot_bits);
}
