// A short list under a lock of its own: newest first, as the interfaces themselves.
#include "dpm_if_announced.h"

#include "dpm_state.h"
#include "dpm_trace.h"

#include <cstring>
#include <pthread.h>

namespace {

struct announced_list {
    pthread_mutex_t lock; // zero is unlocked
    list_head entries;    // zero is empty
    std::size_t count;
};
DPM_STATE announced_list g_dpm_announced;

using entry_list = dpm::list_view<dpm::announced_if, &dpm::announced_if::link>;

// The entries, while it lives.
class locked_entries {
public:
    locked_entries() {
        (void)pthread_mutex_lock(&g_dpm_announced.lock);
        if (g_dpm_announced.entries.next == nullptr)
            INIT_LIST_HEAD(&g_dpm_announced.entries);
    }
    ~locked_entries() { (void)pthread_mutex_unlock(&g_dpm_announced.lock); }
    locked_entries(const locked_entries &) = delete;
    locked_entries &operator=(const locked_entries &) = delete;

    list_head &head() const { return g_dpm_announced.entries; }
    dpm::announced_if *find(const char *ifname) const {
        for (dpm::announced_if &entry : entry_list(head()))
            if (std::strcmp(entry.ifname, ifname) == 0)
                return &entry;
        return nullptr;
    }
};

std::uint32_t vlan_of(std::uint32_t ifindex) {
    const locked_entries entries;
    for (const dpm::announced_if &entry : entry_list(entries.head()))
        if (entry.ifindex == ifindex)
            return entry.if_type == DPM_IF_VLANIF || entry.if_type == DPM_IF_SUPERVLAN ? entry.vlan
                                                                                       : 0;
    return 0;
}

} // namespace

namespace dpm {

void if_announced_init() {
    g_dpm_announced = {};
}

bool if_announced(block<announced_if> &entry) {
    const locked_entries entries;
    if (entries.find(entry->ifname) != nullptr)
        return false;
    list_add(&entry.release()->link, &entries.head());
    g_dpm_announced.count++;
    return true;
}

void if_withdrawn(const char *ifname) {
    announced_if *entry;
    {
        const locked_entries entries;
        entry = entries.find(ifname);
        if (entry != nullptr) {
            list_del(&entry->link);
            g_dpm_announced.count--;
        }
    }
    if (entry != nullptr)
        free_zeroed(entry);
}

std::size_t if_announced_count() {
    const locked_entries entries;
    return g_dpm_announced.count;
}

std::uint32_t announced_vlan(std::uint32_t ifindex) {
    const std::uint32_t vlan = vlan_of(ifindex);
    if (vlan == 0)
        DPM_LOG_FROM(
            (call_site{"dpm_if_get_vlanid", __LINE__}),
            "%s %d::if_index %d, can not find same if_entry, or if_type != DPM_IF_VLANIF!\r\n",
            ifindex);
    return vlan;
}

} // namespace dpm
