// Forwarding groups on the standby card: what the master does to a source or a member is done to
// the tables here, and a card that comes is told all of them, source by source.
//
// The chip of the standby card is its own.  It is served by echoes of the master's requests
// (dpm_ipmc_driver.cpp), so tables and chip meet again once the worker has done what is queued.
// Outgoing VLANs are known here by their members, and go with the last.
#include "dpm_ipmc.h"

#include "dpm_locks.h"
#include "dpm_mirror.h"

namespace {

template <class Image>
bool is_image(const Image *image, std::uint32_t length_bytes, const dpm::call_site &caller) {
    if (image != nullptr && length_bytes == sizeof(Image))
        return true;
    (void)dpm::null_parameter(caller.function, caller.line);
    return false;
}

dpm_ipmc_source *find_source(const dpm_prefix &group, std::uint32_t vrf, const dpm_prefix &source) {
    dpm_ipmc_group *const at = dpm::find_ipmc_group(vrf, group);
    return at != nullptr ? dpm_ipmc_group_src_find(at, &source) : nullptr;
}

// The source of an image, made with its group where they are missing; null without memory.
dpm_ipmc_source *get_source(const dpm_ipmc_group &image, const dpm_ipmc_source &source) {
    dpm_ipmc_source *present = find_source(image.group, image.vrf, source.source);
    if (present == nullptr) {
        dpm_ipmc_group *group = dpm::get_ipmc_group(image.vrf, image.group);
        if (group == nullptr)
            return nullptr;
        present = dpm::make_source(source.source);
        if (present == nullptr)
            return dpm::free_unused(*group), nullptr;
        dpm::link(*group, *present);
    }
    present->in_vlan = source.in_vlan;
    present->gid = source.gid;
    dpm::sync_of(*present) = dpm::sync_number();
    return present;
}

dpm_ipmc_out_vlan *get_out_vlan(dpm_ipmc_source &source, std::uint32_t vlan) {
    dpm_ipmc_out_vlan *out = dpm_ipmc_gourp_outvlan_find(&source, vlan);
    if (out != nullptr || source.out_cnt == DPM_IPMC_OUT_VLANS)
        return out;
    out = dpm::make_out_vlan(vlan);
    if (out != nullptr)
        (void)dpm::keep_out_vlan(source, *out);
    return out;
}

dpm_ipmc_member *get_member(const dpm_ipmc_member_image &image) {
    dpm_ipmc_source *source = get_source(image.group, image.source);
    if (source == nullptr)
        return nullptr;
    dpm_ipmc_out_vlan *out = get_out_vlan(*source, image.member.out_vlan);
    if (out == nullptr)
        return nullptr;
    dpm_ipmc_member *member = dpm_ipmc_gourp_phy_find(out, image.member.phy);
    if (member != nullptr)
        return member;
    dpm_ipmc_group &group = *dpm::find_ipmc_group(image.group.vrf, image.group.group);
    member = dpm::make_member(group, *source, *out, image.member.inner_vlan, image.member.phy);
    if (member != nullptr)
        dpm::link(*member);
    else if (out->member_cnt == 0)
        dpm::free_out_vlan(*source, *out);
    return member;
}

void drop_member(dpm_ipmc_member &member) {
    dpm_ipmc_source &source = *member.source;
    dpm_ipmc_out_vlan &out = *member.out;
    dpm::free_member(member);
    if (out.member_cnt == 0)
        dpm::free_out_vlan(source, out);
}

void drop_source(dpm_ipmc_group &group, dpm_ipmc_source &source) {
    for (dpm_ipmc_out_vlan *out : source.out) {
        if (out == nullptr)
            continue;
        for (dpm_ipmc_member &member : dpm::ipmc_members(out->members).erasable())
            dpm::free_member(member);
        dpm::free_out_vlan(source, *out);
    }
    dpm::free_source(group, source);
}

// A change that could not be kept leaves a hole in the sync that runs.
int kept(bool is_kept) {
    if (is_kept)
        return 0;
    dpm::sync_lost();
    return -1;
}

// What the master does not have goes, here from the card's own chip too: no echo takes it out.  An
// echo that came behind the sync may have brought it anew, and is not undone.
template <class Record> bool is_old(Record &record) {
    return dpm::sync_of(record) != dpm::sync_number();
}

std::uint32_t drop_old() {
    std::uint32_t dropped = 0;
    const dpm::ipmc_chip_lock lock;
    const bool owns_chip = g_ipmc_global.echoes == 0;
    dpm::each_ipmc_source([&](dpm_ipmc_group &group, dpm_ipmc_source &source) {
        dpm::each_ipmc_member(source, [&](dpm_ipmc_member &member) {
            if (!is_old(member))
                return;
            if (owns_chip)
                (void)dpm_driver_group_member_add_or_del(&group, &source, &member, 0,
                                                         dpm::this_card());
            drop_member(member);
            dropped++;
        });
        if (!is_old(source))
            return;
        if (owns_chip)
            (void)dpm_driver_group_create_or_destroy(&group, &source, 0, dpm::this_card());
        drop_source(group, source);
        dropped++;
    });
    return dropped;
}

void create() {} // dpm_ipmc_main_init makes the context whole

// One create a source and one add a member, each with its echo; false: the peer has gone.
bool send_source(dpm_ipmc_group &group, dpm_ipmc_source &source) {
    (void)dpm_driver_group_create(&group, &source, dpm::standby_card());
    dpm::each_ipmc_member(source, [&](dpm_ipmc_member &member) {
        (void)dpm_driver_group_member_add(&group, &source, &member, dpm::standby_card());
    });
    return dpm_bridge_peer_is_exist() == 1;
}

} // namespace

