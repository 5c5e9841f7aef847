#include "chassis/ctl/import_lines.h"

#include "chassis/ctl/grammar.h"

#include <algorithm>

namespace ctl {

namespace {

constexpr unsigned connected = 2, fixed = 3, learnt_by_protocol = 9; // types of routes

// The words behind labels, time stamps and "Deleted", one after the other.
class Words {
public:
    explicit Words(std::string_view line) {
        std::size_t start = line.find_first_not_of(" \t");
        while (start < line.size() && line[start] == '[')
            start =
                line.find_first_not_of(" \t", std::min(line.find(']', start), line.size() - 1) + 1);
        words_ = split_words(line.substr(std::min(start, line.size())));
        is_deleted_ = take("Deleted");
    }

    bool is_deleted() const { return is_deleted_; }
    bool at_end() const { return at_ >= words_.size(); }
    std::string_view peek() const { return at_end() ? std::string_view() : words_[at_].text; }
    std::string_view next() { return at_end() ? std::string_view() : words_[at_++].text; }
    bool take(std::string_view word) {
        const bool is_there = peek() == word;
        at_ += is_there;
        return is_there;
    }
    // What means nothing here; false when the next word is something else.
    bool skip() {
        const std::size_t count = skipped_words(peek());
        at_ += count;
        return count > 0;
    }

private:
    std::vector<Word> words_;
    std::size_t at_ = 0;
    bool is_deleted_ = false;
};

NeighbourLine::Event event_of(bool deleted, std::string_view state, const std::string &mac) {
    if (deleted || state == "FAILED")
        return NeighbourLine::Event::lost;
    const auto bytes = parse_mac(mac);
    const bool usable = bytes && !((*bytes)[0] & 1); // groups have no neighbour
    for (const std::string_view resolved :
         {"REACHABLE", "STALE", "PERMANENT", "DELAY", "PROBE", "NOARP"})
        if (state == resolved && usable)
            return NeighbourLine::Event::learnt;
    return NeighbourLine::Event::none;
}

// Routes that forward nothing, or that every stack has of its own.
bool is_other_kind(std::string_view word) {
    for (const std::string_view kind : {"unreachable", "blackhole", "prohibit", "throw", "local",
                                        "broadcast", "anycast", "multicast", "nat"})
        if (word == kind)
            return true;
    return false;
}

bool is_link_scoped(std::string_view destination) {
    const auto address = parse_address(destination.substr(0, destination.find('/')));
    return address && address->family == 2 &&
           (address->address[0] == 0xFF ||
            (address->address[0] == 0xFE && (address->address[1] & 0xC0) == 0x80));
}

RouteLine skipped(std::string why) {
    RouteLine route;
    route.event = RouteLine::Event::skipped;
    route.why_skipped = std::move(why);
    return route;
}

unsigned type_of(std::string_view protocol) {
    if (protocol == "kernel")
        return connected;
    return protocol == "static" || protocol == "boot" ? fixed : learnt_by_protocol;
}

// What stands behind a destination.
struct Attributes {
    std::vector<RouteLine::Gateway> gateways;
    unsigned type = fixed; // ip(8) says nothing of the routes that were typed in
    bool is_ipv6 = false;  // as its words tell
};

// False at a word that changes the route's meaning.
bool read_attributes(Words &words, Attributes &route) {
    bool is_begun = false; // a gateway that has no device yet
    while (!words.at_end()) {
        if (words.take("\\") || words.take("nexthop")) { // -o joins lines so
            is_begun = false;
        } else if (words.take("via")) {
            const bool is_foreign = words.take("inet6") || words.take("inet");
            const auto address = parse_address(words.peek());
            if (!address)
                return false;
            route.is_ipv6 = route.is_ipv6 || (address->family == 2) != is_foreign;
            route.gateways.push_back({std::string(words.next()), {}});
            is_begun = true;
        } else if (words.take("dev")) {
            if (!is_begun)
                route.gateways.emplace_back();
            route.gateways.back().device = words.next();
            is_begun = false;
        } else if (words.take("proto")) {
            route.type = type_of(words.next());
        } else {
            route.is_ipv6 = route.is_ipv6 || words.peek() == "pref"; // said of IPv6 routes alone
            if (!words.skip())
                return false;
        }
    }
    return true;
}

} // namespace

NeighbourLine read_neighbour(std::string_view line) {
    Words words(line);
    NeighbourLine neighbour;
    if (!parse_address(words.peek()))
        return neighbour;
    neighbour.address = words.next();
    std::string_view state;
    const Type &states = type_named("NUD");
    while (!words.at_end()) {
        if (words.take("dev"))
            neighbour.device = words.next();
        else if (words.take("lladdr"))
            neighbour.mac = words.next();
        else if (states.takes(words.peek()))
            state = words.next();
        else if (!words.skip())
            return neighbour;
    }
    const bool is_neighbour = !state.empty() || !neighbour.mac.empty(); // else a route to a host
    if (!neighbour.device.empty() && is_neighbour)
        neighbour.event = event_of(words.is_deleted(), state, neighbour.mac);
    return neighbour;
}

RouteLine read_route(std::string_view line) {
    Words words(line);
    (void)words.take("unicast");
    if (is_other_kind(words.peek()))
        return skipped(std::string(words.peek()) + " routes");
    RouteLine route;
    if (!type_named("DEST").takes(words.peek()))
        return route;
    route.destination = words.next();
    if (is_link_scoped(route.destination))
        return skipped("routes of one link");
    Attributes attributes;
    if (!read_attributes(words, attributes))
        return route;
    if (route.destination == "default")
        route.destination = attributes.is_ipv6 ? "::/0" : "0.0.0.0/0";
    route.gateways = std::move(attributes.gateways);
    route.type = attributes.type;
    route.event = words.is_deleted() ? RouteLine::Event::gone : RouteLine::Event::added;
    return route;
}

bool RouteLine::goes_on() const {
    return gateways.empty() && (event == Event::added || event == Event::gone);
}

RouteLine SeveralGateways::whole(RouteLine route) {
    const auto known = routes_.find(route.destination);
    if (route.event == RouteLine::Event::gone && known != routes_.end()) {
        std::erase_if(known->second, [&](const RouteLine::Gateway &gateway) {
            return std::ranges::find(route.gateways, gateway) != route.gateways.end();
        });
        if (!known->second.empty()) {
            route.event = RouteLine::Event::added;
            route.gateways = known->second;
        }
    }
    if (known != routes_.end())
        routes_.erase(known);
    const bool is_ipv6 = route.destination.find(':') != route.destination.npos;
    if (is_ipv6 && route.event == RouteLine::Event::added && route.gateways.size() > 1)
        routes_[route.destination] = route.gateways;
    return route;
}

} // namespace ctl
