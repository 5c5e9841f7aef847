// What the observers of a card tell, as compact text.

#include "chassis/journal/journal.h"

#include "chassis/tables/text.h"

#include <algorithm>
#include <cstring>
#include <sstream>

namespace chassis::journal {

namespace {

constexpr std::size_t max_events = 20'000;

struct ChipWord {
    std::string_view request; // as the chip's journal names it
    std::string_view word;
};

constexpr ChipWord chip_words[] = {
    {"ipmc_group_create", "mroute+"},
    {"ipmc_group_destroy", "mroute-"},
    {"ipmc_member_add", "mport+"},
    {"ipmc_member_del", "mport-"},
    {"add_ip_nexthop", "nexthop+"},     {"del_ip_nexthop", "nexthop-"},
    {"add_ip_entry", "entry+"},         {"del_ip_entry", "entry-"},
    {"add_ecmp_nexthop", "group+"},     {"del_ecmp_nexthop", "group-"},
    {"update_ecmp_nexthop", "member"},  {"default_route_set", "default"},
    {"add_l3_intf", "interface+"},      {"delete_l3_intf", "interface-"},
    {"interface_vrf_set", "if-vrf"},    {"set_ecmp_hash_ctl", "hash"},
    {"set_arp_to_cpu", "arp"},          {"set_ospf_to_cpu_ex", "ospf"},
    {"set_ipv6_ns_rule", "nd"},         {"interface_mpls_enable", "mpls"},
    {"mpls_ftn_add", "ftn+"},           {"mpls_ftn_del", "ftn-"},
    {"mpls_ilm_add", "ilm+"},           {"mpls_ilm_del", "ilm-"},
    {"add_gre_tunnel", "gre+"},         {"del_gre_tunnel", "gre-"},
    {"add_gre_nexthop", "via+"},        {"del_gre_nexthop", "via-"},
    {"update_gre_nexthop", "via"},      {"port_scl_key_type_set", "port"},
    {"set_stream_qos_item", "stream+"}, {"delete_qos_item_by_stream", "stream-"},
    {"bfd_lmep_add", "lmep+"},          {"bfd_lmep_del", "lmep-"},
    {"bfd_lmep_update", "lmep"},        {"bfd_rmep_add", "rmep+"},
    {"bfd_rmep_del", "rmep-"},          {"bfd_rmep_update", "rmep"},
    {"bfd_get_remote_disc", "rmep?"},   {"pw_group_switch", "pw-group"},
    {"vpws_entry_add", "vpws+"},        {"vpws_entry_add_test", "vpws+"},
    {"vpws_entry_del", "vpws-"},        {"vpws_entry_del_test", "vpws-"},
    {"vpws_entry_update", "vpws"},
    {"vpls_add", "vpls+"},              {"vpls_del", "vpls-"},
    {"vpls_ac_entry_add", "vpls-ac+"},  {"vpls_ac_entry_del", "vpls-ac-"},
    {"vpls_pw_entry_add", "vpls-pw+"},  {"vpls_pw_entry_del", "vpls-pw-"},
};

constexpr std::string_view usual_pairs[] = {
    "slots 0x0", "slots 0xffffffff", "-> 0",    "vrf 0",    "svlan 100",  "cvlan 0",
    "vid 100",   "ivid 0",           "checksum 0",  "key 4294967295", "direction 0", "subport 0",
    "type 2",    "queue 10",         "rate 64",          "ttl 255", "ttl kept", "ttl less-1", "exp kept"};
constexpr std::string_view unnamed_indexes[] = {"nhid",    "tunnel", "ac-nhid",
                                                "pw-nhid", "aps",    "logic-port"};
constexpr std::string_view plain_words[] = {"nexthop", "index", "group", "members", "mac"};

std::vector<std::string> words_of(const std::string &line) {
    std::istringstream stream(line);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

template <class List> bool has(const List &list, std::string_view word) {
    return std::find(std::begin(list), std::end(list), word) != std::end(list);
}

bool is_number(const std::string &word) {
    return word.find_first_not_of("0123456789") == word.npos;
}

// A host's address stands without its length.
std::string without_host_bits(const std::string &word) {
    const bool ipv6 = word.find(':') != word.npos;
    const std::string_view bits = ipv6 ? "/128" : "/32";
    return word.ends_with(bits) ? word.substr(0, word.size() - bits.size()) : word;
}

std::string in_vrf(std::uint32_t vrf) {
    return vrf ? " vrf " + std::to_string(vrf) : "";
}

std::string key_text(const dpm_prefix &prefix, std::uint32_t vrf) {
    return without_host_bits(tables::prefix_text(prefix)) + in_vrf(vrf);
}

// The number of the line behind the function's name changes with the source.
std::string without_line_number(std::string text) {
    const std::size_t at = text.find_first_not_of(" :", text.find_first_of(" :"));
    const std::size_t end = text.find_first_not_of("0123456789", at);
    if (at < end && end != text.npos && (text[end] == ':' || text[end] == ']'))
        text.replace(at, end - at, "#");
    return text;
}

// What a mirrored record is known by.
std::string key_of(const Journal &journal, const dpm_nexthop_entry &nexthop) {
    return journal.name_of(nexthop.sdk_index);
}
std::string key_of(const Journal &, const dpm_host_entry &host) {
    return key_text(host.ip, host.vrf);
}
std::string key_of(const Journal &journal, const dpm_ecmp_entry &group) {
    return journal.name_of(std::uint32_t(group.sdk_index));
}
std::string key_of(const Journal &, const dpm_route_entry &route) {
    return key_text(route.destination, route.vrf);
}
std::string key_of(const Journal &, const dpm_tunnel_entry &tunnel) {
    return tunnel.name + std::string(tunnel.sdk_index > 0 ? " up" : "");
}
std::string key_of(const Journal &, const dpm_tunnel_port_entry &port) {
    return "port " + std::to_string(port.port) + " " + std::to_string(port.cnt);
}
std::string state_of(const auto &label) {
    return label.flags == DPM_LABEL_PROGRAMMED ? "" : " " + tables::label_state(label);
}
std::string key_of(const Journal &, const dpm_mpls_if &interface) {
    return interface.ifname + std::string(interface.flags == DPM_MPLS_IF_REFUSED ? " refused" : "");
}
std::string key_of(const Journal &, const dpm_ftn &ftn) {
    return key_text(tables::fec_of(ftn), ftn.vrf_id) + state_of(ftn) +
           (ftn.fec_route_deleted ? " for the route" : "");
}
std::string key_of(const Journal &, const dpm_ilm &ilm) {
    return std::to_string(ilm.in_label) + state_of(ilm);
}

std::string vc_text(std::uint32_t id, const std::uint8_t *peer) {
    return std::to_string(id) + " " + address_text(DPM_FAMILY_IPV4, peer);
}
std::string key_of(const Journal &, const dpm_vpws_acif &circuit) {
    return circuit.ifname + state_of(circuit);
}
std::string key_of(const Journal &, const dpm_vpws_vc_fib &way) {
    return vc_text(way.vc_id, way.vc_peer) + state_of(way) +
           (way.switched != 0 ? " uses standby" : "");
}
std::string key_of(const Journal &, const dpm_vpws_vc_ilm &way) {
    return vc_text(way.vpn_id, way.vc_peer) + state_of(way);
}
std::string key_of(const Journal &, const dpm_vpls_vsi &bridge) {
    return std::to_string(bridge.vpls_id) + state_of(bridge);
}
std::string key_of(const Journal &, const dpm_vpls_acif &circuit) {
    return circuit.ifname + state_of(circuit);
}
std::string key_of(const Journal &, const dpm_vpls_vc_fib &way) {
    return vc_text(way.vpls_id, way.vc_peer) + state_of(way);
}
std::string key_of(const Journal &, const dpm_vpls_vc_ilm &way) {
    return vc_text(way.vpls_id, way.vc_peer) + state_of(way);
}

// Multicast: changes and settings; echoes stand for themselves.
std::string source_text(const dpm_ipmc_group &group, const dpm_ipmc_source &source) {
    const bool is_any = source.source.family == DPM_FAMILY_NONE;
    return "(" + (is_any ? "*" : tables::text_of(source.source)) + ", " +
           key_text(group.group, group.vrf) + ")";
}
std::string key_of(const Journal &, const dpm_ipmc_group_image &image) {
    return source_text(image.group, image.source);
}
std::string key_of(const Journal &, const dpm_ipmc_member_image &image) {
    return source_text(image.group, image.source) + " vlan " +
           std::to_string(image.member.out_vlan) + " port " + std::to_string(image.member.phy);
}
std::string key_of(const Journal &, const dpm_ipmc_settings &settings) {
    return std::to_string(settings.family);
}

// A waiting session is told, and one whose discriminator the chip hears of later.
std::string key_of(const Journal &, const dpm_bfd_sess &session) {
    return std::to_string(session.told.local_disc) +
           (session.hw_state == DPM_BFD_INSTALLED ? "" : " waits") +
           (session.debounce != 0 ? " debounce" : "");
}
std::string key_of(const Journal &, const dpm_bfd_update &update) {
    return std::to_string(update.local_disc) + " kind " + std::to_string(update.kind) + " " +
           std::to_string(update.value[0]);
}

struct MirrorKind {
    std::string_view receiver; // begins with it
    std::string_view name;
    std::size_t record_bytes;
    std::string (*key)(const Journal &journal, const std::byte *record);
};

template <class Record>
constexpr MirrorKind mirrored(std::string_view receiver, std::string_view name) {
    return {receiver, name, sizeof(Record), [](const Journal &journal, const std::byte *bytes) {
                Record record;
                std::memcpy(&record, bytes, sizeof record);
                return key_of(journal, record);
            }};
}

constexpr MirrorKind mirror_kinds[] = {
    mirrored<dpm_nexthop_entry>("dpm_nexthop_entry", "nexthop"),
    mirrored<dpm_host_entry>("dpm_host_entry", "host"),
    mirrored<dpm_ecmp_entry>("dpm_ecmp_entry", "ecmp"),
    mirrored<dpm_route_entry>("dpm_route_entry", "route"),
    mirrored<dpm_tunnel_port_entry>("dpm_tunnel_port_entry", "port"),
    mirrored<dpm_tunnel_entry>("dpm_tunnel_entry", "tunnel"),
    mirrored<dpm_mpls_if>("dpm_mpls_if", "mpls-if"),
    mirrored<dpm_ftn>("dpm_mpls_ftn", "ftn"),
    mirrored<dpm_ilm>("dpm_mpls_ilm", "ilm"),
    mirrored<dpm_vpws_acif>("dpm_vpws_acif", "vpws-ac"),
    mirrored<dpm_vpws_vc_fib>("dpm_vpws_vc_fib", "vpws-out"),
    mirrored<dpm_vpws_vc_ilm>("dpm_vpws_vc_ilm", "vpws-in"),
    mirrored<dpm_vpls_vsi>("dpm_vpls_vsi", "vpls"),
    mirrored<dpm_vpls_acif>("dpm_vpls_acif", "vpls-ac"),
    mirrored<dpm_vpls_vc_fib>("dpm_vpls_vc_fib", "vpls-out"),
    mirrored<dpm_vpls_vc_ilm>("dpm_vpls_vc_ilm", "vpls-in"),
    mirrored<dpm_ipmc_group_image>("dpm_ipmc_api_slave_group_create", "mroute+"),
    mirrored<dpm_ipmc_group_image>("dpm_ipmc_api_slave_group_destroy", "mroute-"),
    mirrored<dpm_ipmc_member_image>("dpm_ipmc_api_slave_group_member_add", "member+"),
    mirrored<dpm_ipmc_member_image>("dpm_ipmc_api_slave_group_member_del", "member-"),
    mirrored<dpm_ipmc_settings>("dpm_api_set_unknown_ipmc_to_cpu_slave", "settings"),
    mirrored<dpm_bfd_update>("dpm_bfd_entry_update_sync_receive", "bfd"),
    mirrored<dpm_bfd_sess>("dpm_bfd_", "bfd"),
};

} // namespace

void Journal::note(const Card &card, Channel channel, std::string text) {
    if (!keeps_)
        return;
    const std::lock_guard guard(mutex_);
    if (events_.size() == max_events)
        events_.pop_front();
    events_.push_back({++count_, card.slot(), card.os.now_nsec(), channel, std::move(text)});
}

void Journal::note_log(const Card &card, const os::LogLine &line) {
    if (keeps_)
        note(card, Channel::log,
             "log" + std::to_string(line.level) + " " + with_names(without_line_number(line.raw)));
}

std::deque<Event> Journal::events() const {
    const std::lock_guard guard(mutex_);
    return events_;
}

void Journal::clear() {
    const std::lock_guard guard(mutex_);
    events_.clear();
}

void Journal::name(std::uint32_t index, char kind) {
    const std::lock_guard guard(mutex_);
    if (!names_.contains(index)) // the making of another counts
        names_[index] = kind + std::to_string(naming_ == Naming::by_index ? index : ++made_[kind]);
}

std::string Journal::name_of(std::uint32_t index) const {
    const std::lock_guard guard(mutex_);
    const auto named = names_.find(index);
    return index == 2 ? "cpu" : named != names_.end() ? named->second : std::to_string(index);
}

std::string Journal::chip_text(const std::string &line) {
    std::vector<std::string> words = words_of(line);
    const auto known =
        std::find_if(std::begin(chip_words), std::end(chip_words),
                     [&](const ChipWord &word) { return word.request == words.front(); });
    std::string text(known == std::end(chip_words) ? words.front() : known->word);
    const bool is_new = (text == "nexthop+" || text == "group+" || text == "via+") && line.ends_with("-> 0");
    for (std::size_t at = 1; at < words.size(); ++at) {
        const std::string pair = at + 1 < words.size() ? words[at] + " " + words[at + 1] : "";
        if (words[at] == "family") {
            text += words[++at] == "1" ? " ipv4" : " ipv6";
        } else if ((has(usual_pairs, pair) && (pair != "vrf 0" || text != "if-vrf")) ||
                   has(unnamed_indexes, words[at])) {
            ++at;
        } else if (text.starts_with("member") && (words[at] == "add" || words[at] == "remove")) {
            text.insert(6, words[at] == "add" ? "+" : "-");
        } else if (!has(plain_words, words[at])) {
            const bool is_index = is_number(words[at]) && has(plain_words, words[at - 1]);
            const auto index = is_index ? std::uint32_t(std::stoul(words[at])) : 0;
            if (is_new && index >= 16 && words[at - 1] != "members")
                name(index, text[0]);
            text += " " + (is_index ? name_of(index) : without_host_bits(words[at]));
        }
    }
    return text;
}

std::string Journal::mirror_text(std::string_view receiver,
                                 std::span<const std::byte> bytes) const {
    for (const MirrorKind &kind : mirror_kinds) {
        if (!receiver.starts_with(kind.receiver))
            continue;
        const std::string name = "mirror " + std::string(kind.name);
        if (receiver.ends_with("_sync_all_receive"))
            return name + "* " + std::to_string(bytes.size() / kind.record_bytes);
        const std::string key = " " + kind.key(*this, bytes.data());
        if (kind.receiver == receiver) // a name for each change
            return name + key;
        return name + (receiver.find("_add_sync") != receiver.npos ? "+" : "-") + key;
    }
    return "mirror " + std::string(receiver) + " " + std::to_string(bytes.size());
}

std::string Journal::with_names(std::string text) const {
    constexpr std::string_view head = "sdk_index ";
    for (std::size_t at = 0; (at = text.find(head, at)) != text.npos;) {
        at += head.size();
        const std::size_t end = std::min(text.find_first_not_of("0123456789", at), text.size());
        if (end > at)
            text.replace(at, end - at,
                         name_of(std::uint32_t(std::stoul(text.substr(at, end - at)))));
    }
    return text;
}

void Journal::watch(Card &card) {
    card.peer.watch(
        [this, &card](std::string_view name, std::span<const std::byte> bytes, bool is_taken) {
            if (keeps_)
                note(card, Channel::mirror, mirror_text(name, bytes) + (is_taken ? "" : " -> -1"));
        });
    card.stack.watch([this, &card](std::string_view deed, const stack::NeighbourKey &key) {
        const dpm_prefix ip = tables::host_of(key.family, key.address.data());
        note(card, Channel::stack, std::string(deed) + " " + key_text(ip, key.vrf));
    });
    card.suite.watch([this, &card](const std::string &text) {
        if (text != "proxy tick") // which commands wait by
            note(card, Channel::platform, text);
    });
}

void Journal::keep(Card &card, bool on) {
    keeps_ = on;
    const auto hear = [this, &card](const std::string &line) {
        note(card, Channel::chip, chip_text(line));
    };
    card.chip.watch(on ? std::function<void(const std::string &)>(hear) : nullptr);
}

} // namespace chassis::journal
