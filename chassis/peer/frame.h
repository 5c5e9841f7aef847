// Frames of the link: u32 length of what follows, u16 length of the name, name, payload;
// little-endian.
//
// Whatever arrives is untrusted: a length past the bound, or a name longer than the frame, is
// malformed and ends the connection.
#pragma once

#include "chassis/peer/peer.h"

#include <cstring>
#include <optional>
#include <utility>

namespace chassis::peer {

inline constexpr std::size_t max_frame_name_bytes = 96;
inline constexpr std::size_t max_frame_bytes =
    sizeof(std::uint16_t) + max_frame_name_bytes + max_call_bytes;

struct Frame { // a view into the buffer that it was taken from
    std::string_view name;
    std::span<const std::byte> payload;
};

std::vector<std::byte> encode_frame(std::string_view name, std::span<const std::byte> payload);

// The first frame of a connection, from either side: a claim, under a name that no receiver has.
std::vector<std::byte> encode_hello(const Claim &claim);
// Nothing when it is no hello of the card in that slot.
std::optional<Claim> read_hello(const Frame &frame, unsigned slot);

// Collects bytes and takes whole frames from them.
class FrameBuffer {
public:
    void append(std::span<const std::byte> bytes);
    enum class Next { frame, incomplete, malformed };
    // The frame is good until the next append().
    Next next(Frame &frame);

private:
    std::vector<std::byte> bytes_;
    std::size_t taken_ = 0;
};

} // namespace chassis::peer
