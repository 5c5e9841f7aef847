// What the chip forwards by: where a packet goes, and how another chip comes to forward alike.
#include "chassis/chip/objects.h"

namespace chassis::chip {

namespace {

bool is_host(const Address &key) {
    return key.prefix_len == host_length(key.family);
}

// The network of a prefix: the same key for every address inside it.
Address network_of(Address key) {
    key.bytes = masked(key.bytes, key.prefix_len);
    return key;
}

} // namespace

void Beside<kinds::entry>::add(const Address &key, Index) {
    if (is_host(key))
        return;
    networks[network_of(key)].push_back(key);
    lengths[{key.vrf, key.family}][key.prefix_len]++;
}

void Beside<kinds::entry>::remove(const Address &key, Index) {
    if (is_host(key))
        return;
    const auto same = networks.find(network_of(key));
    std::erase(same->second, key);
    if (same->second.empty())
        networks.erase(same);
    lengths[{key.vrf, key.family}][key.prefix_len]--;
}

std::optional<Answer> Chip::lookup(std::int32_t vrf, std::uint32_t family,
                                   const std::uint8_t *address) const {
    if (!is_family(family))
        return std::nullopt;
    const std::lock_guard guard(mutex_);
    return find_entry({vrf, family, address_bytes(family, address), host_length(family)});
}

std::optional<Answer> Chip::find_entry(Address host) const {
    const Objects<kinds::entry> &entries = objects<kinds::entry>();
    const auto lengths = entries.beside.lengths.find({host.vrf, host.family});
    auto found = entries.held.find(host);
    for (int length = int(host.prefix_len) - 1; found == entries.held.end() && length >= 0;
         length--) {
        if (lengths == entries.beside.lengths.end() || lengths->second[unsigned(length)] == 0)
            continue;
        host.prefix_len = unsigned(length);
        const auto network = entries.beside.networks.find(network_of(host));
        if (network != entries.beside.networks.end())
            found = entries.held.find(network->second.back());
    }
    if (found == entries.held.end())
        return std::nullopt;
    const auto &[entry, index] = *found;
    const auto group = held<kinds::group>().find(index);
    if (group != held<kinds::group>().end())
        return Answer{entry, index, true, group->second};
    if (!lacking<kinds::entry>(index).empty()) // a group that has gone: it forwards nowhere
        return Answer{entry, index, true, {}};
    return Answer{entry, index, false, {index}};
}

// --- changes ---------------------------------------------------------------------------------

void Chip::observe(std::function<void(const Change &)> observer) {
    const std::lock_guard guard(mutex_);
    observer_ = std::move(observer);
}

void Chip::take_over(const Chip &other) {
    if (this == &other)
        return;
    const std::scoped_lock guard(mutex_, other.mutex_);
    next_index_ = std::max(next_index_, other.next_index_);
    learning = {};
    each_kind([&]<class Kind>(Kind) {
        if (Kind::outlives_card)
            objects<Kind>() = other.objects<Kind>();
    });
}

// A change may repeat what is there, or take away what is not: then nothing happens.
template <class Kind> bool Chip::apply_to(const Change &change) {
    const auto object = read<Kind>(change);
    if (!object)
        return false;
    if (change.there)
        keep<Kind>(object->first, object->second);
    else if (held<Kind>().contains(object->first))
        forget<Kind>(object->first);
    return true;
}

bool Chip::apply(const Change &change) {
    const std::lock_guard guard(mutex_);
    const auto observer = std::exchange(observer_, nullptr);
    bool is_applied = false;
    each_kind([&]<class Kind>(Kind) {
        if constexpr (Kind::outlives_card)
            if (change.kind == number_of<Kind>())
                is_applied = apply_to<Kind>(change);
    });
    observer_ = observer;
    return is_applied;
}

std::vector<Change> Chip::forwarding() const {
    std::vector<Change> changes;
    each_kind([&]<class Kind>(Kind) {
        if constexpr (Kind::outlives_card)
            for (const auto &[key, value] : held<Kind>())
                changes.push_back(change_of<Kind>(key, &value));
    });
    return changes;
}

} // namespace chassis::chip
