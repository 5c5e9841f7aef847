// What the observers of a card tell, as compact text.

#include "support/journal.h"

#include "dpm_host.h"
#include "support/shelf.h"

#include <algorithm>
#include <cstring>
#include <sstream>

namespace rig {

using namespace chassis;

namespace {

constexpr std::size_t max_events = 200'000;

struct ChipWord {
    std::string_view request; // as the chip's journal names it
    std::string_view word;
};

constexpr ChipWord chip_words[] = {
    {"add_ip_nexthop", "nexthop+"},    {"del_ip_nexthop", "nexthop-"},
    {"add_ip_entry", "entry+"},        {"del_ip_entry", "entry-"},
    {"add_ecmp_nexthop", "group+"},    {"del_ecmp_nexthop", "group-"},
    {"update_ecmp_nexthop", "member"}, {"default_route_set", "default"},
    {"add_l3_intf", "interface+"},     {"delete_l3_intf", "interface-"},
    {"interface_vrf_set", "if-vrf"},   {"set_ecmp_hash_ctl", "hash"},
    {"set_arp_to_cpu", "arp"},         {"set_ospf_to_cpu_ex", "ospf"},
    {"set_ipv6_ns_rule", "nd"},
};

constexpr std::string_view usual_pairs[] = {"slots 0x0", "slots 0xffffffff", "-> 0",     "vrf 0",
                                            "svlan 100", "cvlan 0",          "queue 10", "rate 64"};
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

std::string neighbour_text(const stack::NeighbourKey &key) {
    dpm_prefix ip{std::uint16_t(key.family), std::uint16_t(key.family == 1 ? 32 : 128), {}};
    std::copy(key.address.begin(), key.address.end(), ip.address);
    return text_of(ip) + in_vrf(key.vrf);
}

// The number of the line behind the function's name changes with the source.
std::string without_line_number(std::string text) {
    const std::size_t at = text.find_first_not_of(" :", text.find_first_of(" :"));
    const std::size_t end = text.find_first_not_of("0123456789", at);
    if (at < end && end != text.npos && (text[end] == ':' || text[end] == ']'))
        text.replace(at, end - at, "#");
    return text;
}

std::map<const Card *, std::function<void(std::string)>> &notice_writers() {
    static std::map<const Card *, std::function<void(std::string)>> writers;
    return writers;
}

int write_notice(const dpm_host_entry *host, std::uint32_t event) {
    const auto writer = notice_writers().find(&card());
    if (writer != notice_writers().end())
        writer->second("notice " + text_of(host->ip) + in_vrf(host->vrf) +
                       (event == DPM_HOST_ADDED ? " came" : " goes"));
    return -1; // nobody looks
}

template <class Record> Record record_from(std::span<const std::byte> bytes) {
    Record record;
    std::memcpy(&record, bytes.data(), sizeof record);
    return record;
}

} // namespace

void Journal::note(unsigned slot, Channel channel, std::string text) {
    if (!keeps_)
        return;
    if (events_.size() == max_events)
        events_.pop_front();
    events_.push_back({++count_, slot, channel, std::move(text)});
}

std::string Journal::name_of(std::uint32_t index) const {
    const auto named = names_.find(index);
    return index == 2 ? "cpu" : named != names_.end() ? named->second : std::to_string(index);
}

std::string Journal::chip_text(const std::string &line) {
    std::vector<std::string> words = words_of(line);
    const auto known =
        std::find_if(std::begin(chip_words), std::end(chip_words),
                     [&](const ChipWord &word) { return word.request == words.front(); });
    std::string text(known == std::end(chip_words) ? words.front() : known->word);
    const bool is_new = (text == "nexthop+" || text == "group+") && line.ends_with("-> 0");
    for (std::size_t at = 1; at < words.size(); ++at) {
        const std::string pair = at + 1 < words.size() ? words[at] + " " + words[at + 1] : "";
        if (words[at] == "family") {
            text += words[++at] == "1" ? " ipv4" : " ipv6";
        } else if (has(usual_pairs, pair) && (pair != "vrf 0" || text != "if-vrf")) {
            ++at;
        } else if (text.starts_with("member") && (words[at] == "add" || words[at] == "remove")) {
            text.insert(6, words[at] == "add" ? "+" : "-");
        } else if (!has(plain_words, words[at])) {
            const bool is_index = is_number(words[at]) && has(plain_words, words[at - 1]);
            const auto index = is_index ? std::uint32_t(std::stoul(words[at])) : 0;
            if (is_new && index >= 16 && !names_.contains(index) && words[at - 1] != "members")
                names_.try_emplace(index, text[0] == 'n' ? "n" + std::to_string(++nexthops_)
                                                         : "g" + std::to_string(++groups_));
            text += " " + (is_index ? name_of(index) : without_host_bits(words[at]));
        }
    }
    return text;
}

std::string Journal::mirror_text(std::string_view receiver,
                                 std::span<const std::byte> bytes) const {
    struct Kind {
        std::string_view head;
        std::size_t record_bytes;
        std::function<std::string()> key;
    };
    const auto fec = [](const auto &entry) {
        dpm_prefix prefix{entry.ip_type, entry.prefixlen, {}};
        std::memcpy(prefix.address, entry.fec_prefix, sizeof prefix.address);
        return text_of(prefix) + in_vrf(entry.vrf_id);
    };
    const Kind kinds[] = {
        {"dpm_nexthop_entry", sizeof(dpm_nexthop_entry),
         [&] { return name_of(record_from<dpm_nexthop_entry>(bytes).sdk_index); }},
        {"dpm_host_entry", sizeof(dpm_host_entry),
         [&] {
             const auto host = record_from<dpm_host_entry>(bytes);
             return text_of(host.ip) + in_vrf(host.vrf);
         }},
        {"dpm_ecmp_entry", sizeof(dpm_ecmp_entry),
         [&] { return name_of(std::uint32_t(record_from<dpm_ecmp_entry>(bytes).sdk_index)); }},
        {"dpm_route_entry", sizeof(dpm_route_entry),
         [&] {
             const auto route = record_from<dpm_route_entry>(bytes);
             return text_of(route.destination) + in_vrf(route.vrf);
         }},
        {"dpm_mpls_ftn", sizeof(dpm_ftn), [&] { return fec(record_from<dpm_ftn>(bytes)); }},
        {"dpm_mpls_ilm", sizeof(dpm_ilm),
         [&] { return std::to_string(record_from<dpm_ilm>(bytes).in_label); }},
    };
    for (const Kind &kind : kinds) {
        if (!receiver.starts_with(kind.head))
            continue;
        std::string name(kind.head.substr(kind.head.starts_with("dpm_mpls_") ? 9 : 4));
        name = "mirror " + name.substr(0, name.find('_'));
        if (receiver.ends_with("_sync_all_receive"))
            return name + "* " + std::to_string(bytes.size() / kind.record_bytes);
        const bool adds = receiver.find("_add_sync") != receiver.npos;
        return name + (adds ? "+ " : "- ") + kind.key();
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
    const auto writer = [this, slot = card.slot()](Channel channel) {
        return [this, slot, channel](std::string text) { note(slot, channel, std::move(text)); };
    };
    card.chip.record(true);
    card.chip.watch([this, write = writer(Channel::chip)](const std::string &line) {
        if (keeps_)
            write(chip_text(line));
    });
    card.peer.watch([this, write = writer(Channel::mirror)](
                        std::string_view name, std::span<const std::byte> bytes, bool is_taken) {
        if (keeps_)
            write(mirror_text(name, bytes) + (is_taken ? "" : " -> -1"));
    });
    card.stack.watch(
        [write = writer(Channel::stack)](std::string_view deed, const stack::NeighbourKey &key) {
            write(std::string(deed) + " " + neighbour_text(key));
        });
    card.suite.watch([write = writer(Channel::platform)](const std::string &text) { write(text); });
    card.os.log_to([this, write = writer(Channel::log)](const os::LogLine &line) {
        write("log" + std::to_string(line.level) + " " + with_names(without_line_number(line.raw)));
    });
    notice_writers()[&card] = writer(Channel::notice);
    const CardScope scope(card);
    dpm_host_notify_register(write_notice);
}

} // namespace rig
