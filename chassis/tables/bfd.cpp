// BFD sessions, and what the suite was told of them.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"
#include "chassis/tables/wanted.h"

#include <algorithm>
#include <set>

namespace chassis::tables {

namespace {

bool is_installed(const dpm_bfd_sess &session) {
    return session.hw_state == DPM_BFD_INSTALLED;
}

std::string state_text(std::uint32_t state) {
    constexpr const char *names[] = {"admin-down", "down", "init", "up"};
    return state < std::size(names) ? names[state] : std::to_string(state);
}

std::string timers_of(const dpm_bfd_sess &session) {
    const std::uint32_t(&timer)[3] = session.told.timer;
    return std::to_string(timer[0]) + "," + std::to_string(timer[1]) + "," +
           std::to_string(timer[2]);
}

dpm_prefix next_hop_of(const dpm_bfd_sess &session) {
    return host_of(session.told.next_hop.family, session.told.next_hop.address);
}

// A session's VRF is that of its interface.
std::uint32_t vrf_of(const dpm_bfd_sess &session) {
    const auto interface = card().suite.find(session.told.ifindex);
    return interface ? interface->vrf : 0;
}

struct HostAddresses {
    explicit HostAddresses(const Reading &) {
        hosts.each([this](const dpm_host_entry &host) { all.insert(chip_key(host.vrf, host.ip)); });
    }
    std::set<chip::Address> all;
};

std::string missing(const dpm_bfd_sess &session, const Reading &reading) {
    if (is_installed(session))
        return "";
    const chip::Address next_hop = chip_key(vrf_of(session), next_hop_of(session));
    if (reading.made<HostAddresses>().all.contains(next_hop))
        return "the chip, which refused it or is full";
    return "its next hop " + text_of(session.told.next_hop);
}

// What the chip's records hold of a session, whichever end they are of.
hw_bfd_mep mep_of(const dpm_bfd_sess &session) {
    const dpm_bfd_told &told = session.told;
    const auto address = [&](std::uint8_t(&to)[16], const dpm_prefix &from) {
        std::ranges::copy(address_bytes(told.family, from.address), to);
    };
    hw_bfd_mep mep{};
    mep.type = told.type <= 2 ? HW_BFD_IP : HW_BFD_PATH;
    mep.direction = told.type != 4 ? 0 : told.sub_type <= 4 ? 2 : 1;
    mep.port_type = session.port_type;
    mep.port_id = session.port_id;
    mep.vlan = session.vlan;
    mep.family = told.family;
    address(mep.local, told.local);
    address(mep.peer, told.peer);
    mep.local_disc = told.local_disc;
    mep.remote_disc = told.remote_disc;
    mep.timer1 = told.timer[0];
    mep.timer2 = told.timer[1];
    mep.timer3 = std::uint8_t(told.timer[2]);
    mep.flag = told.option != 1;
    mep.option = std::uint8_t(session.byte_option);
    mep.state = std::uint8_t(told.state);
    std::ranges::copy(told.chip_half, mep.half);
    mep.kind = told.type == 3 ? 3 : told.type == 4 ? told.identifier : 0;
    mep.address_family = told.type == 4 ? DPM_FAMILY_IPV4 : 0;
    if (told.type == 3) {
        mep.address_family = std::uint8_t(told.address.family);
        mep.address_len = std::uint8_t(told.address.prefix_len);
        std::ranges::copy(told.address.address, mep.address);
    }
    std::ranges::copy(session.mac, mep.mac);
    return mep;
}

// The chip hears of a discriminator later that has just changed: what it has of it stands.
std::uint32_t remote_disc_in(const chip::Chip &chip, const dpm_bfd_sess &session) {
    const auto lock = chip.lock();
    const auto &held = chip.held<kinds::bfd_remote>();
    const auto found = held.find(session.remote_mep);
    return session.debounce != 0 && found != held.end() ? found->second.record.remote_disc
                                                        : session.told.remote_disc;
}

void want_ends(const dpm_bfd_sess &session, Wanted &wanted) {
    hw_bfd_mep mep = mep_of(session);
    mep.index = session.local_mep;
    mep.out_port = session.out_port;
    chip::Mep local = kinds::bfd_local::told(mep);
    local.cc = session.cc_state;
    wanted.want<kinds::bfd_local>(mep.index, local);
    mep.index = session.remote_mep;
    mep.out_port = 0;
    mep.remote_disc = remote_disc_in(wanted.reading.card.chip, session);
    wanted.want<kinds::bfd_remote>(mep.index, kinds::bfd_remote::told(mep));
}

} // namespace

const TableOf<dpm_bfd_sess> bfd{
    .each = walk<dpm_bfd_sess_first, dpm_bfd_sess_next>,
    .key = [](auto &session) { return "disc " + std::to_string(session.told.local_disc); },
    .places =
        [](auto &session) {
            return std::vector<Place>{{vrf_of(session), next_hop_of(session)}};
        },
    .own =
        [](auto &session, auto &) {
            session.node = {};
            session.timer = {};
            session.told.ifindex = 0; // no record names the interface
        },
    .columns = {{"disc", TABLE_MEMBER(told.local_disc)},
                {"remote", TABLE_MEMBER(told.remote_disc)},
                {"type", TABLE_MEMBER(told.type)},
                {"peer", [](auto &session) { return text_of(session.told.peer); }},
                {"via", [](auto &session) { return text_of(session.told.next_hop); }},
                {"interface", [](auto &session) { return interface_name(session.told.ifindex); }},
                {"state", [](auto &session) { return state_text(session.told.state); }},
                {"timers", timers_of},
                {"cc", [](auto &session) { return yes_or_no(session.cc_state != 0); }},
                {"mep", TABLE_MEMBER(local_mep)},
                {"remote_mep", TABLE_MEMBER(remote_mep)},
                {"where",
                 [](auto &session) {
                     return std::string(is_installed(session) ? "chip" : "waits");
                 }},
                {"+held", [](auto &session) { return yes_or_no(session.cc_hold == 1); }},
                {"+debounce", [](auto &session) { return yes_or_no(session.debounce != 0); }}},
    .in_chip =
        [](auto &session, Wanted &wanted) {
            if (is_installed(session))
                want_ends(session, wanted);
        },
    .waits_for = missing,
    .why =
        [](auto &session, auto &reading) {
            const std::string waits_for = missing(session, reading);
            return "BFD session " + std::to_string(session.told.local_disc) + " to " +
                   text_of(session.told.peer) +
                   (waits_for.empty() ? ": in the chip, " + state_text(session.told.state)
                                      : ": waits for " + waits_for) +
                   "\n";
        },
};

const TableOf<suite::BfdReport> bfd_reports{
    .each =
        [](auto &visit) {
            for (const suite::BfdReport &report : card().suite.bfd_reports())
                visit(report);
        },
    .columns = {{"disc", TABLE_MEMBER(local_disc)},
                {"state", [](auto &report) { return state_text(report.state); }},
                {"diag", TABLE_MEMBER(diag)},
                {"remote", TABLE_MEMBER(remote_disc)},
                {"ago_sec",
                 [](auto &report) {
                     return (card().os.now_nsec() - report.at_nsec) / os::nsec_per_sec;
                 }}},
};

} // namespace chassis::tables
