// Requests for virtual bridges, their circuits and pseudowires, on the worker.
//
// An entry is taken as it comes and settled (dpm_vpls_service.h).  One that is told again with other
// contents leaves the chip in between; when the chip does not let it go, it is as it was, as one that
// is to be deleted is then.
#include "dpm_vpls_service.h"

#include "dpm_bridge.h"
#include "dpm_memory.h"
#include "dpm_trace.h"

namespace {

using dpm::call_site;
using dpm::vpls_acif_kind;
using dpm::vpls_vc_fib_kind;
using dpm::vpls_vc_ilm_kind;
using dpm::vpls_vsi_kind;

// A request's block, freed with it.
class owned_request {
public:
    explicit owned_request(void *block) : block_(block) {}
    ~owned_request() {
        if (block_ != nullptr)
            dpm_free(block_);
    }
    owned_request(const owned_request &) = delete;
    owned_request &operator=(const owned_request &) = delete;
    const dpm_vpls_vsi_msg *get() const { return static_cast<const dpm_vpls_vsi_msg *>(block_); }

private:
    void *block_;
};

int bridge_fault(std::uint32_t vpls_id, const call_site &caller) {
    DPM_LOG_FROM(caller, "%s %d::vpls_id = %d is err!\r\n", vpls_id);
    return -1;
}

int no_entry(std::uint32_t vpls_id, const call_site &caller) {
    DPM_LOG_FROM(caller, "%s %d::vpls_id = %d, can not find same entry!\r\n", vpls_id);
    return -1;
}

// What differs here the chip is told of.
bool is_told_so(const dpm_vpls_acif &a, const dpm_vpls_acif &b) {
    return a.vpls_id == b.vpls_id && a.svlan_id == b.svlan_id && a.svlan_tpid == b.svlan_tpid &&
           a.cvlan_id == b.cvlan_id && a.vlan_action == b.vlan_action;
}
bool is_told_so(const dpm_vpls_vc_fib &a, const dpm_vpls_vc_fib &b) {
    return a.out_label == b.out_label && a.c_word == b.c_word && a.pw_mode == b.pw_mode &&
           a.is_spoke == b.is_spoke;
}
bool is_told_so(const dpm_vpls_vc_ilm &a, const dpm_vpls_vc_ilm &b) {
    return a.in_label == b.in_label;
}

// What this card and the chip know of an entry stays when a request replaces it.
void keep_own(dpm_vpls_acif &image, const dpm_vpls_acif &entry) {
    dpm::keep_from(offsetof(dpm_vpls_acif, sdk_result), image, entry);
    image.ifindex = entry.ifindex;
    image.flags = entry.flags;
    image.port_vlan = entry.port_vlan;
    image.is_gone = entry.is_gone;
}
void keep_own(dpm_vpls_vc_fib &image, const dpm_vpls_vc_fib &entry) {
    dpm::keep_from(offsetof(dpm_vpls_vc_fib, sdk_result), image, entry);
    image.flags = entry.flags;
}
void keep_own(dpm_vpls_vc_ilm &image, const dpm_vpls_vc_ilm &entry) {
    image.flags = entry.flags;
}

template <class Kind> typename Kind::entry *present(const typename Kind::entry &image) {
    return Kind::table().find(image);
}
template <> dpm_vpls_acif *present<vpls_acif_kind>(const dpm_vpls_acif &image) {
    return dpm::find_circuit<vpls_acif_kind>(image);
}

// A bridge that the chip refused is asked for again with what comes to it.
template <class Entry> int settle(Entry &entry) {
    dpm_vpls_vsi *vsi = dpm::vpls_vsi_of(entry.vpls_id);
    return vsi != nullptr && !dpm::is_in_chip(*vsi) ? dpm::vpls_settle(*vsi)
                                                    : dpm::vpls_settle(entry);
}

template <class Kind> int take_new(const typename Kind::entry &image) {
    auto *entry = dpm::vpn_add<Kind>(image);
    if (entry == nullptr)
        return -1;
    if constexpr (requires { entry->pend; })
        (void)dpm::vpn_pend_add<Kind>(entry);
    (void)Kind::add_send(entry);
    return settle(*entry);
}

template <class Kind> int take_again(typename Kind::entry &entry, typename Kind::entry image) {
    if (!is_told_so(entry, image))
        if (const int result = dpm::vpls_settle(entry, {.entry = &entry}))
            return result;
    keep_own(image, entry);
    if (dpm::is_another(entry, image)) {
        dpm::put<Kind>(entry, image);
        (void)Kind::add_send(&entry);
    }
    return settle(entry);
}

template <class Kind> int remove(const typename Kind::entry &image, const call_site &caller) {
    auto *entry = present<Kind>(image);
    if (entry == nullptr)
        return no_entry(image.vpls_id, caller);
    if (const int result = dpm::vpls_settle(*entry, {.entry = entry}))
        return result;
    (void)Kind::del_send(entry);
    return Kind::del(entry);
}

// The circuit that a request tells of; false, told in the log: there can be none.
bool circuit_of(const dpm_vpls_acif_msg &request, dpm_vpls_acif &image, const call_site &caller) {
    image = dpm::image_of<dpm_vpls_acif>(request);
    image.port_vlan = image.is_gone = 0;
    return dpm::name_circuit(image, sizeof image.ifname, caller);
}

dpm_vpls_vc_fib image_of(const dpm_vpls_vc_fib_msg &request) {
    auto image = dpm::image_of<dpm_vpls_vc_fib>(request);
    image.nw_ifindex = dpm::index_told(image.out_ifname, image.nw_ifindex);
    return image;
}

dpm_vpls_vc_ilm image_of(const dpm_vpls_vc_ilm_msg &request) {
    auto image = dpm::image_of<dpm_vpls_vc_ilm>(request);
    image.in_ifindex = dpm::index_told(image.in_ifname, image.in_ifindex);
    return image;
}

template <class Kind, class Request>
int change_pseudowire(const Request *request, const call_site &caller) {
    int result = 0;
    if (!dpm::may_change(request, result, caller))
        return result;
    const typename Kind::entry image = image_of(*request);
    if (!dpm::is_sound<Kind>(image, caller))
        return -1;
    if (auto *entry = present<Kind>(image))
        return take_again<Kind>(*entry, image);
    return dpm::has_pseudowire_room() ? take_new<Kind>(image) : -1;
}

template <class Kind, class Request>
int remove_pseudowire(const Request *request, const call_site &caller) {
    int result = 0;
    if (!dpm::may_change(request, result, caller))
        return result;
    return remove<Kind>(image_of(*request), caller);
}

} // namespace

