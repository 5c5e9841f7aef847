// Takes a fuzzer's input apart.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

namespace fuzz {

class Input {
public:
    Input(const std::uint8_t *data, std::size_t size) : rest_(data, size) {}
    bool empty() const { return rest_.empty(); }
    std::uint8_t byte() {
        if (rest_.empty())
            return 0;
        const std::uint8_t value = rest_.front();
        rest_ = rest_.subspan(1);
        return value;
    }
    // At most so many bytes; fewer at the end.
    std::span<const std::uint8_t> bytes(std::size_t count) {
        const auto taken = rest_.first(std::min(count, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return taken;
    }

private:
    std::span<const std::uint8_t> rest_;
};

inline constexpr std::size_t max_block_bytes = 1u << 24;

// A heap block of exactly this size, so that a read past it is seen.
using Block = std::unique_ptr<std::uint8_t, decltype(&std::free)>;
inline Block exact_block(std::size_t size) {
    if (size > max_block_bytes)
        std::abort(); // no input is that long
    Block block(static_cast<std::uint8_t *>(std::malloc(std::max<std::size_t>(size, 1))),
                std::free);
    std::memset(block.get(), 0, size);
    return block;
}

// What must hold, holds; otherwise the fuzzer keeps the input.
inline void require(bool holds, const char *what) {
    if (holds)
        return;
    std::fprintf(stderr, "violated: %s\n", what);
    std::abort();
}

} // namespace fuzz
