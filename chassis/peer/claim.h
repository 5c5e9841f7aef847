// What a card says of itself to the other, in its hello and in every heartbeat, and which of two
// cards is the master.
//
// Each take-over has a term, one above the last that the card has heard of.  Of two masters the one
// of the higher term stays: the other was left behind by a take-over that it did not see.  Both
// cards decide from the same two claims, and so decide alike.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

namespace chassis::peer {

enum class Standing : std::uint32_t { standby, master, leaving };

struct Claim { // as it travels
    std::uint32_t magic;
    std::uint32_t version;
    std::uint32_t slot;
    Standing standing;
    std::uint64_t term;

    bool is_master() const { return standing == Standing::master; }
    bool operator==(const Claim &) const = default;
};
static_assert(sizeof(Claim) == 24);

inline constexpr std::uint32_t claim_magic = 0x53484c46;
inline constexpr std::uint32_t claim_version = 2;
inline constexpr std::uint64_t max_term = std::uint64_t(1) << 62; // leaves room for one above

// Nothing when the bytes are no claim of the card in that slot.
inline std::optional<Claim> read_claim(std::span<const std::byte> bytes, unsigned slot) {
    Claim claim;
    if (bytes.size() != sizeof claim)
        return std::nullopt;
    std::memcpy(&claim, bytes.data(), sizeof claim);
    const bool is_good = claim.magic == claim_magic && claim.version == claim_version &&
                         claim.slot == slot && claim.standing <= Standing::leaving &&
                         claim.term < max_term;
    return is_good ? std::optional(claim) : std::nullopt;
}

// A master stays master; of two, and of none, it is the higher term, then the lower slot.
inline bool is_master_of(const Claim &own, const Claim &other) {
    if (own.is_master() != other.is_master())
        return own.is_master();
    return own.term != other.term ? own.term > other.term : own.slot < other.slot;
}

// The term of whoever is master then: the master's own, unless the other card was master in it too,
// or has heard of a later one.
inline std::uint64_t settled_term(const Claim &one, const Claim &two) {
    const bool first = is_master_of(one, two);
    const Claim &winner = first ? one : two;
    const Claim &other = first ? two : one;
    const bool is_its_own = winner.is_master() && (other.is_master() ? winner.term > other.term
                                                                     : winner.term >= other.term);
    return is_its_own ? winner.term : std::max(one.term, two.term) + 1;
}

} // namespace chassis::peer