int dpm_mpls_vpls_vsi_add(void *block) {
    const owned_request request(block);
    int result = 0;
    if (!dpm::may_change(request.get(), result, DPM_CALL_SITE))
        return result;
    auto image = dpm::image_of<dpm_vpls_vsi>(*request.get());
    image.fid = image.vpls_id;
    if (!dpm::is_vpls_id(image.vpls_id))
        return bridge_fault(image.vpls_id, DPM_CALL_SITE);
    dpm_vpls_vsi *vsi = dpm::vpls_vsis().find(image);
    if (vsi != nullptr)
        return dpm::vpls_settle(*vsi);
    vsi = dpm::vpn_add<vpls_vsi_kind>(image);
    if (vsi == nullptr)
        return -1;
    (void)dpm_vpls_vsi_add_sync_send(vsi);
    return dpm::vpls_settle(*vsi);
}

int dpm_mpls_vpls_vsi_del(void *block) {
    const owned_request request(block);
    int result = 0;
    if (!dpm::may_change(request.get(), result, DPM_CALL_SITE))
        return result;
    const auto key = dpm::image_of<dpm_vpls_vsi>(*request.get());
    dpm_vpls_vsi *vsi = dpm::vpls_vsis().find(key);
    if (vsi == nullptr)
        return no_entry(key.vpls_id, DPM_CALL_SITE);
    if (dpm::vpls_is_in_use(*vsi)) {
        DPM_TRACE("%s %d::vpls_id = %d has circuits or pseudowires!\r\n", +vsi->vpls_id);
        return -1;
    }
    if (dpm::is_in_chip(*vsi))
        result = dpm::vpls_withdraw(*vsi);
    if (result != 0) {
        vsi->sdk_result = result;
        (void)dpm_vpls_vsi_add_sync_send(vsi);
        return result;
    }
    (void)dpm_vpls_vsi_del_sync_send(vsi);
    return vpls_vsi_kind::del(vsi);
}

int dpm_mpls_vpls_acif_bind(const dpm_vpls_acif_msg *request) {
    int result = 0;
    if (!dpm::may_change(request, result, DPM_CALL_SITE))
        return result;
    dpm_vpls_acif image;
    if (!circuit_of(*request, image, DPM_CALL_SITE))
        return -1;
    dpm::make_way<vpls_acif_kind>(image,
                                  [](dpm_vpls_acif &other) { (void)dpm::vpls_settle(other); });
    if (dpm_vpls_acif *acif = present<vpls_acif_kind>(image)) {
        dpm::take_index<vpls_acif_kind>(*acif, image.ifindex);
        return take_again<vpls_acif_kind>(*acif, image);
    }
    return take_new<vpls_acif_kind>(image);
}

int dpm_mpls_vpls_acif_unbind(const dpm_vpls_acif_msg *request) {
    int result = 0;
    if (!dpm::may_change(request, result, DPM_CALL_SITE))
        return result;
    dpm_vpls_acif image;
    if (!circuit_of(*request, image, DPM_CALL_SITE))
        return -1;
    return remove<vpls_acif_kind>(image, DPM_CALL_SITE);
}

int dpm_mpls_vpls_vc_fib_add(const dpm_vpls_vc_fib_msg *request) {
    return change_pseudowire<vpls_vc_fib_kind>(request, DPM_CALL_SITE);
}
int dpm_mpls_vpls_vc_fib_del(const dpm_vpls_vc_fib_msg *request) {
    return remove_pseudowire<vpls_vc_fib_kind>(request, DPM_CALL_SITE);
}
int dpm_mpls_vpls_vc_ilm_add(const dpm_vpls_vc_ilm_msg *request) {
    return change_pseudowire<vpls_vc_ilm_kind>(request, DPM_CALL_SITE);
}
int dpm_mpls_vpls_vc_ilm_del(const dpm_vpls_vc_ilm_msg *request) {
    return remove_pseudowire<vpls_vc_ilm_kind>(request, DPM_CALL_SITE);
}
