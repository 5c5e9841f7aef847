// ECMP groups: one record for each group of next hops in the chip, with up to eight members.
//
// A group comes with its first member and goes with its last; what points to it keeps its index.
// Duplicates are not looked for.  A ninth member is in the chip but not in the record, and goes
// with the group.  What the chip refuses leaves the record as it was, and is no failure of the
// caller's: the route then waits unprogrammed.
#include "dpm_ecmp.h"

#include "dpm.h"
#include "dpm_driver.h"
#include "dpm_memory.h"
#include "dpm_mirror.h"
#include "dpm_retry.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::uint32_t free_slot = 0;

struct ecmp_record {
    dpm_ecmp_entry entry; // first: the tables see this alone
    std::uint32_t sync;   // that brought it
};

ecmp_record &record_of(dpm_ecmp_entry &group) {
    return reinterpret_cast<ecmp_record &>(group);
}

// A family other than the two is told in the log; what was asked for then counts as done.
bool is_known_type(std::uint32_t ecmp_type, const dpm::call_site &caller) {
    if (dpm::is_known_family(ecmp_type))
        return true;
    DPM_LOG_FROM(caller, "%s %d::ecmp_type = %d is err!\r\n", ecmp_type);
    return false;
}

dpm_ecmp_entry *find(std::uint32_t ecmp_type, std::int32_t sdk_index) {
    dpm_ecmp_entry key = {};
    key.sdk_index = sdk_index;
    return dpm::ecmp_groups(ecmp_type).find(key);
}

std::uint32_t group_count() {
    return g_dpm_global.ecmp_ipv4_tree.numnodes + g_dpm_global.ecmp_ipv6_tree.numnodes;
}

std::uint32_t *slot_holding(dpm_ecmp_entry &group, std::uint32_t host_index) {
    for (std::uint32_t &slot : group.host_sdk)
        if (slot == host_index)
            return &slot;
    return nullptr;
}

// What a mirrored record shows, whatever count it carries.
std::uint32_t member_count(const dpm_ecmp_entry &group) {
    std::uint32_t count = 0;
    for (const std::uint32_t member : group.host_sdk)
        count += member != free_slot;
    return count;
}

void add_member(dpm_ecmp_entry &group, std::uint32_t host_index) {
    if (dpm_driver_ecmp_add(group.ecmp_type, group.sdk_index, host_index, DPM_SLOT_ALL_BITS) != 0)
        return;
    std::uint32_t *slot = slot_holding(group, free_slot);
    if (slot == nullptr || host_index == free_slot)
        return; // deliberate: the chip has a ninth member that the record does not show
    *slot = host_index;
    group.host_cnt++;
}

void forget_member(dpm_ecmp_entry &group, std::uint32_t host_index) {
    std::uint32_t *slot = slot_holding(group, host_index);
    if (slot == nullptr || host_index == free_slot)
        return;
    *slot = free_slot;
    group.host_cnt--;
}

void destroy_kept();

// A group that the chip keeps has no record any more.
void destroy(std::uint32_t ecmp_type, std::int32_t sdk_index) {
    if (dpm_driver_ecmp_destory(ecmp_type, sdk_index, DPM_SLOT_ALL_BITS) == 0)
        return;
    for (dpm_kept_group &kept : g_dpm_index.kept_groups)
        if (kept.sdk_index == 0) {
            kept = {ecmp_type, sdk_index};
            return dpm::retry_later(g_dpm_index.kept_group_timer, destroy_kept);
        }
}

void destroy_kept() {
    for (dpm_kept_group &kept : g_dpm_index.kept_groups) {
        const dpm_kept_group group = std::exchange(kept, {});
        if (group.sdk_index != 0)
            destroy(group.ecmp_type, group.sdk_index);
    }
}

