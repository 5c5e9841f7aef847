// Pseudowire requests on the worker.
//
// An entry is taken as it comes and settled (dpm_vpws_service.h).  One that is told again with other
// contents is an update of what the chip has; when the chip refuses that, the entry is as it was.  A
// delete takes its pseudowires out of the chip first, and ends when the chip refuses that.
#include "dpm_l2vpn.h"
#include "dpm_vpws_service.h"

#include "dpm_bridge.h"
#include "dpm_driver.h"
#include "dpm_slot.h"
#include "dpm_trace.h"
#include "platform/nsm.h"

namespace {

using dpm::call_site;
using dpm::vpws_acif_kind;
using dpm::vpws_vc_fib_kind;
using dpm::vpws_vc_ilm_kind;

// Of a circuit's name, in a request.
constexpr std::size_t name_bytes = DPM_VPWS_ACIF_MSG_BYTES - (offsetof(dpm_vpws_acif, ifname) -
                                                              dpm::image_offset<dpm_vpws_acif>());

dpm_vpws_vc_fib image_of(const dpm_vpws_vc_fib_msg &request) {
    auto image = dpm::image_of<dpm_vpws_vc_fib>(request);
    image.ac_ifindex = dpm::index_told(image.in_ifname, image.ac_ifindex);
    image.nw_ifindex = dpm::index_told(image.out_ifname, image.nw_ifindex);
    return image;
}

dpm_vpws_vc_ilm image_of(const dpm_vpws_vc_ilm_msg &request) {
    auto image = dpm::image_of<dpm_vpws_vc_ilm>(request);
    image.in_ifindex = dpm::index_told(image.in_ifname, image.in_ifindex);
    image.out_ifindex = dpm::index_told(image.out_ifname, image.out_ifindex);
    return image;
}

// What this card and the chip know of an entry stays when a request replaces it.
void keep_own(dpm_vpws_acif &image, const dpm_vpws_acif &entry) {
    std::memcpy(image.vlans, entry.vlans, sizeof image.vlans);
    image.ifindex = entry.ifindex;
    image.action_vlan = entry.action_vlan;
    image.flags = entry.flags;
    image.port = entry.port;
    image.port_vlan = entry.port_vlan;
    image.is_gone = entry.is_gone;
}
void keep_own(dpm_vpws_vc_fib &image, const dpm_vpws_vc_fib &entry) {
    dpm::keep_from(offsetof(dpm_vpws_vc_fib, sdk_result), image, entry);
    image.flags = entry.flags;
}
void keep_own(dpm_vpws_vc_ilm &image, const dpm_vpws_vc_ilm &entry) {
    image.flags = entry.flags;
}

// The request tells nothing new of the entry.
template <class Entry> bool is_repeated(const Entry &entry, Entry image) {
    keep_own(image, entry);
    constexpr std::size_t links = dpm::image_offset<Entry>();
    return std::memcmp(reinterpret_cast<const char *>(&entry) + links,
                       reinterpret_cast<const char *>(&image) + links, sizeof image - links) == 0;
}

// The image takes the place of the entry; `tell` tells the chip, and answers what the chip said of
// it.  What the chip has stays as it was when it refuses.
template <class Kind, class Tell>
int replace(typename Kind::entry &entry, typename Kind::entry image, Tell tell) {
    typename Kind::entry before = entry;
    keep_own(image, entry);
    dpm::put<Kind>(entry, image);
    const int result = tell();
    if (result != 0 && dpm::is_in_chip(entry)) {
        keep_own(before, entry);
        dpm::put<Kind>(entry, before);
        (void)tell();
    }
    (void)Kind::add_send(&entry);
    return result;
}

// What the chip would not change of a circuit's pseudowires.
int refusal_of(std::uint32_t circuit) {
    int refusal = 0;
    dpm::each_of_circuit(circuit, [&](const dpm_vpws_vc_fib &fib) {
        if (dpm::is_in_chip(fib) && refusal == 0)
            refusal = fib.sdk_result;
    });
    return refusal;
}

// The circuit counts no more; the driver's answer when the chip keeps it: then it stays.
int unplug(dpm_vpws_acif &acif) {
    dpm::vpws_settle(acif.vc_id, {.acif = &acif});
    if (!dpm::is_in_chip(acif))
        return 0;
    const int refusal = refusal_of(acif.vc_id);
    dpm::vpws_settle(acif.vc_id);
    return refusal;
}

// A circuit that changes its pseudowire leaves the chip in between.
int rebind(dpm_vpws_acif &acif, const dpm_vpws_acif &image) {
    dpm::take_index<vpws_acif_kind>(acif, image.ifindex);
    if (is_repeated(acif, image)) {
        dpm::vpws_settle(acif.vc_id);
        return 0;
    }
    if (acif.vc_id == image.vc_id)
        return replace<vpws_acif_kind>(acif, image, [&] {
            dpm::vpws_update(image.vc_id);
            return refusal_of(image.vc_id);
        });
    if (const int refusal = unplug(acif))
        return refusal;
    dpm_vpws_acif bound = image;
    keep_own(bound, acif);
    dpm::put<vpws_acif_kind>(acif, bound);
    (void)dpm_vpws_acif_add_sync_send(&acif);
    dpm::vpws_settle(image.vc_id);
    return 0;
}

bool is_regrouped(const dpm_vpws_vc_fib &a, const dpm_vpws_vc_fib &b) {
    return a.vc_role != b.vc_role || a.sibling_vc_id != b.sibling_vc_id ||
           std::memcmp(a.sibling_vc_peer, b.sibling_vc_peer, sizeof a.sibling_vc_peer) != 0;
}

// The way out counts no more; false when the chip keeps it: then it stays.
bool release(dpm_vpws_vc_fib &fib) {
    dpm::vpws_settle(dpm::circuit_of(fib), {.fib = &fib});
    if (!dpm::is_in_chip(fib))
        return true;
    dpm::vpws_settle(dpm::circuit_of(fib));
    return false;
}

// A pseudowire that changes its circuit or its role leaves the chip in between.
int regroup(dpm_vpws_vc_fib &fib, const dpm_vpws_vc_fib &image) {
    const std::uint32_t before = dpm::circuit_of(fib);
    if (!release(fib))
        return -1;
    dpm_vpws_vc_fib regrouped = image;
    keep_own(regrouped, fib);
    regrouped.switched = 0; // of the group that it was in
    dpm::put<vpws_vc_fib_kind>(fib, regrouped);
    (void)dpm_vpws_vc_fib_add_sync_send(&fib);
    for (const std::uint32_t circuit : {before, dpm::circuit_of(fib)})
        dpm::vpws_settle(circuit);
    return fib.sdk_result;
}

// A repeated request asks again for one that the chip refused; one that waits takes it whole.
int retell(dpm_vpws_vc_fib &fib, const dpm_vpws_vc_fib &image) {
    if (is_regrouped(fib, image))
        return regroup(fib, image);
    const std::uint32_t circuit = dpm::circuit_of(fib);
    const bool is_same = dpm_vpws_vc_fib_same_or_update_compile(&fib, &image) == 0;
    if (is_repeated(fib, image) || (is_same && dpm::is_in_chip(fib))) {
        dpm::vpws_settle(circuit);
        return fib.sdk_result;
    }
    return replace<vpws_vc_fib_kind>(fib, image, [&] {
        dpm::vpws_update(circuit);
        return +fib.sdk_result;
    });
}

// Does something for the circuit of a way in, when its way out is there: what the chip said of that.
template <class Do> int for_circuit_of(const dpm_vpws_vc_ilm &ilm, Do act) {
    const dpm_vpws_vc_fib *fib = dpm::vpws_fib_of(ilm);
    if (fib == nullptr)
        return 0;
    act(dpm::circuit_of(*fib));
    return fib->sdk_result;
}

int settle(const dpm_vpws_vc_fib &fib) {
    dpm::vpws_settle(dpm::circuit_of(fib));
    return fib.sdk_result;
}
int settle(const dpm_vpws_vc_ilm &ilm) {
    return for_circuit_of(ilm, [](std::uint32_t circuit) { dpm::vpws_settle(circuit); });
}

int retell(dpm_vpws_vc_ilm &ilm, const dpm_vpws_vc_ilm &image) {
    if (is_repeated(ilm, image))
        return settle(ilm);
    return replace<vpws_vc_ilm_kind>(ilm, image,
                                     [&] { return for_circuit_of(ilm, dpm::vpws_update); });
}

// The way in counts no more; false when the chip keeps its pseudowire: then it stays.
bool release(const dpm_vpws_vc_ilm &ilm) {
    (void)for_circuit_of(ilm,
                         [&](std::uint32_t circuit) { dpm::vpws_settle(circuit, {.ilm = &ilm}); });
    const dpm_vpws_vc_fib *fib = dpm::vpws_fib_of(ilm);
    if (fib == nullptr || !dpm::is_in_chip(*fib))
        return true;
    (void)settle(ilm);
    return false;
}

// One half of a pseudowire is told, or goes.
template <class Kind, class Request> int take(const Request *request, const call_site &caller) {
    int result = 0;
    if (!dpm::may_change(request, result, caller))
        return result;
    const typename Kind::entry image = image_of(*request);
    if (!dpm::is_sound<Kind>(image, caller))
        return -1;
    auto *entry = Kind::table().find(image);
    if (entry != nullptr)
        return retell(*entry, image);
    entry = dpm::has_pseudowire_room() ? dpm::vpn_add<Kind>(image) : nullptr;
    if (entry == nullptr)
        return -1;
    (void)dpm::vpn_pend_add<Kind>(entry);
    (void)Kind::add_send(entry);
    return settle(*entry);
}

template <class Kind, class Request> int remove(const Request *request, const call_site &caller) {
    int result = 0;
    if (!dpm::may_change(request, result, caller))
        return result;
    const typename Kind::entry key = image_of(*request);
    auto *entry = Kind::table().find(key);
    if (entry == nullptr)
        return dpm::not_there(Kind::id_of(key), caller);
    if (!release(*entry))
        return -1;
    (void)Kind::del_send(entry);
    return Kind::del(entry);
}

} // namespace

