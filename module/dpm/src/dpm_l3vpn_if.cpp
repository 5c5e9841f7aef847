// MPLS interfaces, as the routing suite enables and disables them.
//
// The chip takes packets with labels on the VLAN of such an interface.  One that the chip refuses
// stays in the table as refused, and is asked for again when a slot comes up.  Entries travel to the
// standby card by name, since interface indexes are card-local.
#include "dpm_l3vpn_if.h"

#include "dpm_address.h"
#include "dpm_bridge.h"
#include "dpm_if.h"
#include "dpm_mirror.h"
#include "dpm_vpn.h"
#include "dpm_vpn_encaps.h"
#include "dpm_vpn_table.h"
#include "platform/nsm.h"

namespace {

struct mpls_if_kind {
    using entry = dpm_mpls_if;
    struct record {
        dpm_mpls_if entry;  // first: the table sees this alone
        std::uint32_t sync; // that brought it
    };
    static dpm::mpls_if_table table() { return dpm::mpls_ifs(); }
    static int del(entry *present) { return dpm_mpls_if_del(present); }
    static void index(record &) {}
    static void unindex(record &) {}
};

dpm_mpls_if image_of(const dpm_mpls_if_msg &request) {
    dpm_mpls_if image = {};
    image.ifindex = request.ifindex;
    std::memcpy(image.ifname, dpm::bounded_name(request.ifname).c_str(), sizeof image.ifname);
    image.label_space = request.label_space;
    image.vlan_id = static_cast<std::uint16_t>(nsm_get_vlanid_by_ifname(image.ifname));
    return image;
}

// The entry of an interface: by its index, or by its name where the index is another by now.
dpm_mpls_if *find_requested(const dpm_mpls_if &image) {
    if (dpm_mpls_if *present = dpm::mpls_ifs().find(image))
        return present;
    for (dpm_mpls_if &entry : dpm::mpls_ifs())
        if (std::strcmp(entry.ifname, image.ifname) == 0)
            return &entry;
    return nullptr;
}

// The chip's answer.
int enable_in_chip(dpm_mpls_if &entry) {
    const int result = dpm_hw_driver_mpls_if_add(entry.vlan_id, DPM_SLOT_ALL_BITS);
    if (result == 0) {
        entry.flags = DPM_MPLS_IF_ENABLED;
        DPM_PLAIN("label switch to sdk OK!\r\n");
        return 0;
    }
    DPM_PLAIN("dpm_mpls_if_enable::dpm_hw_driver_mpls_if_add failed, need to add pend! ret=%d\n\r",
              result);
    entry.sdk_result = result;
    entry.flags = DPM_MPLS_IF_REFUSED;
    return result;
}

struct mpls_if_mirror : dpm::mirror_defaults<dpm_mpls_if> {
    static constexpr auto add_code = DPM_MSG_SYNC_ENABLE_MPLS_IF,
                          del_code = DPM_MSG_SYNC_DISABLE_MPLS_IF;
    static constexpr const char *driver_sync_text =
        "%s %d::slot_bit = %d, mpls_if driver sync.\r\n";
    static constexpr const char *table_sync_text = "%s %d::slot %d, mpls_if table sync.\r\n";
    static constexpr dpm_avl_tree *const list[] = {&g_dpm_vpn.mpls_if_tree};
    static void create() { dpm::mpls_ifs().create(); }
    static std::span<dpm_avl_tree *const> trees() { return list; }
    // Every entry is asked for, a refused one as well; only the answer of all slots tells of it.
    static bool reprogram(const entry &entry, std::uint32_t slot_bits) {
        const int result = dpm_hw_driver_mpls_if_add(entry.vlan_id, slot_bits);
        const bool is_enabled = result == 0 && slot_bits == DPM_SLOT_ALL_BITS;
        if (!is_enabled || entry.flags == DPM_MPLS_IF_ENABLED)
            return true;
        dpm_mpls_if *present = find(entry);
        present->flags = DPM_MPLS_IF_ENABLED;
        present->sdk_result = 0;
        (void)dpm_mpls_if_add_sync_send(present);
        return true;
    }
    static bool localise_key(entry &image, const dpm::call_site &) {
        image.ifname[sizeof image.ifname - 1] = '\0';
        image.ifindex = dpm_if_get_ifindexbyname(image.ifname);
        image.node = {};
        return true;
    }
    static entry *find(const entry &image) { return dpm::mpls_ifs().find(image); }
    static entry *put(const entry &image, entry *) {
        return dpm::vpn_insert<mpls_if_kind>(image, true);
    }
    static void drop(entry &present) { (void)dpm_mpls_if_del(&present); }
    static std::uint32_t &sync_of(entry &present) {
        return dpm::record_of<mpls_if_kind>(present).sync;
    }
};

// Of two entries that come to have one key the one that was there stays.
void renumber(const char *ifname, std::uint32_t ifindex) {
    for (dpm_mpls_if &entry : dpm::mpls_ifs().erasable()) {
        if (entry.ifindex == ifindex || std::strcmp(entry.ifname, ifname) != 0)
            continue;
        dpm::mpls_ifs().remove(entry);
        entry.ifindex = ifindex;
        if (dpm::mpls_ifs().add(entry) == nullptr)
            continue;
        (void)dpm_mpls_if_del_sync_send(&entry);
        dpm::free_zeroed(&dpm::record_of<mpls_if_kind>(entry));
    }
}

} // namespace

