// Splitting a line, and reading and writing values.

#include "chassis/ctl/words.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <cstdio>

namespace ctl {

namespace {

bool is_blank(char character) {
    return character == ' ' || (character >= '\t' && character <= '\r');
}

template <class Number> bool read_number(std::string_view text, Number &number, int base = 10) {
    const char *const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number, base);
    return !text.empty() && read.ec == std::errc() && read.ptr == end;
}

// A control character; of two bytes where UTF-8 makes one of U+0080 to U+009F.
std::size_t control_bytes(std::string_view text) {
    const auto first = std::uint8_t(text.front());
    const auto second = text.size() > 1 ? std::uint8_t(text[1]) : 0;
    if (first == 0xC2 && second >= 0x80 && second < 0xA0)
        return 2;
    return (first < ' ' && first != '\t' && first != '\n') || first == 0x7F;
}

} // namespace

std::vector<Word> split_words(std::string_view line) {
    std::vector<Word> words;
    for (std::size_t at = 0; at < line.size();) {
        if (is_blank(line[at])) {
            at++;
            continue;
        }
        if (line[at] == '#')
            break;
        const std::size_t start = at;
        while (at < line.size() && !is_blank(line[at]))
            at++;
        words.push_back({line.substr(start, at - start), start + 1});
    }
    return words;
}

bool is_inside(const Prefix &network, const std::uint8_t *address) {
    using namespace chassis;
    return masked(address_bytes(network.family, address), network.length) ==
           masked(network.address, network.length);
}

std::optional<std::uint64_t> parse_number(std::string_view text) {
    const bool hex = text.starts_with("0x");
    std::uint64_t number = 0;
    if (!read_number(hex ? text.substr(2) : text, number, hex ? 16 : 10))
        return std::nullopt;
    return number;
}

std::optional<Prefix> parse_address(std::string_view text) {
    const std::string copy(text);
    Prefix prefix{text.find(':') == text.npos ? 1u : 2u, {}, 0};
    prefix.length = host_length(prefix.family);
    const int family = prefix.family == 1 ? AF_INET : AF_INET6;
    if (inet_pton(family, copy.c_str(), prefix.address.data()) != 1)
        return std::nullopt;
    return prefix;
}

std::optional<Prefix> parse_prefix(std::string_view text) {
    const std::size_t slash = text.find('/');
    if (slash == text.npos)
        return std::nullopt;
    std::optional<Prefix> prefix = parse_address(text.substr(0, slash));
    unsigned length = 0;
    if (!prefix || !read_number(text.substr(slash + 1), length) || length > prefix->length)
        return std::nullopt;
    prefix->length = length;
    return prefix;
}

std::optional<Labels> parse_labels(std::string_view text) {
    const std::size_t slash = text.find('/');
    Labels labels{0, 0, slash != text.npos};
    const std::string_view inner = labels.are_two ? text.substr(slash + 1) : text;
    if (!read_number(text.substr(0, slash), labels.outer) || !read_number(inner, labels.inner) ||
        std::max(labels.outer, labels.inner) > max_label)
        return std::nullopt;
    return labels;
}

std::optional<Timers> parse_timers(std::string_view text) {
    Timers timers{};
    for (std::uint32_t &timer : timers) {
        const std::size_t comma = std::min(text.find(','), text.size());
        const bool is_last = &timer == &timers.back();
        if (!read_number(text.substr(0, comma), timer) || is_last != (comma == text.size()))
            return std::nullopt;
        text.remove_prefix(is_last ? comma : comma + 1);
    }
    return timers;
}

std::optional<std::uint32_t> parse_tunnel(std::string_view text) {
    constexpr std::string_view head = "tunnel";
    std::uint32_t id = 0;
    if (!text.starts_with(head) || !read_number(text.substr(head.size()), id) || id > INT32_MAX ||
        text != std::string(head) + std::to_string(id))
        return std::nullopt;
    return id;
}

std::optional<Mac> parse_mac(std::string_view text) {
    Mac mac{};
    if (text.size() != 3 * mac.size() - 1)
        return std::nullopt;
    for (std::size_t i = 0; i < mac.size(); i++) {
        const bool separated = i + 1 == mac.size() || text[3 * i + 2] == ':';
        if (!separated || !read_number(text.substr(3 * i, 2), mac[i], 16))
            return std::nullopt;
    }
    return mac;
}

bool is_any_source(std::string_view text) {
    return text == "*" || text == "any";
}

bool is_multicast(const Prefix &address) {
    const bool is_ipv4 = host_length(address.family) == 32;
    return is_ipv4 ? address.address[0] >> 4 == 0xE : address.address[0] == 0xFF;
}

std::optional<std::vector<std::uint8_t>> parse_bytes(std::string_view text) {
    std::vector<std::uint8_t> bytes(text.size() / 2);
    if (text.size() % 2 != 0 || bytes.size() > max_frame_bytes)
        return std::nullopt;
    for (std::size_t i = 0; i < bytes.size(); i++)
        if (!read_number(text.substr(2 * i, 2), bytes[i], 16))
            return std::nullopt;
    return bytes;
}

std::optional<std::int64_t> parse_duration(std::string_view text) {
    static constexpr struct {
        std::string_view unit;
        std::int64_t nsec;
    } units[] = {{"ms", 1'000'000},
                 {"s", 1'000'000'000},
                 {"m", 60'000'000'000},
                 {"h", 3'600'000'000'000},
                 {"d", 86'400'000'000'000}};
    std::int32_t number = 0;
    for (const auto &[unit, nsec] : units)
        if (text.ends_with(unit) && number >= 0 &&
            read_number(text.substr(0, text.size() - unit.size()), number) && number >= 0 &&
            number <= 100'000'000'000'000'000 / nsec)
            return number * nsec;
    return std::nullopt;
}

std::string printable(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const std::size_t bytes = control_bytes(text);
        for (std::size_t i = 0; i < bytes; i++) {
            char escape[5];
            std::snprintf(escape, sizeof escape, "\\x%02x", unsigned(std::uint8_t(text[i])));
            shown += escape;
        }
        if (bytes == 0)
            shown += text.front();
        text.remove_prefix(std::max<std::size_t>(bytes, 1));
    }
    return shown;
}

} // namespace ctl