// The last member has gone: the group ends in the chip, on the peer and here.
void end_group(dpm_ecmp_entry &group, std::int32_t *sdk_index) {
    const std::uint32_t ecmp_type = group.ecmp_type;
    destroy(ecmp_type, group.sdk_index);
    (void)dpm_ecmp_entry_del_sync_send(&group);
    dpm::ecmp_groups(ecmp_type).remove(group);
    dpm::free_zeroed(&record_of(group));
    *sdk_index = 0;
}

dpm_ecmp_entry *create_group(std::uint32_t ecmp_type, std::int32_t *sdk_index, int &result,
                             const dpm::call_site &caller) {
    result = -1;
    if (group_count() >= DPM_ECMP_CAPACITY) {
        DPM_LOG_FROM(caller, "%s %d::ecmp entry is full!!!\r\n");
        return nullptr;
    }
    if (dpm_driver_ecmp_creat(ecmp_type, sdk_index, DPM_SLOT_ALL_BITS) != 0 || *sdk_index <= 0 ||
        find(ecmp_type, *sdk_index) != nullptr) {
        DPM_LOG_FROM(caller, "%s %d::driver create ecmp failed!\r\n");
        *sdk_index = 0;
        result = 0; // the route waits unprogrammed
        return nullptr;
    }
    dpm::block<ecmp_record> record;
    if (!record) {
        destroy(ecmp_type, *sdk_index);
        *sdk_index = 0;
        return nullptr;
    }
    record->entry.ecmp_type = ecmp_type;
    record->entry.sdk_index = *sdk_index;
    return &record.release()->entry;
}

struct ecmp_mirror : dpm::mirror_defaults<dpm_ecmp_entry> {
    static constexpr auto add_code = DPM_MSG_SYNC_ADD_ECMP, del_code = DPM_MSG_SYNC_DEL_ECMP;
    static constexpr const char *driver_sync_text = "%s %d::slot_bit = %d, ecmp driver sync.\r\n";
    static constexpr const char *empty_first_text = "%s %d::ipv4 ecmp tree is null.\r\n";
    static constexpr const char *table_sync_text = "%s %d::slot %d, ecmp table sync.\r\n";
    static void create() {
        dpm::ecmp_groups(DPM_FAMILY_IPV4).create();
        dpm::ecmp_groups(DPM_FAMILY_IPV6).create();
    }
    static std::span<dpm_avl_tree *const> trees() {
        static constexpr dpm_avl_tree *const list[] = {&g_dpm_global.ecmp_ipv4_tree,
                                                       &g_dpm_global.ecmp_ipv6_tree};
        return list;
    }
    static bool reprogram(const dpm_ecmp_entry &group, std::uint32_t slot_bits) {
        std::int32_t sdk_index = group.sdk_index; // the slot's group takes the index that is known
        (void)dpm_driver_ecmp_creat(group.ecmp_type, &sdk_index, slot_bits);
        for (const std::uint32_t member : group.host_sdk)
            if (member != free_slot)
                (void)dpm_driver_ecmp_add(group.ecmp_type, group.sdk_index, member, slot_bits);
        return true;
    }
    static bool localise_key(entry &image, const dpm::call_site &caller) {
        return is_known_type(image.ecmp_type, caller);
    }
    static entry *find(const entry &image) { return dpm::ecmp_groups(image.ecmp_type).find(image); }
    static entry *put(const entry &image, entry *present) {
        if (present == nullptr) {
            dpm::block<ecmp_record> record;
            if (!record)
                return nullptr;
            record->entry = image;
            (void)dpm::ecmp_groups(image.ecmp_type).add(record->entry);
            present = &record.release()->entry;
        }
        std::memcpy(present->host_sdk, image.host_sdk, sizeof present->host_sdk);
        present->host_cnt = member_count(image);
        return present;
    }
    static void drop(entry &present) {
        g_dpm_index.group_gone = present.sdk_index;
        dpm::ecmp_groups(present.ecmp_type).remove(present);
        dpm::free_zeroed(&record_of(present));
    }
    static std::uint32_t &sync_of(entry &present) { return record_of(present).sync; }
};

} // namespace

