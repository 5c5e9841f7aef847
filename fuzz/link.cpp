// What arrives from the other card: frames are the same however the stream is cut, and say what
// stood in it; of any two hellos both cards make the same.
#include "chassis/peer/frame.h"
#include "fuzz/input.h"

namespace {

using namespace chassis::peer;

struct Arrived {
    std::vector<std::byte> bytes;   // of the frames, end to end, up to one that is malformed
    std::optional<Claim> nine, ten; // as each card last said hello
};

void take(const Frame &frame, Arrived &arrived) {
    const auto again = encode_frame(frame.name, frame.payload);
    arrived.bytes.insert(arrived.bytes.end(), again.begin(), again.end());
    for (const unsigned slot : {9u, 10u})
        if (const auto claim = read_hello(frame, slot)) {
            (slot == 9 ? arrived.nine : arrived.ten) = claim;
            fuzz::require(encode_hello(*claim) == again, "a hello says what it is");
        }
}

Arrived arrive(std::span<const std::byte> stream, std::size_t piece_bytes) {
    FrameBuffer buffer;
    Arrived arrived;
    FrameBuffer::Next next{};
    while (!stream.empty() && next != FrameBuffer::Next::malformed) {
        const auto piece = stream.first(std::min(piece_bytes, stream.size()));
        stream = stream.subspan(piece.size());
        buffer.append(piece);
        for (Frame frame; (next = buffer.next(frame)) == FrameBuffer::Next::frame;)
            take(frame, arrived);
    }
    return arrived;
}

void check_claims(const Claim &nine, const Claim &ten) {
    const std::uint64_t term = settled_term(nine, ten);
    fuzz::require(is_master_of(nine, ten) != is_master_of(ten, nine), "one of them is master");
    fuzz::require(term == settled_term(ten, nine), "and both know its term");
    fuzz::require(term >= nine.term && term >= ten.term, "which is none of the past");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::size_t piece_bytes = 1 + input.byte();
    const auto rest = std::as_bytes(input.bytes(size));
    const Arrived whole = arrive(rest, rest.size());
    fuzz::require(whole.bytes == arrive(rest, piece_bytes).bytes, "cuts change nothing");
    fuzz::require(whole.bytes.size() <= rest.size() &&
                      std::equal(whole.bytes.begin(), whole.bytes.end(), rest.begin()),
                  "frames are what arrived");
    if (whole.nine && whole.ten)
        check_claims(*whole.nine, *whole.ten);
    return 0;
}
