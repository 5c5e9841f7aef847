// One change of what the chip keeps, as plain bytes: what line cards remember while control cards
// come and go.
//
//   kind | there | size | key, and the value when the object is there
//
// A change that comes from a file is read with care: what does not fit its kind is no change.
#pragma once

#include "chassis/chip/kinds.h"

#include <cstring>
#include <optional>
#include <span>
#include <type_traits>
#include <utility>

namespace chassis::chip {

struct Change {
    static constexpr std::size_t max_bytes = 640;
    std::uint32_t kind;  // its place in the list of kinds
    std::uint32_t there; // 1: set to what follows; 0: gone
    std::uint32_t size;  // of the bytes in use
    std::array<std::byte, max_bytes> bytes;

    bool operator==(const Change &other) const {
        return kind == other.kind && there == other.there &&
               std::ranges::equal(used(), other.used());
    }
    std::span<const std::byte> used() const {
        return std::span(bytes).first(std::min<std::size_t>(size, max_bytes));
    }
};
static_assert(std::is_trivially_copyable_v<Change>);

namespace change {

template <class Element> void append(Change &to, std::span<const Element> elements) {
    static_assert(std::has_unique_object_representations_v<Element>, "no byte is left to chance");
    const auto bytes = std::as_bytes(elements);
    const std::size_t count = std::min(bytes.size(), Change::max_bytes - to.size);
    std::copy_n(bytes.begin(), count, to.bytes.begin() + to.size);
    to.size += std::uint32_t(count);
}
template <class Part> void append(Change &to, const Part &part) {
    static_assert(sizeof part <= Change::max_bytes / 2);
    if constexpr (!std::is_empty_v<Part>)
        append(to, std::span<const Part>(&part, 1));
}
template <class Element> void append(Change &to, const std::vector<Element> &elements) {
    append(to, std::span<const Element>(elements));
}
// Of one that is told in parts the last may be as long as it likes.
template <class Part>
concept InParts = requires(Part part) {
    part.parts();
};
template <InParts Part> void append(Change &to, const Part &part) {
    std::apply([&](const auto &...each) { (append(to, each), ...); }, part.parts());
}

template <class Part> bool take(std::span<const std::byte> &from, Part &part) {
    if constexpr (std::is_empty_v<Part>)
        return true;
    if (from.size() < sizeof part)
        return false;
    if constexpr (std::is_same_v<Part, bool>)
        part = from[0] != std::byte{0};
    else
        std::memcpy(&part, from.data(), sizeof part);
    from = from.subspan(sizeof part);
    return true;
}
// All that is left.
template <class Element>
bool take(std::span<const std::byte> &from, std::vector<Element> &elements) {
    for (Element element; !from.empty();)
        if (take(from, element))
            elements.push_back(element);
        else
            return false;
    return true;
}

template <InParts Part> bool take(std::span<const std::byte> &from, Part &part) {
    return std::apply([&](auto &...each) { return (take(from, each) && ...); }, part.parts());
}

} // namespace change

// A null value: the object goes.
template <class Kind>
Change change_of(const typename Kind::Key &key, const typename Kind::Value *value) {
    Change made{number_of<Kind>(), value != nullptr, 0, {}};
    change::append(made, key);
    if (value != nullptr)
        change::append(made, *value);
    return made;
}

// Key and value; none when the bytes are not those of such an object.
template <class Kind>
std::optional<std::pair<typename Kind::Key, typename Kind::Value>> read(const Change &from) {
    std::pair<typename Kind::Key, typename Kind::Value> read{};
    auto bytes = from.used();
    const bool is_whole = from.kind == number_of<Kind>() && change::take(bytes, read.first) &&
                          (from.there == 0 || change::take(bytes, read.second));
    if (!is_whole || !bytes.empty() || (from.there && !Kind::is_valid(read.first, read.second)))
        return std::nullopt;
    return read;
}

} // namespace chassis::chip