#define LOG_MEMBERS(caller, group, format, ...)                                                    \
    DPM_LOG_FROM(caller, format, __VA_ARGS__, group->host_sdk[0], group->host_sdk[1],              \
                 group->host_sdk[2], group->host_sdk[3], group->host_sdk[4], group->host_sdk[5],   \
                 group->host_sdk[6], group->host_sdk[7])

// clang-format off
DPM_MIRRORED_TABLE(ecmp_mirror, mirrored_groups,
                   dpm_ecmp_entry_add_sync_send, dpm_ecmp_entry_add_sync_receive,
                   dpm_ecmp_entry_add_sync_process,
                   dpm_ecmp_entry_del_sync_send, dpm_ecmp_entry_del_sync_receive,
                   dpm_ecmp_entry_del_sync_process,
                   dpm_ecmp_entry_sync_all_send, dpm_ecmp_entry_sync_all_receive)
// clang-format on

namespace dpm {

ecmp_table ecmp_groups(std::uint32_t ecmp_type) {
    return ecmp_table(ecmp_type == DPM_FAMILY_IPV4 ? g_dpm_global.ecmp_ipv4_tree
                                                   : g_dpm_global.ecmp_ipv6_tree);
}

void ecmp_groups_uncount() {
    for (dpm_kept_group &kept : g_dpm_index.kept_groups) // another card's chip since
        kept = {};
    for (const std::uint32_t ecmp_type : {DPM_FAMILY_IPV4, DPM_FAMILY_IPV6})
        for (dpm_ecmp_entry &group : ecmp_groups(ecmp_type))
            group.host_cnt = 0;
}

void ecmp_groups_drop_uncounted() {
    for (const std::uint32_t ecmp_type : {DPM_FAMILY_IPV4, DPM_FAMILY_IPV6})
        for (dpm_ecmp_entry &group : ecmp_groups(ecmp_type).erasable())
            if (group.host_cnt == 0)
                ecmp_mirror::drop(group);
}

int ecmp_group::add(std::uint32_t host_index) {
    const call_site caller = {"dpm_ecmp_add", __LINE__};
    if (!is_known_type(ecmp_type_, caller))
        return 0;
    if (sdk_index_ == 0) {
        int result;
        entry_ = create_group(ecmp_type_, &sdk_index_, result, caller);
        if (entry_ == nullptr)
            return result;
        add_member(*entry_, host_index);
        (void)ecmp_groups(ecmp_type_).add(*entry_);
    } else if (!is_found()) {
        DPM_LOG_FROM(caller, "%s %d::sdk_index = %d, can not find same ecmp_entry!\r\n",
                     sdk_index_);
        return -1;
    } else {
        add_member(*entry_, host_index);
    }
    LOG_MEMBERS(caller, entry_,
                "%s %d::sdk_index %d host_cnt %d host_sdk %d/%d/%d/%d/%d/%d/%d/%d\r\n",
                entry_->sdk_index, entry_->host_cnt);
    (void)dpm_ecmp_entry_add_sync_send(entry_);
    return 0;
}

int ecmp_group::remove(std::uint32_t host_index) {
    const call_site caller = {"dpm_ecmp_del", __LINE__};
    if (!is_known_type(ecmp_type_, caller))
        return 0;
    if (!is_found()) {
        DPM_LOG_FROM(caller,
                     "%s %d::sdk_index = %d, can not find same ecmp_entry in ecmp_tree!\r\n",
                     sdk_index_);
        return -1;
    }
    LOG_MEMBERS(caller, entry_, "%s %d::sdk_index = %d, host_index %d/%d/%d/%d/%d/%d/%d/%d .\r\n",
                entry_->sdk_index);
    if (dpm_driver_ecmp_del(ecmp_type_, entry_->sdk_index, host_index, DPM_SLOT_ALL_BITS) == 0) {
        forget_member(*entry_, host_index);
        if (entry_->host_cnt == 0) {
            end_group(*std::exchange(entry_, nullptr), &sdk_index_);
            return 0;
        }
    }
    (void)dpm_ecmp_entry_add_sync_send(entry_);
    return 0;
}

bool ecmp_group::is_empty() {
    return sdk_index_ != 0 && is_found() && entry_->host_cnt == 0;
}

std::uint32_t ecmp_group::count(std::uint32_t host_index) {
    if (sdk_index_ == 0 || !is_found())
        return 0;
    return static_cast<std::uint32_t>(
        std::count(entry_->host_sdk, entry_->host_sdk + DPM_ECMP_MEMBERS, host_index));
}

bool ecmp_group::keep() {
    if (sdk_index_ == 0 || !is_found())
        return sdk_index_ == 0 || sdk_index_ != g_dpm_index.group_gone;
    entry_->host_cnt = member_count(*entry_);
    return true;
}

bool ecmp_group::recount(const std::int32_t (&host_index)[DPM_ECMP_MEMBERS]) {
    if (sdk_index_ == 0 || !is_found())
        return false;
    entry_->host_cnt = 0;
    std::memset(entry_->host_sdk, 0, sizeof entry_->host_sdk);
    for (const std::int32_t member : host_index)
        if (member > 0)
            entry_->host_sdk[entry_->host_cnt++] = static_cast<std::uint32_t>(member);
    return entry_->host_cnt != 0;
}

bool ecmp_group::is_found() {
    if (entry_ == nullptr)
        entry_ = ::find(ecmp_type_, sdk_index_);
    return entry_ != nullptr;
}

} // namespace dpm

