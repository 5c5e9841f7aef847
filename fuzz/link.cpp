// What arrives from the other card: frames are the same however the stream is cut, and say what
// stood in it; of any two claims both cards make the same of it.
#include "chassis/peer/claim.h"
#include "chassis/peer/frame.h"
#include "fuzz/input.h"

namespace {

using namespace chassis::peer;

constexpr unsigned slots[] = {9, 10};

// The frames of a stream that comes in pieces, end to end, up to one that is malformed.
std::vector<std::byte> frames_of(std::span<const std::byte> stream, std::size_t piece_bytes) {
    FrameBuffer buffer;
    std::vector<std::byte> frames;
    while (!stream.empty()) {
        const auto piece = stream.first(std::min(piece_bytes, stream.size()));
        stream = stream.subspan(piece.size());
        buffer.append(piece);
        Frame frame;
        FrameBuffer::Next next;
        while ((next = buffer.next(frame)) == FrameBuffer::Next::frame) {
            const auto again = encode_frame(frame.name, frame.payload);
            frames.insert(frames.end(), again.begin(), again.end());
        }
        if (next == FrameBuffer::Next::malformed)
            break;
    }
    return frames;
}

void check_claims(std::span<const std::byte> bytes) {
    if (bytes.size() < 2 * sizeof(Claim))
        return;
    const auto nine = read_claim(bytes.first(sizeof(Claim)), slots[0]);
    const auto ten = read_claim(bytes.subspan(sizeof(Claim), sizeof(Claim)), slots[1]);
    if (!nine || !ten)
        return;
    const std::uint64_t term = settled_term(*nine, *ten);
    fuzz::require(is_master_of(*nine, *ten) != is_master_of(*ten, *nine), "one of them is master");
    fuzz::require(term == settled_term(*ten, *nine), "and both know its term");
    fuzz::require(term >= nine->term && term >= ten->term, "which is none of the past");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::size_t piece_bytes = 1 + input.byte();
    const auto rest = std::as_bytes(input.bytes(size));
    const auto whole = frames_of(rest, rest.size());
    fuzz::require(whole == frames_of(rest, piece_bytes), "cuts change nothing");
    fuzz::require(whole.size() <= rest.size() &&
                      std::equal(whole.begin(), whole.end(), rest.begin()),
                  "frames are what arrived");
    check_claims(rest);
    return 0;
}