int dpm_ipmc_slave_gourp_add_process(const dpm_ipmc_group_image *image,
                                     std::uint32_t length_bytes) {
    if (!is_image(image, length_bytes, DPM_CALL_SITE) ||
        !dpm::is_iptype(image->group.group.family, DPM_CALL_SITE))
        return -1;
    return kept(get_source(image->group, image->source) != nullptr);
}

int dpm_ipmc_slave_gourp_del_process(const dpm_ipmc_group_image *image,
                                     std::uint32_t length_bytes) {
    if (!is_image(image, length_bytes, DPM_CALL_SITE) ||
        !dpm::is_iptype(image->group.group.family, DPM_CALL_SITE))
        return -1;
    if (dpm_ipmc_source *present =
            find_source(image->group.group, image->group.vrf, image->source.source))
        drop_source(*dpm::find_ipmc_group(image->group.vrf, image->group.group), *present);
    return 0;
}

int dpm_ipmc_slave_gourp_add_member_process(const dpm_ipmc_member_image *image,
                                            std::uint32_t length_bytes) {
    if (!is_image(image, length_bytes, DPM_CALL_SITE) ||
        !dpm::is_iptype(image->group.group.family, DPM_CALL_SITE))
        return -1;
    dpm_ipmc_member *member = get_member(*image);
    if (member == nullptr)
        return kept(false);
    member->inner_vlan = image->member.inner_vlan;
    dpm::sync_of(*member) = dpm::sync_number();
    return 0;
}

int dpm_ipmc_slave_gourp_del_member_process(const dpm_ipmc_member_image *image,
                                            std::uint32_t length_bytes) {
    if (!is_image(image, length_bytes, DPM_CALL_SITE) ||
        !dpm::is_iptype(image->group.group.family, DPM_CALL_SITE))
        return -1;
    dpm_ipmc_source *source =
        find_source(image->group.group, image->group.vrf, image->source.source);
    if (source == nullptr)
        return 0;
    dpm_ipmc_out_vlan *out = dpm_ipmc_gourp_outvlan_find(source, image->member.out_vlan);
    if (out == nullptr)
        return 0;
    if (dpm_ipmc_member *present = dpm_ipmc_gourp_phy_find(out, image->member.phy))
        drop_member(*present);
    return 0;
}

int dpm_ipmc_group_sync_all_send() {
    bool is_there = true;
    dpm::each_ipmc_source([&](dpm_ipmc_group &group, dpm_ipmc_source &source) {
        if (is_there && !send_source(group, source)) {
            is_there = false;
            DPM_LOG_FROM((dpm::call_site{"dpm_ipmc_group_sync_all_send", __LINE__}),
                         "%s %d::peer is not exist!\r\n");
        }
    });
    return 0;
}

int dpm_ipmc_sync_all_send(std::uint32_t slot) {
    if (dpm_bridge_self_is_slave()) {
        DPM_TRACE("%s %d::it is slave.\r\n");
        return 0;
    }
    if (slot != dpm_bridge_peer_slot_get()) // a line card has no chip of its own here
        return 0;
    DPM_TRACE("%s %d::slot %d, ipmc table sync.\r\n", slot);
    (void)dpm_ipmc_group_sync_all_send();
    dpm::echo_unknown_ipmc(DPM_FAMILY_IPV4, g_ipmc_global.ipv4_state,
                           g_ipmc_global.unknown_ipv4_gid);
    dpm::echo_unknown_ipmc(DPM_FAMILY_IPV6, g_ipmc_global.ipv6_state,
                           g_ipmc_global.unknown_ipv6_gid);
    return 0;
}

constexpr dpm::mirrored dpm::mirrored_multicast = {create, dpm_ipmc_sync_all_send, drop_old};