int dpm_ecmp_add(std::uint32_t ecmp_type, std::int32_t *sdk_index, std::uint32_t host_index) {
    if (sdk_index == nullptr)
        return dpm::null_parameter();
    return dpm::ecmp_group(ecmp_type, *sdk_index).add(host_index);
}

int dpm_ecmp_del(std::uint32_t ecmp_type, std::int32_t *sdk_index, std::uint32_t host_index) {
    if (sdk_index == nullptr)
        return dpm::null_parameter();
    return dpm::ecmp_group(ecmp_type, *sdk_index).remove(host_index);
}

int dpm_ecmp_del_all(std::uint32_t ecmp_type, std::int32_t *sdk_index) {
    if (sdk_index == nullptr)
        return dpm::null_parameter();
    if (!dpm::is_known_family(ecmp_type))
        return 0;
    dpm_ecmp_entry *group = find(ecmp_type, *sdk_index);
    if (group == nullptr) {
        DPM_TRACE("%s %d::sdk_index = %d, can not find same ecmp_entry.\r\n", *sdk_index);
        return -1;
    }
    LOG_MEMBERS(DPM_CALL_SITE, group,
                "%s %d::ecmp_type %d sdk_index %d host_index %d/%d/%d/%d/%d/%d/%d/%d .\r\n",
                ecmp_type, group->sdk_index);
    for (std::uint32_t &slot : group->host_sdk) {
        if (slot == free_slot)
            continue;
        if (dpm_driver_ecmp_del(ecmp_type, group->sdk_index, slot, DPM_SLOT_ALL_BITS) != 0)
            DPM_LOG(DPM_LEVEL_ERROR,
                    "%s %d:: driver_ecmp_del failed! ecmp_type %d sdk_index %d host_index %d\r\n",
                    ecmp_type, group->sdk_index, slot);
        slot = free_slot;
        group->host_cnt--;
    }
    end_group(*group, sdk_index);
    return 0;
}

dpm_ecmp_entry *dpm_ecmp_find_by_entry(std::uint32_t ecmp_type, const dpm_ecmp_entry *key) {
    if (!is_known_type(ecmp_type, DPM_CALL_SITE))
        return nullptr;
    return dpm::ecmp_groups(ecmp_type).find(*key);
}