int dpm_mpls_vpws_acif_bind(const dpm_vpws_acif_msg *request) {
    int result = 0;
    if (!dpm::may_change(request, result, DPM_CALL_SITE))
        return result;
    auto image = dpm::image_of<dpm_vpws_acif>(*request);
    if (!dpm::name_circuit(image, name_bytes, DPM_CALL_SITE))
        return -1;
    dpm::make_way<vpws_acif_kind>(
        image, [](const dpm_vpws_acif &other) { dpm::vpws_settle(other.vc_id); });
    dpm_vpws_acif *acif = dpm::find_circuit<vpws_acif_kind>(image);
    if (acif != nullptr)
        return rebind(*acif, image);
    acif = dpm_vpws_acif_add(image);
    if (acif == nullptr)
        return -1;
    (void)dpm_vpws_acif_add_sync_send(acif);
    dpm::vpws_settle(acif->vc_id);
    return 0;
}

int dpm_mpls_vpws_acif_unbind(const dpm_vpws_acif_msg *request) {
    int result = 0;
    if (!dpm::may_change(request, result, DPM_CALL_SITE))
        return result;
    auto image = dpm::image_of<dpm_vpws_acif>(*request);
    if (!dpm::name_circuit(image, name_bytes, DPM_CALL_SITE))
        return -1;
    dpm_vpws_acif *acif = dpm::find_circuit<vpws_acif_kind>(image);
    if (acif == nullptr)
        return dpm::not_there(image.vc_id, DPM_CALL_SITE);
    if (const int refusal = unplug(*acif))
        return refusal;
    (void)dpm_vpws_acif_del_sync_send(acif);
    return dpm_vpws_acif_del(acif);
}

