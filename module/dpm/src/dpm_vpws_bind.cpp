// Pseudowire requests on the worker.
//
// An entry is taken as it comes and settled (dpm_vpws_service.h).  One that is told again with other
// contents is an update of what the chip has; when the chip refuses that, the entry is as it was.  A
// delete takes its pseudowires out of the chip first, and ends when the chip refuses that.
#include "dpm_vpws_service.h"

#include "dpm_bridge.h"
#include "dpm_driver.h"
#include "dpm_l3vpn_chip.h"
#include "dpm_slot.h"
#include "dpm_trace.h"
#include "platform/nsm.h"

namespace {

using dpm::vpws_acif_kind;
using dpm::vpws_vc_fib_kind;
using dpm::vpws_vc_ilm_kind;

constexpr std::uint32_t label_items = 12; // what the capacity is asked for
constexpr std::uint32_t max_label = 0xFFFFF;

// What a request carries of an entry begins behind its links.
template <class Entry> unsigned char *image_bytes(Entry &entry) {
    unsigned char *bytes = reinterpret_cast<unsigned char *>(&entry) + sizeof entry.node;
    if constexpr (requires { entry.pend; })
        bytes += sizeof entry.pend;
    return bytes;
}

template <class Entry, class Request> Entry entry_of(const Request &request) {
    Entry entry = {};
    std::memcpy(image_bytes(entry), request.image, sizeof request.image);
    entry.flags = DPM_LABEL_WAITING;
    return entry;
}

void end_name(char *ifname) {
    ifname[DPM_IFNAME_BYTES - 1] = '\0';
}

// The peer is an IPv4 address.
bool is_peer(const std::uint8_t (&peer)[16]) {
    static constexpr std::uint8_t none[16] = {};
    return std::memcmp(peer, none, 4) != 0 && std::memcmp(peer + 4, none, 12) == 0;
}

// A request carries the beginning of the name alone: one that has no end in it is asked for.
dpm_vpws_acif image_of(const dpm_vpws_acif_msg &request) {
    auto image = entry_of<dpm_vpws_acif>(request);
    char name[DPM_IFNAME_BYTES] = {};
    constexpr std::size_t carried = DPM_VPWS_ACIF_MSG_BYTES - 24;
    if (strnlen(image.ifname, carried) == carried &&
        dpm_if_get_ifnamebyindex(image.ifindex, name) == 0)
        std::memcpy(image.ifname, name, sizeof image.ifname);
    end_name(image.ifname);
    return image;
}

dpm_vpws_vc_fib image_of(const dpm_vpws_vc_fib_msg &request) {
    auto image = entry_of<dpm_vpws_vc_fib>(request);
    end_name(image.in_ifname);
    end_name(image.out_ifname);
    return image;
}

dpm_vpws_vc_ilm image_of(const dpm_vpws_vc_ilm_msg &request) {
    auto image = entry_of<dpm_vpws_vc_ilm>(request);
    end_name(image.in_ifname);
    end_name(image.out_ifname);
    return image;
}

bool is_sound(const dpm_vpws_vc_fib &image, const dpm::call_site &caller) {
    const bool is_sound = is_peer(image.vc_peer) && image.out_label <= max_label;
    if (!is_sound)
        DPM_LOG_FROM(caller, "%s %d::vc_id = %d out_label %d vc_peer %d.%d.%d.%d is err!\r\n",
                     image.vc_id, image.out_label, DPM_IPV4_OF(image.vc_peer));
    return is_sound;
}

bool is_sound(const dpm_vpws_vc_ilm &image, const dpm::call_site &caller) {
    const bool is_sound = is_peer(image.vc_peer) && image.in_label <= max_label;
    if (!is_sound)
        DPM_LOG_FROM(caller, "%s %d::vpn_id = %d in_label %d vc_peer %d.%d.%d.%d is err!\r\n",
                     image.vpn_id, image.in_label, DPM_IPV4_OF(image.vc_peer));
    return is_sound;
}

// Unlike the label tables pseudowires never step over the capacity.
bool has_room() {
    if (dpm_mpls_vpn_item_check(label_items) < DPM_LABEL_CAPACITY)
        return true;
    DPM_PLAIN("Outer and inner items exceed max 4096!\r\n");
    return false;
}

// What this card and the chip know of an entry stays when a request replaces it.
void keep_own(dpm_vpws_acif &image, const dpm_vpws_acif &entry) {
    std::memcpy(image.vlans, entry.vlans, sizeof image.vlans);
    image.ifindex = entry.ifindex;
    image.action_vlan = entry.action_vlan;
    image.flags = entry.flags;
    image.sdk_result = entry.sdk_result;
    image.port = entry.port;
}
void keep_own(dpm_vpws_vc_fib &image, const dpm_vpws_vc_fib &entry) {
    constexpr std::size_t own = offsetof(dpm_vpws_vc_fib, sdk_result);
    std::memcpy(reinterpret_cast<char *>(&image) + own,
                reinterpret_cast<const char *>(&entry) + own, sizeof image - own);
    image.flags = entry.flags;
}
void keep_own(dpm_vpws_vc_ilm &image, const dpm_vpws_vc_ilm &entry) {
    image.flags = entry.flags;
}

template <class Kind> void put(typename Kind::entry &entry, typename Kind::entry image) {
    image.node = entry.node;
    if constexpr (requires { entry.pend; })
        image.pend = entry.pend;
    auto &record = dpm::record_of<Kind>(entry);
    Kind::unindex(record);
    entry = image;
    Kind::index(record);
}

// The image takes the place of the entry; `tell` tells the chip.  Refused, everything is as before.
template <class Kind, class Tell>
int replace(typename Kind::entry &entry, typename Kind::entry image, Tell tell) {
    const typename Kind::entry before = entry;
    keep_own(image, entry);
    put<Kind>(entry, image);
    const int result = tell();
    if (result != 0) {
        put<Kind>(entry, before);
        (void)tell();
    }
    return result;
}

// The entry of an interface: by its index, or by its name where the index is another by now.
dpm_vpws_acif *find_requested(const dpm_vpws_acif &image) {
    if (dpm_vpws_acif *present = dpm::vpws_acifs().find(image))
        return present;
    for (dpm_vpws_acif &acif : dpm::vpws_acifs())
        if (image.ifname[0] != '\0' && std::strcmp(acif.ifname, image.ifname) == 0)
            return &acif;
    return nullptr;
}

int update_circuit(std::uint32_t vc_id) {
    return dpm::each_of_circuit(vc_id, dpm::vpws_update);
}

int settle_circuit(std::uint32_t vc_id, const dpm::vpws_leaving &leaving = {}) {
    return dpm::each_of_circuit(
        vc_id, [&](dpm_vpws_vc_fib &fib) { return dpm::vpws_settle(fib, leaving); });
}

// A circuit that changes its pseudowire leaves the chip in between.
int rebind(dpm_vpws_acif &acif, const dpm_vpws_acif &image) {
    if (acif.vc_id == image.vc_id)
        return replace<vpws_acif_kind>(acif, image, [&] { return update_circuit(image.vc_id); });
    const std::uint32_t before = acif.vc_id;
    if (const int result = settle_circuit(before, {.acif = &acif})) {
        (void)settle_circuit(before);
        return result;
    }
    dpm_vpws_acif bound = image;
    keep_own(bound, acif);
    put<vpws_acif_kind>(acif, bound);
    (void)settle_circuit(before); // another circuit may name it as well
    return settle_circuit(image.vc_id);
}

bool is_regrouped(const dpm_vpws_vc_fib &a, const dpm_vpws_vc_fib &b) {
    return a.vc_role != b.vc_role || a.sibling_vc_id != b.sibling_vc_id ||
           std::memcmp(a.sibling_vc_peer, b.sibling_vc_peer, sizeof a.sibling_vc_peer) != 0;
}

int retell(dpm_vpws_vc_fib &fib, const dpm_vpws_vc_fib &image) {
    if (is_regrouped(fib, image)) {
        if (const int result = dpm::vpws_withdraw(fib))
            return result;
        dpm_vpws_vc_fib regrouped = image;
        keep_own(regrouped, fib);
        put<vpws_vc_fib_kind>(fib, regrouped);
        return dpm::vpws_settle(fib);
    }
    if (dpm_vpws_vc_fib_same_or_update_compile(&fib, &image) == 0)
        return dpm::vpws_settle(fib); // one that the chip refused is asked for again
    return replace<vpws_vc_fib_kind>(fib, image, [&] { return dpm::vpws_update(fib); });
}

int not_there(std::uint32_t id, const dpm::call_site &caller) {
    DPM_LOG_FROM(caller, "%s %d::vc_id = %d, can not find same entry!\r\n", id);
    return -1;
}

} // namespace

