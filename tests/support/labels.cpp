// Label switching as the routing suite tells it to the master: commands become requests.

#include "support/shelf.h"

#include <algorithm>
#include <cstring>

namespace rig {

using namespace chassis;

namespace {

// Where a word of a command leads, or what it says; what is left out is usual.
class Told {
public:
    Told(const Card &card, const Words &words) : card_(card), words_(words) {}
    unsigned number(const char *word, const char *otherwise) const {
        return unsigned(std::stoul(word_behind(words_, word, otherwise)));
    }
    dpm_prefix prefix(const char *word, const char *otherwise) const {
        return prefix_of(word_behind(words_, word, otherwise));
    }
    bool has(const char *word) const { return std::ranges::count(words_, word) > 0; }
    std::uint32_t ifindex(const std::string &name) const { // or of an interface that may come
        if (std::isdigit(name[0]))
            return std::uint32_t(std::stoul(name));
        const auto interface = card_.suite.find(name);
        return interface ? interface->ifindex : 0;
    }
    std::uint32_t dev() const { return ifindex(word_behind(words_, "dev", "vlanif100")); }

private:
    const Card &card_;
    const Words &words_;
};

// The family of an address that is put.
std::uint8_t put(std::uint8_t (&to)[16], const dpm_prefix &prefix) {
    std::memcpy(to, prefix.address, sizeof to);
    return std::uint8_t(prefix.family);
}

dpm_ftn_msg ftn_of(const Told &told, const std::string &fec_text) {
    dpm_ftn_msg msg{};
    const dpm_prefix fec = prefix_of(fec_text);
    msg.family = put(msg.fec_prefix, fec);
    msg.prefixlen = std::uint8_t(fec.prefix_len);
    msg.vrf_id = told.number("vrf", "0");
    msg.tunnel_label = told.number("label", "1000");
    msg.vpn_label = msg.vrf_id ? msg.tunnel_label + 1 : 0;
    msg.tunnel_ip_type = put(msg.tunnel_nhop, told.prefix("via", "10.1.1.1"));
    msg.vpn_nhop_af = put(msg.vpn_nhop, msg.vrf_id ? told.prefix("remote", "10.9.0.1") : fec);
    msg.ifindex = told.dev();
    return msg;
}

dpm_ilm_msg ilm_of(const Told &told, const std::string &label) {
    dpm_ilm_msg msg{};
    const dpm_prefix fec = told.prefix("fec", "10.2.0.0/16");
    msg.family = put(msg.fec_prefix, fec);
    msg.prefixlen = std::uint8_t(fec.prefix_len);
    msg.in_label = unsigned(std::stoul(label));
    msg.vrf_id = told.number("vrf", "0");
    msg.swap_label = told.number("swap", "2001");
    msg.is_egress = told.has("egress");
    msg.tunnel_ip_type = put(msg.tunnel_nhop, told.prefix("via", "10.1.1.1"));
    msg.out_ifindex = told.dev();
    return msg;
}

dpm_mpls_if_msg mpls_if_of(const Told &told, const std::string &name) {
    dpm_mpls_if_msg msg{};
    msg.ifindex = told.ifindex(name);
    name.copy(msg.ifname, sizeof msg.ifname - 1);
    msg.label_space = told.number("space", "0");
    return msg;
}

} // namespace

bool Shelf::change_label(const Words &words) {
    const std::uint32_t oper = words[1] == "add" ? DPM_OPER_ADD : DPM_OPER_DEL;
    CardScope scope(master());
    const Told told(master(), words);
    if (words[0] == "ftn") {
        const dpm_ftn_msg msg = ftn_of(told, words[2]);
        return dpm_api_set_mpls_ftn_proc(&msg, oper) == 0;
    }
    if (words[0] == "ilm") {
        const dpm_ilm_msg msg = ilm_of(told, words[2]);
        return dpm_api_set_mpls_ilm_proc(&msg, oper) == 0;
    }
    const dpm_mpls_if_msg msg = mpls_if_of(told, words[2]);
    return (msg.ifindex != 0 || oper == DPM_OPER_DEL) && dpm_api_set_mpls_if_proc(&msg, oper) == 0;
}

} // namespace rig