int dpm_mpls_vpws_vc_fib_add(const dpm_vpws_vc_fib_msg *request) {
    return take<vpws_vc_fib_kind>(request, DPM_CALL_SITE);
}
int dpm_mpls_vpws_vc_fib_del(const dpm_vpws_vc_fib_msg *request) {
    return remove<vpws_vc_fib_kind>(request, DPM_CALL_SITE);
}
int dpm_mpls_vpws_vc_ilm_add(const dpm_vpws_vc_ilm_msg *request) {
    return take<vpws_vc_ilm_kind>(request, DPM_CALL_SITE);
}
int dpm_mpls_vpws_vc_ilm_del(const dpm_vpws_vc_ilm_msg *request) {
    return remove<vpws_vc_ilm_kind>(request, DPM_CALL_SITE);
}

int dpm_pw_redundancy_group_switch(const dpm_pw_switch_msg *request) {
    int result = 0;
    if (!dpm::may_change(request, result, DPM_CALL_SITE))
        return result;
    const std::uint32_t use_standby = request->use_standby != 0;
    const dpm_vpws_vc_fib *member = nullptr;
    for (const dpm_vpws_vc_fib &fib : dpm::vpws_vc_fibs())
        if (request->group != 0 && fib.aps_id == request->group)
            member = &fib;
    if (member == nullptr) {
        DPM_TRACE("%s %d::group = %d, can not find same entry!\r\n", request->group);
        return -1;
    }
    result = dpm_driver_pw_group_switch(request->group, use_standby, DPM_SLOT_ALL_BITS);
    if (result != 0)
        return result;
    // Both of the circuit, also one that waits; the primary one first: a new master goes by it.
    for (const bool is_standby : {false, true})
        dpm::each_of_circuit(dpm::circuit_of(*member), [&](dpm_vpws_vc_fib &fib) {
            if (!dpm::vpws_parts_of(fib, {}).has_circuit || dpm::is_standby(fib) != is_standby)
                return;
            fib.switched = use_standby;
            (void)dpm_vpws_vc_fib_add_sync_send(&fib);
        });
    return 0;
}