int dpm_mpls_vpws_acif_bind(const dpm_vpws_acif_msg *request) {
    int result = 0;
    if (!dpm::may_change(request, result, DPM_CALL_SITE))
        return result;
    const dpm_vpws_acif image = image_of(*request);
    dpm_vpws_acif *acif = find_requested(image);
    if (acif == nullptr) {
        acif = dpm_vpws_acif_add(image);
        if (acif == nullptr)
            return -1;
        (void)dpm_vpws_acif_add_sync_send(acif);
        return settle_circuit(acif->vc_id);
    }
    result = rebind(*acif, image);
    (void)dpm_vpws_acif_add_sync_send(acif);
    return result;
}

int dpm_mpls_vpws_acif_unbind(const dpm_vpws_acif_msg *request) {
    int result = 0;
    if (!dpm::may_change(request, result, DPM_CALL_SITE))
        return result;
    const dpm_vpws_acif image = image_of(*request);
    dpm_vpws_acif *acif = find_requested(image);
    if (acif == nullptr)
        return not_there(image.vc_id, DPM_CALL_SITE);
    const std::uint32_t vc_id = acif->vc_id;
    result = settle_circuit(vc_id, {.acif = acif});
    if (result != 0) {
        (void)settle_circuit(vc_id);
        return result;
    }
    (void)dpm_vpws_acif_del_sync_send(acif);
    (void)dpm_vpws_acif_del(acif);
    return settle_circuit(vc_id); // another circuit may name it as well
}

