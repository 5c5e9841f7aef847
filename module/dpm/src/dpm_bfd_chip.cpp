// The two end points of a BFD session in the chip, and their records.
#include "dpm_bfd_record.h"

#include "platform/hw.h"

static_assert(sizeof(hw_bfd_mep) == 124);
static_assert(offsetof(hw_bfd_mep, vlan) == 18);
static_assert(offsetof(hw_bfd_mep, local) == 24);
static_assert(offsetof(hw_bfd_mep, local_disc) == 56);
static_assert(offsetof(hw_bfd_mep, timer1) == 68);
static_assert(offsetof(hw_bfd_mep, state) == 74);
static_assert(offsetof(hw_bfd_mep, out_port) == 80);
static_assert(offsetof(hw_bfd_mep, address) == 90);
static_assert(offsetof(hw_bfd_mep, kind) == 108);
static_assert(offsetof(hw_bfd_mep, mac) == 112);
static_assert(sizeof(hw_bfd_update) == 32);

namespace {

enum session_type : std::uint32_t { first_type = 1, type_with_address = 3, type_with_sub = 4 };

constexpr std::uint32_t unit = 0;
constexpr std::uint32_t kind_with_address = 3;

constexpr bool is_known_sub_type(std::uint8_t sub_type) {
    return sub_type >= 3 && sub_type <= 6;
}

void copy_address(std::uint8_t *to, std::uint32_t family, const dpm_prefix &from) {
    if (dpm::is_known_family(family))
        std::memcpy(to, from.address, dpm::address_bytes(family));
}

// What tells sessions over a path apart.
void fill_path(hw_bfd_mep &mep, const dpm_bfd_told &told) {
    if (told.type == type_with_address) {
        mep.address_family = static_cast<std::uint8_t>(told.address.family);
        mep.address_len = static_cast<std::uint8_t>(told.address.prefix_len);
        std::memcpy(mep.address, told.address.address, sizeof mep.address);
        mep.kind = kind_with_address;
    } else if (told.type == type_with_sub) {
        mep.direction = told.sub_type <= 4 ? 2 : 1;
        mep.address_family = DPM_FAMILY_IPV4;
        mep.kind = told.identifier;
    }
}

// Of the local end point; the other differs in index and port.
hw_bfd_mep mep_of(const dpm_bfd_sess &session) {
    const dpm_bfd_told &told = session.told;
    hw_bfd_mep mep = {};
    mep.type = dpm_bfd_mep_type_get(told.type);
    mep.port_type = session.port_type;
    mep.port_id = session.port_id;
    mep.vlan = session.vlan;
    mep.family = told.family;
    copy_address(mep.local, told.family, told.local);
    copy_address(mep.peer, told.family, told.peer);
    mep.local_disc = told.local_disc;
    mep.remote_disc = told.remote_disc;
    mep.timer2 = told.timer[1];
    mep.timer1 = told.timer[0];
    mep.flag = told.option != 1;
    mep.option = static_cast<std::uint8_t>(session.byte_option);
    mep.state = static_cast<std::uint8_t>(told.state);
    mep.timer3 = static_cast<std::uint8_t>(told.timer[2]);
    std::memcpy(mep.half, told.chip_half, sizeof mep.half);
    mep.out_port = session.out_port;
    mep.index = session.local_mep;
    fill_path(mep, told);
    std::memcpy(mep.mac, session.mac, sizeof mep.mac);
    return mep;
}

hw_bfd_update update_of(const dpm_bfd_sess &session, std::uint32_t kind, std::uint32_t value) {
    hw_bfd_update update = {};
    update.type = dpm_bfd_mep_type_get(session.told.type);
    update.local_disc = session.told.local_disc;
    update.kind = kind;
    update.value = value;
    return update;
}

} // namespace

std::uint32_t dpm_bfd_mep_type_get(std::uint32_t session_type) {
    if (session_type < first_type || session_type > type_with_sub)
        return 0;
    return session_type < type_with_address ? HW_BFD_IP : HW_BFD_PATH;
}

namespace dpm {

bool bfd_is_known_type(const dpm_bfd_told &told) {
    return dpm_bfd_mep_type_get(told.type) != 0 &&
           (told.type != type_with_sub || is_known_sub_type(told.sub_type));
}

// deliberate: the remote end point is added without the port
int bfd_chip_add(dpm_bfd_sess &session) {
    const hw_bfd_mep local = mep_of(session);
    if (hw_driver_bfd_lmep_add(unit, &local) != 0)
        return -1;
    hw_bfd_mep remote = local;
    remote.out_port = 0;
    remote.index = session.remote_mep;
    if (hw_driver_bfd_rmep_add(unit, &remote) == 0)
        return 0;
    if (hw_driver_bfd_lmep_del(unit, &local) != 0)
        session.local_mep = 0;
    return -1;
}

void bfd_chip_del(dpm_bfd_sess &session) {
    const hw_bfd_mep local = mep_of(session);
    hw_bfd_mep remote = local;
    remote.index = session.remote_mep;
    if (hw_driver_bfd_rmep_del(unit, &remote) != 0)
        session.remote_mep = 0;
    if (hw_driver_bfd_lmep_del(unit, &local) != 0)
        session.local_mep = 0;
}

int bfd_chip_set_cc(const dpm_bfd_sess &session, std::uint32_t on) {
    const hw_bfd_update update = update_of(session, HW_BFD_UPDATE_CC, on);
    return hw_driver_bfd_lmep_update(unit, &update);
}

int bfd_chip_set_state(const dpm_bfd_sess &session, std::uint32_t state) {
    const hw_bfd_update update = update_of(session, HW_BFD_UPDATE_STATE, state);
    return hw_driver_bfd_lmep_update(unit, &update);
}

int bfd_chip_set_timers(const dpm_bfd_sess &session, const std::uint32_t (&timer)[3]) {
    hw_bfd_update update = update_of(session, HW_BFD_UPDATE_TIMERS, timer[0]);
    update.more[0] = timer[2];
    update.more[1] = timer[1];
    update.more[2] = timer[2];
    return hw_driver_bfd_lmep_update(unit, &update);
}

int bfd_chip_set_remote_disc(const dpm_bfd_sess &session, std::uint32_t remote_disc) {
    hw_bfd_update update = update_of(session, HW_BFD_UPDATE_REMOTE, remote_disc);
    update.sub_kind = HW_BFD_SUB_REMOTE_DISC;
    return hw_driver_bfd_rmep_update(unit, &update);
}

} // namespace dpm
