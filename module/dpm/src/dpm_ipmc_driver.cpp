// Chip records, the echo that repeats each request on the standby card, and mirroring of the
// changes of tables.
//
// An echo is carried out at once, on the hot-standby service's thread, and is always before the
// mirrored change that it belongs to.  That thread does not wait for the DPM lock, which a reader
// may hold for seconds.
#include "dpm_ipmc_driver.h"

#include "dpm_address.h"
#include "dpm_bridge.h"
#include "dpm_ipmc_global.h"
#include "dpm_locks.h"
#include "dpm_mirror.h"
#include "platform/hw.h"

#include <cstring>

static_assert(sizeof(hw_ipmc_record) == 60);
static_assert(offsetof(hw_ipmc_record, source) == 8);
static_assert(offsetof(hw_ipmc_record, port_type) == 40);
static_assert(offsetof(hw_ipmc_record, vlan) == 48);
static_assert(offsetof(hw_ipmc_record, gid) == 52);
static_assert(sizeof(dpm_ipmc_echo::record) == sizeof(hw_ipmc_record));

namespace {

constexpr std::uint32_t unit = 0;

constexpr std::uint32_t card_bit(std::uint32_t number) {
    return 1u << (number & 31);
}

bool is_any(const dpm_prefix &source) {
    static constexpr std::uint8_t none[sizeof source.address] = {};
    return std::memcmp(source.address, none, sizeof none) == 0;
}

hw_ipmc_record record_of(const dpm_ipmc_group &group, const dpm_ipmc_source &source) {
    hw_ipmc_record record = {};
    const std::uint16_t bits = dpm::host_bits(group.group.family);
    record.family = static_cast<std::uint8_t>(group.group.family);
    record.kind = HW_IPMC_GROUP;
    record.source_len = static_cast<std::uint8_t>(is_any(source.source) ? 0 : bits);
    record.group_len = static_cast<std::uint8_t>(bits);
    record.vrf = group.vrf;
    std::memcpy(record.source, source.source.address, sizeof record.source);
    std::memcpy(record.group, group.group.address, sizeof record.group);
    record.gid = source.gid;
    return record;
}

hw_ipmc_record record_of(const dpm_ipmc_group &group, const dpm_ipmc_source &source,
                         const dpm_ipmc_member &member) {
    hw_ipmc_record record = record_of(group, source);
    record.kind = HW_IPMC_MEMBER;
    record.port_type = HW_IPMC_PHYSICAL_PORT;
    record.port = member.phy;
    record.vlan = member.out_vlan;
    return record;
}

using chip_request = int (*)(hw_ipmc_record &record, std::uint32_t op);

int set_group(hw_ipmc_record &record, std::uint32_t op) {
    return hw_driver_ipmc_group_set(unit, &record, op);
}

int set_member(hw_ipmc_record &record, std::uint32_t op) {
    return hw_driver_ipmc_member_set(unit, &record, op);
}

// A request that this card's chip refused is not made to the other's.
int request(chip_request chip, const dpm_prefix &group, hw_ipmc_record &record, std::uint32_t op,
            std::uint32_t mask, const char *echo_receiver) {
    if (!dpm::is_known_family(group.family))
        return -1;
    int result = 0;
    if (mask == 0 || (mask & dpm::this_card()) != 0)
        result = chip(record, op);
    if (result != 0 || (mask & dpm::standby_card()) == 0)
        return result;
    dpm_ipmc_echo echo = {};
    echo.op = static_cast<std::uint8_t>(op);
    std::memcpy(echo.record, &record, sizeof record);
    (void)dpm_bridge_sync_send(echo_receiver, &echo, sizeof echo);
    return result;
}

// A master that dies between an echo and the change that belongs to it leaves this card's chip with
// what no table has, or without what one has.  Under the chip's lock.
void undo_open_echo() {
    if (g_ipmc_global.is_echo_open == 0)
        return;
    g_ipmc_global.is_echo_open = 0;
    hw_ipmc_record record;
    std::memcpy(&record, g_ipmc_global.open_echo.record, sizeof record);
    const chip_request chip = record.kind == HW_IPMC_GROUP ? set_group : set_member;
    (void)chip(record, g_ipmc_global.open_echo.op == 0);
}

int repeat(chip_request chip, const void *buffer, std::uint32_t length_bytes,
           const dpm::call_site &caller) {
    int result;
    if (!dpm::mirror_may_receive(buffer, length_bytes == sizeof(dpm_ipmc_echo), caller, result))
        return result;
    const auto &echo = *static_cast<const dpm_ipmc_echo *>(buffer);
    hw_ipmc_record record;
    std::memcpy(&record, echo.record, sizeof record);
    const dpm::ipmc_chip_lock lock;
    g_ipmc_global.echoes++;
    undo_open_echo(); // the link was cut behind it
    result = chip(record, echo.op);
    g_ipmc_global.is_echo_open = result == 0;
    g_ipmc_global.open_echo = echo;
    return result;
}

bool is_mirrored() {
    return dpm_bridge_self_is_master() && dpm_bridge_peer_is_exist() == 1;
}

// Mirrored records stand on the stack: nothing can fail between the chip and the standby.  What the
// peer does not know of is lost with it: the next sync carries it.
void mirror(const char *receiver, const dpm_ipmc_group &group, const dpm_ipmc_source &source) {
    if (!is_mirrored())
        return;
    const dpm_ipmc_group_image image = {group, source};
    (void)dpm_bridge_sync_send(receiver, &image, sizeof image);
}

void mirror(const char *receiver, const dpm_ipmc_group &group, const dpm_ipmc_source &source,
            const dpm_ipmc_member &member) {
    if (!is_mirrored())
        return;
    const dpm_ipmc_member_image image = {group, source, member};
    (void)dpm_bridge_sync_send(receiver, &image, sizeof image);
}

} // namespace

