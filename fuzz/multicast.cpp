// What hostile hosts can send: frames of any bytes on any port, to a card that listens and forwards
// groups, and then what changes the members that they left: time, requests, refusals, an interface
// that goes.
//
// An input is deeds.  A frame is a head of a good one, cut or not, and then the input's bytes.
#include "chassis/chassis.h"
#include "chassis/tables/tables.h"
#include "fuzz/input.h"

#include "dpm.h"
#include "dpm_ipmc.h"
#include "dpm_ipmc_pkt.h"

#include <memory>
#include <vector>

namespace {

namespace tables = chassis::tables;

constexpr unsigned vlan = 100;

// Up to the message, with a tag; the second has the hop-by-hop header that reports carry.
constexpr std::uint8_t head4[] = {1, 0,    0x5E, 0, 0,    22, 2,   0, 0, 0,  0,    1, 0x81, 0,
                                  0, vlan, 8,    0, 0x46, 0,  0,   0, 0, 0,  0,    0, 1,    2,
                                  0, 0,    0,    0, 0,    0,  224, 0, 0, 22, 0x94, 4, 0,    0};
constexpr std::uint8_t head6[] = {
    0x33, 0x33, 0, 0, 0, 22, 2, 0, 0, 0, 0, 1, 0x81, 0, 0,  vlan, 0x86, 0xDD, 0x60, 0, 0, 0,
    0,    0,    0, 1, 0, 0,  0, 0, 0, 0, 0, 0, 0,    0, 0,  0,    0,    0,    0,    0, 0, 0,
    0,    0,    0, 0, 0, 0,  0, 0, 0, 0, 0, 0, 0,    0, 58, 0,    5,    2,    0,    0, 1, 0};

std::unique_ptr<chassis::Card> started_card() {
    auto card = std::make_unique<chassis::Card>(chassis::CardOptions{
        .slot = 9, .mode = chassis::os::Mode::pumped, .mac = {2, 0, 0, 0, 0, 9}});
    card->os.log_to([](const chassis::os::LogLine &) {}); // formatted, not written
    card->peer.set_role(chassis::peer::Role::master);
    fuzz::require(card->start() == 0, "a card starts");
    for (const unsigned each : {vlan, vlan + 1})
        (void)card->suite.add_interface("vlanif" + std::to_string(each), DPM_IF_VLANIF, each);
    for (const std::uint32_t family : dpm::ipmc_families)
        (void)dpm_api_set_unknown_ipmc_to_cpu(family, DPM_ENABLE);
    (void)card->pump();
    return card;
}

void receive(chassis::Card &card, fuzz::Input &input) {
    const unsigned kind = input.byte();
    const std::span<const std::uint8_t> head = kind & 1 ? std::span<const std::uint8_t>(head6)
                                                        : std::span<const std::uint8_t>(head4);
    const std::size_t kept = kind & 2 ? input.byte() % (head.size() + 1) : head.size();
    const unsigned port = 1 + kind / 64;
    const auto message = input.bytes(input.byte());
    const fuzz::Block frame = fuzz::exact_block(kept + message.size());
    std::copy_n(head.begin(), kept, frame.get());
    std::copy(message.begin(), message.end(), frame.get() + kept);
    const uv_rx_descriptor descriptor{0, vlan, 0, {}, port, {}};
    fuzz::require(dpm_ipmc_receive_packet(frame.get(), std::uint32_t(kept + message.size()),
                                          &descriptor) == UV_NOT_TAKEN,
                  "no frame is taken");
    (void)card.pump();
}

void request(chassis::Card &card, fuzz::Input &input) {
    dpm_ipmc_request request{};
    const auto bytes = input.bytes(44); // VRF, group and source
    std::copy(bytes.begin(), bytes.end(), reinterpret_cast<std::uint8_t *>(&request));
    const auto own = card.suite.find("vlanif100"), other = card.suite.find("vlanif101");
    request.oif_num = input.byte();
    for (std::uint32_t &oif : request.oif)
        oif = (input.byte() % 2 ? own : other).value_or(chassis::suite::Interface{}).ifindex;
    (void)dpm_api_set_ipmc_proc(&request, input.byte());
    (void)card.pump();
}

void act(chassis::Card &card, fuzz::Input &input) {
    switch (input.byte() % 8) {
    case 0:
        return request(card, input);
    case 1:
        card.os.advance(input.byte() * chassis::os::nsec_per_sec);
        break;
    case 2:
        (void)card.suite.del_interface("vlanif100");
        break;
    case 3:
        card.chip.refuse(chassis::chip::Function::ipmc_member_add, 1 + input.byte() % 2);
        break;
    default:
        return receive(card, input);
    }
    (void)card.pump();
}

// Each record is read as a show reads it, and no list is longer than it may be.
void walk_tables(chassis::Card &card) {
    const tables::Reading reading(card);
    for (const tables::Table &table : tables::all())
        table.each(reading, [](const tables::Row &row) { (void)row.cells(); });
    tables::mgroups.each([](const dpm_ipmc_rx_port &port) {
        fuzz::require(port.src_cnt <= DPM_IPMC_SOURCES, "a filter has eight sources at most");
        fuzz::require(port.mode <= DPM_IPMC_EXCLUDE, "a filter has a mode");
    });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const auto card = started_card();
    while (!input.empty())
        act(*card, input);
    walk_tables(*card);
    card->os.advance(600 * chassis::os::nsec_per_sec); // filters end
    (void)card->pump();
    walk_tables(*card);
    fuzz::require(g_ipmc_global.rx_port_count == 0, "a port that reports no more is forgotten");
    fuzz::require(card->os.bad_frees() == 0, "blocks are given back once");
    // The two things that the library takes from elsewhere than the card, and never gives back.
    for (dpm_timer_list *timers : {g_dpm_global.timer_list, g_ipmc_global.timer_list})
        (void)dpm_timer_list_delete(timers);
    return 0;
}