int dpm_mpls_vpws_vc_fib_add(const dpm_vpws_vc_fib_msg *request) {
    int result = 0;
    if (!dpm::may_change(request, result, DPM_CALL_SITE))
        return result;
    const dpm_vpws_vc_fib image = image_of(*request);
    if (!is_sound(image, DPM_CALL_SITE))
        return -1;
    dpm_vpws_vc_fib *fib = dpm::vpws_vc_fibs().find(image);
    if (fib == nullptr) {
        fib = has_room() ? dpm_vpws_vc_fib_add(image) : nullptr;
        if (fib == nullptr)
            return -1;
        (void)dpm_mpls_pend_vpws_vc_fib_add(fib);
        (void)dpm_vpws_vc_fib_add_sync_send(fib);
        return dpm::vpws_settle(*fib);
    }
    result = retell(*fib, image);
    (void)dpm_vpws_vc_fib_add_sync_send(fib);
    return result;
}

int dpm_mpls_vpws_vc_fib_del(const dpm_vpws_vc_fib_msg *request) {
    int result = 0;
    if (!dpm::may_change(request, result, DPM_CALL_SITE))
        return result;
    const dpm_vpws_vc_fib key = image_of(*request);
    dpm_vpws_vc_fib *fib = dpm::vpws_vc_fibs().find(key);
    if (fib == nullptr)
        return not_there(key.vc_id, DPM_CALL_SITE);
    result = dpm::vpws_withdraw(*fib);
    if (result != 0)
        return result;
    (void)dpm_vpws_vc_fib_del_sync_send(fib);
    return dpm_vpws_vc_fib_del(fib);
}

int dpm_mpls_vpws_vc_ilm_add(const dpm_vpws_vc_ilm_msg *request) {
    int result = 0;
    if (!dpm::may_change(request, result, DPM_CALL_SITE))
        return result;
    const dpm_vpws_vc_ilm image = image_of(*request);
    if (!is_sound(image, DPM_CALL_SITE))
        return -1;
    dpm_vpws_vc_ilm *ilm = dpm::vpws_vc_ilms().find(image);
    if (ilm == nullptr) {
        ilm = has_room() ? dpm_vpws_vc_ilm_add(image) : nullptr;
        if (ilm == nullptr)
            return -1;
        (void)dpm_mpls_pend_vpws_vc_ilm_add(ilm);
        (void)dpm_vpws_vc_ilm_add_sync_send(ilm);
        dpm_vpws_vc_fib *fib = dpm::vpws_fib_of(*ilm);
        return fib != nullptr ? dpm::vpws_settle(*fib) : 0;
    }
    result = replace<vpws_vc_ilm_kind>(*ilm, image, [&] {
        dpm_vpws_vc_fib *fib = dpm::vpws_fib_of(*ilm);
        return fib != nullptr ? dpm::vpws_update(*fib) : 0;
    });
    (void)dpm_vpws_vc_ilm_add_sync_send(ilm);
    return result;
}

int dpm_mpls_vpws_vc_ilm_del(const dpm_vpws_vc_ilm_msg *request) {
    int result = 0;
    if (!dpm::may_change(request, result, DPM_CALL_SITE))
        return result;
    const dpm_vpws_vc_ilm key = image_of(*request);
    dpm_vpws_vc_ilm *ilm = dpm::vpws_vc_ilms().find(key);
    if (ilm == nullptr)
        return not_there(key.vpn_id, DPM_CALL_SITE);
    if (dpm_vpws_vc_fib *fib = dpm::vpws_fib_of(*ilm))
        result = dpm::vpws_settle(*fib, {.ilm = ilm});
    if (result != 0)
        return result;
    (void)dpm_vpws_vc_ilm_del_sync_send(ilm);
    return dpm_vpws_vc_ilm_del(ilm);
}

int dpm_pw_redundancy_group_switch(const dpm_pw_switch_msg *request) {
    int result = 0;
    if (!dpm::may_change(request, result, DPM_CALL_SITE))
        return result;
    const std::uint32_t use_standby = request->use_standby != 0;
    bool is_there = false;
    for (const dpm_vpws_vc_fib &fib : dpm::vpws_vc_fibs())
        is_there |= request->group != 0 && fib.aps_id == request->group;
    if (!is_there) {
        DPM_TRACE("%s %d::group = %d, can not find same entry!\r\n", request->group);
        return -1;
    }
    result = dpm_driver_pw_group_switch(request->group, use_standby, DPM_SLOT_ALL_BITS);
    if (result != 0)
        return result;
    for (dpm_vpws_vc_fib &fib : dpm::vpws_vc_fibs())
        if (fib.aps_id == request->group) {
            fib.switched = use_standby;
            (void)dpm_vpws_vc_fib_add_sync_send(&fib);
        }
    return 0;
}