constexpr dpm::if_follower dpm::mpls_ifs_on_interfaces = {nullptr, nullptr, renumber};

// clang-format off
DPM_MIRRORED_TABLE(mpls_if_mirror, mirrored_mpls_ifs,
                   dpm_mpls_if_add_sync_send, dpm_mpls_if_add_sync_receive,
                   dpm_mpls_if_add_sync_process,
                   dpm_mpls_if_del_sync_send, dpm_mpls_if_del_sync_receive,
                   dpm_mpls_if_del_sync_process,
                   dpm_mpls_if_sync_all_send, dpm_mpls_if_sync_all_receive)
// clang-format on

dpm::mpls_if_table dpm::mpls_ifs() {
    return mpls_if_table(g_dpm_vpn.mpls_if_tree);
}

int dpm_mpls_if_compile(const dpm_mpls_if *a, const dpm_mpls_if *b) {
    if (a == nullptr || b == nullptr) {
        DPM_PLAIN("dpm_mpls_if_compile::the input parameter is null!\r\n");
        return -1;
    }
    if (a->ifindex != b->ifindex || a->ifindex != DPM_IFINDEX_NONE)
        return dpm::three_way(a->ifindex, b->ifindex);
    const int order = std::strncmp(a->ifname, b->ifname, sizeof a->ifname);
    return order < 0 ? -1 : order > 0;
}

dpm_mpls_if *dpm_mpls_if_lookup(dpm_mpls_if key) {
    return dpm::mpls_ifs().find(key);
}

dpm_mpls_if *dpm_mpls_if_add(dpm_mpls_if record) {
    dpm_mpls_if *entry = dpm::vpn_insert<mpls_if_kind>(record);
    if (entry != nullptr)
        DPM_PLAIN("dpm_mpls_if_add::avl_count=%d\r\n", dpm::mpls_ifs().count());
    return entry;
}

int dpm_mpls_if_del(dpm_mpls_if *entry) {
    if (entry == nullptr)
        return -1;
    DPM_PLAIN("dpm_mpls_if_del::avl_count=%d\r\n", dpm::mpls_ifs().count());
    dpm::vpn_remove<mpls_if_kind>(*entry);
    DPM_PLAIN("dpm_mpls_if_del::avl_count=%d\r\n", dpm::mpls_ifs().count());
    return 0;
}

int dpm_mpls_if_enable(const dpm_mpls_if_msg *request) {
    if (dpm_bridge_self_is_slave())
        return 0;
    if (request == nullptr)
        return dpm::null_parameter();
    dpm_mpls_if image = image_of(*request);
    DPM_PLAIN("dpm_mpls_if_enable::ret=%d ifindex=%x label_space=%d ifname=%s\r\n", 0,
              image.ifindex, image.label_space, image.ifname);
    if (find_requested(image) != nullptr) {
        DPM_PLAIN("dpm_mpls_if_enable::mpls_if_info already exist!\r\n");
        return 0;
    }
    dpm_mpls_if *entry = dpm_mpls_if_add(image);
    if (entry == nullptr) {
        DPM_PLAIN("dpm_mpls_if_enable:: dpm_mpls_if_add failed!\r\n");
        return 0;
    }
    DPM_PLAIN("dpm_mpls_if_enable::ifindex=%x label_space=%d ifname=%s vlan_id=%d \r\n",
              entry->ifindex, entry->label_space, entry->ifname, entry->vlan_id);
    const int result = enable_in_chip(*entry);
    (void)dpm_mpls_if_add_sync_send(entry);
    return result;
}

// deliberate: the chip goes on taking packets with labels on the VLAN
int dpm_mpls_if_disable(const dpm_mpls_if_msg *request) {
    if (dpm_bridge_self_is_slave())
        return 0;
    if (request == nullptr)
        return dpm::null_parameter();
    const dpm_mpls_if key = image_of(*request);
    // deliberate: the other one's name; those who watch the logs know it so
    DPM_PLAIN("dpm_mpls_if_enable::ifindex=%x label_space=%d ifname=%s\r\n", key.ifindex,
              key.label_space, key.ifname);
    dpm_mpls_if *entry = find_requested(key);
    if (entry == nullptr) {
        DPM_PLAIN("dpm_mpls_if_disable:: cannot find this mpls_if table!");
        return -1;
    }
    if (entry->flags != DPM_MPLS_IF_ENABLED)
        DPM_PLAIN("not set sdk OK! \r\n");
    (void)dpm_mpls_if_del_sync_send(entry);
    (void)dpm_mpls_if_del(entry);
    DPM_PLAIN("dpm_mpls_if_disable OK!\r\n");
    return 0;
}
