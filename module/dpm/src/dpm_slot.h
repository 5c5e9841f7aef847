// Slots of the shelf, and the bits that restrict a chip request to one of them: a card that comes
// up is programmed without touching the others.
#pragma once

#include <cstdint>

inline constexpr std::uint32_t DPM_SLOT_FIRST = 1;
inline constexpr std::uint32_t DPM_SLOT_LAST = 20;
inline constexpr std::uint32_t DPM_SLOT_ALL_BITS = 0xFFFFFFFF; // no restriction

// The bit of a slot; all bits for a number that is no slot.
constexpr std::uint32_t dpm_slot_obj_bit_get(std::uint32_t slot) {
    return slot >= DPM_SLOT_FIRST && slot <= DPM_SLOT_LAST ? 1u << slot : DPM_SLOT_ALL_BITS;
}