int dpm_driver_group_create_or_destroy(dpm_ipmc_group *group, dpm_ipmc_source *source,
                                       std::uint32_t op, std::uint32_t mask) {
    if (group == nullptr || source == nullptr)
        return -1;
    hw_ipmc_record record = record_of(*group, *source);
    const int result = request(set_group, group->group, record, op, mask,
                               "dpm_driver_group_create_or_destroy_slave");
    if (result == 0 && op != 0)
        source->gid = record.gid;
    return result;
}

int dpm_driver_group_member_add_or_del(dpm_ipmc_group *group, dpm_ipmc_source *source,
                                       dpm_ipmc_member *member, std::uint32_t op,
                                       std::uint32_t mask) {
    if (group == nullptr || source == nullptr || member == nullptr)
        return -1;
    hw_ipmc_record record = record_of(*group, *source, *member);
    return request(set_member, group->group, record, op, mask,
                   "dpm_driver_group_member_add_or_del_slave");
}

int dpm_driver_group_create(dpm_ipmc_group *group, dpm_ipmc_source *source, std::uint32_t mask) {
    const int result = dpm_driver_group_create_or_destroy(group, source, 1, mask);
    if (result == 0)
        mirror("dpm_ipmc_api_slave_group_create", *group, *source);
    return result;
}

int dpm_driver_group_destroy(dpm_ipmc_group *group, dpm_ipmc_source *source, std::uint32_t mask) {
    const int result = dpm_driver_group_create_or_destroy(group, source, 0, mask);
    if (result == 0)
        mirror("dpm_ipmc_api_slave_group_destroy", *group, *source);
    return result;
}

int dpm_driver_group_member_add(dpm_ipmc_group *group, dpm_ipmc_source *source,
                                dpm_ipmc_member *member, std::uint32_t mask) {
    const int result = dpm_driver_group_member_add_or_del(group, source, member, 1, mask);
    if (result == 0)
        mirror("dpm_ipmc_api_slave_group_member_add", *group, *source, *member);
    return result;
}

int dpm_driver_group_member_del(dpm_ipmc_group *group, dpm_ipmc_source *source,
                                dpm_ipmc_member *member, std::uint32_t mask) {
    const int result = dpm_driver_group_member_add_or_del(group, source, member, 0, mask);
    if (result == 0)
        dpm::mirror_member_del(*member);
    return result;
}

int dpm_driver_ipmc_enable(std::uint32_t type, std::uint32_t vlan, std::uint32_t enable) {
    return hw_driver_interface_ipmc_enable(unit, static_cast<std::uint16_t>(vlan), type, enable);
}

int dpm_driver_unknown_ipmc_to_cpu_set(std::uint32_t family, std::uint32_t state,
                                       std::uint32_t cpu_queue, std::uint32_t cpu_rate,
                                       std::uint32_t *gid) {
    return hw_driver_unknown_ipmc_to_cpu_set(unit, family, state, cpu_queue, cpu_rate, gid);
}

int dpm_driver_group_create_or_destroy_slave(const void *buffer, std::uint32_t length_bytes) {
    return repeat(set_group, buffer, length_bytes, DPM_CALL_SITE);
}

int dpm_driver_group_member_add_or_del_slave(const void *buffer, std::uint32_t length_bytes) {
    return repeat(set_member, buffer, length_bytes, DPM_CALL_SITE);
}

namespace dpm {

std::uint32_t this_card() {
    return card_bit(dpm_bridge_self_slot_get());
}

std::uint32_t standby_card() {
    return card_bit(dpm_bridge_peer_slot_get());
}

void mirror_member_del(const dpm_ipmc_member &member) {
    mirror("dpm_ipmc_api_slave_group_member_del", *member.group, *member.source, member);
}

void echo_unknown_ipmc(std::uint32_t family, std::uint32_t state, std::uint32_t gid) {
    dpm_ipmc_settings settings = {};
    settings.family = static_cast<std::uint8_t>(family);
    settings.state = static_cast<std::uint8_t>(state);
    for (unsigned i = 0; i < sizeof settings.gid; i++)
        settings.gid[i] = static_cast<std::uint8_t>(gid >> (24 - 8 * i));
    (void)dpm_bridge_sync_send("dpm_api_set_unknown_ipmc_to_cpu_slave", &settings, sizeof settings);
}

void ipmc_echo_ends(bool is_followed) {
    const ipmc_chip_lock lock;
    if (is_followed)
        g_ipmc_global.is_echo_open = 0;
    else
        undo_open_echo();
}

void ipmc_echoes_restart() {
    const ipmc_chip_lock lock;
    g_ipmc_global.echoes = 0;
}

} // namespace dpm
