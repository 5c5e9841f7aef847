// Frames of the link, out and in.

#include "chassis/peer/frame.h"

namespace chassis::peer {

namespace {

constexpr std::string_view hello_name = "hello";

template <class Word> Word word_at(const std::byte *bytes) {
    Word word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

template <class Word> void append_word(std::vector<std::byte> &bytes, std::size_t value) {
    const auto word = Word(value);
    const auto *const first = reinterpret_cast<const std::byte *>(&word);
    bytes.insert(bytes.end(), first, first + sizeof word);
}

} // namespace

std::vector<std::byte> encode_frame(std::string_view name, std::span<const std::byte> payload) {
    std::vector<std::byte> bytes;
    bytes.reserve(sizeof(std::uint32_t) + sizeof(std::uint16_t) + name.size() + payload.size());
    append_word<std::uint32_t>(bytes, sizeof(std::uint16_t) + name.size() + payload.size());
    append_word<std::uint16_t>(bytes, name.size());
    const auto *const text = reinterpret_cast<const std::byte *>(name.data());
    bytes.insert(bytes.end(), text, text + name.size());
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

std::vector<std::byte> encode_hello(const Claim &claim) {
    return encode_frame(hello_name, std::as_bytes(std::span(&claim, 1)));
}

std::optional<Claim> read_hello(const Frame &frame, unsigned slot) {
    return frame.name == hello_name ? read_claim(frame.payload, slot) : std::nullopt;
}

void FrameBuffer::append(std::span<const std::byte> bytes) {
    bytes_.erase(bytes_.begin(), bytes_.begin() + std::ptrdiff_t(std::exchange(taken_, 0)));
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
}

FrameBuffer::Next FrameBuffer::next(Frame &frame) {
    const std::byte *const at = bytes_.data() + taken_;
    const std::size_t left = bytes_.size() - taken_;
    if (left < sizeof(std::uint32_t))
        return Next::incomplete;
    const std::size_t length = word_at<std::uint32_t>(at);
    if (length < sizeof(std::uint16_t) || length > max_frame_bytes)
        return Next::malformed;
    if (left < sizeof(std::uint32_t) + length)
        return Next::incomplete;
    const std::byte *const body = at + sizeof(std::uint32_t);
    const std::size_t name_bytes = word_at<std::uint16_t>(body);
    if (name_bytes > max_frame_name_bytes || sizeof(std::uint16_t) + name_bytes > length)
        return Next::malformed;
    const std::byte *const name = body + sizeof(std::uint16_t);
    frame.name = {reinterpret_cast<const char *>(name), name_bytes};
    frame.payload = {name + name_bytes, length - sizeof(std::uint16_t) - name_bytes};
    taken_ += sizeof(std::uint32_t) + length;
    return Next::frame;
}

} // namespace chassis::peer
