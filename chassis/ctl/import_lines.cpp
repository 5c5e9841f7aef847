#include "chassis/ctl/import_lines.h"

#include "chassis/ctl/grammar.h"

#include <algorithm>
#include <utility>

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
        const std::size_t count = skipped_words(words_, at_);
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

unsigned type_of(std::string_view protocol) {
    if (protocol == "kernel")
        return connected;
    return protocol == "static" || protocol == "boot" ? fixed : learnt_by_protocol;
}

bool is_zero(std::string_view number) {
    return parse_number(number) == 0u;
}

void read_encap(Words &words, RouteLine &route, std::string &labels) {
    if (words.take("mpls") && type_named("LABELS").takes(words.peek()))
        labels = words.next();
    else
        route.why_skipped = "routes with encap";
    if (words.take("ttl"))
        (void)words.next(), route.why_skipped = "routes with a ttl for their labels";
}

void read_swap(Words &words, RouteLine &route) {
    (void)words.take("to");
    route.swap = words.next();
    if (!type_named("LABEL").takes(route.swap))
        route.why_skipped = "labels that become several";
}

// Packets to one label go one way, and labels are pushed towards a next hop.
void refuse_ways(RouteLine &route) {
    const auto labelled = std::ranges::count_if(
        route.gateways, [](const RouteLine::Gateway &gateway) { return !gateway.labels.empty(); });
    if (route.is_of_label() && route.gateways.size() > 1)
        route.why_skipped = "labels over several next hops";
    else if (labelled != 0 && labelled != std::ptrdiff_t(route.gateways.size()))
        route.why_skipped = "routes with labels for some of their next hops";
}

// Reads what stands behind a destination; false at a word that may change the route's meaning,
// unless the route is skipped anyway.
bool read_attributes(Words &words, RouteLine &route, bool &is_ipv6) {
    bool is_begun = false; // a gateway that has no device yet
    std::string labels;    // of the next one
    while (!words.at_end()) {
        if (words.take("\\") || words.take("nexthop")) { // -o joins lines so
            is_begun = false;
        } else if (words.take("via")) {
            const bool is_foreign = words.take("inet6") || words.take("inet");
            const auto address = parse_address(words.peek());
            if (!address)
                return false;
            is_ipv6 = is_ipv6 || (address->family == 2) != is_foreign;
            route.gateways.push_back({std::string(words.next()), {}, std::exchange(labels, {})});
            is_begun = true;
        } else if (words.take("dev")) {
            if (!is_begun)
                route.gateways.emplace_back();
            route.gateways.back().device = words.next();
            is_begun = false;
        } else if (words.take("proto")) {
            route.type = type_of(words.next());
        } else if (words.take("metric")) {
            route.metric = parse_number(words.next()).value_or(0);
        } else if (words.take("table")) {
            if (const std::string_view table = words.next(); table != "main" && table != "254")
                route.why_skipped = "routes of other tables", route.destination.clear();
        } else if (words.take("encap")) {
            read_encap(words, route, labels);
        } else if (words.take("as")) {
            read_swap(words, route);
        } else if (words.take("tos")) {
            if (!is_zero(words.next()))
                route.why_skipped = "routes of one tos", route.destination.clear();
        } else {
            is_ipv6 = is_ipv6 || words.peek() == "pref"; // said of IPv6 routes alone
            if (words.skip())
                continue;
            if (route.why_skipped.empty())
                return false;
            (void)words.next();
        }
    }
    if (!labels.empty())
        route.why_skipped = "routes with labels and no next hop";
    return true;
}

// Of IPv4 the kernel tells the whole route.
bool leaves_gateways(RouteLine &route, const RouteLine &gone) {
    if (route.gateways.size() < 2 || route.destination.find(':') == std::string::npos)
        return false;
    std::erase_if(route.gateways, [&](const RouteLine::Gateway &gateway) {
        return std::ranges::find(gone.gateways, gateway) != gone.gateways.end();
    });
    return !route.gateways.empty();
}

} // namespace

NeighbourLine read_neighbour(std::string_view line, std::string_view device) {
    Words words(line);
    NeighbourLine neighbour;
    neighbour.device = device;
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

RouteLine read_route(std::string_view line, std::string_view device) {
    Words words(line);
    (void)words.take("unicast");
    RouteLine route;
    if (is_other_kind(words.peek()))
        route.why_skipped = std::string(words.next()) + " routes";
    if (!type_named("DEST").takes(words.peek()) && !type_named("LABEL").takes(words.peek()))
        return route;
    route.destination = words.next();
    route.type = fixed; // ip(8) says nothing of the routes that were typed in
    if (is_link_scoped(route.destination))
        route.why_skipped = "routes of one link";
    bool is_ipv6 = false;
    if (!read_attributes(words, route, is_ipv6))
        return route;
    if (route.destination == "default")
        route.destination = is_ipv6 ? "::/0" : "0.0.0.0/0";
    if (route.gateways.empty() && !device.empty())
        route.gateways.emplace_back();
    for (RouteLine::Gateway &gateway : route.gateways)
        if (gateway.device.empty())
            gateway.device = device;
    refuse_ways(route);
    route.event = words.is_deleted() ? RouteLine::Event::gone : RouteLine::Event::added;
    return route;
}

bool RouteLine::goes_on() const {
    return gateways.empty() && why_skipped.empty() && event != Event::not_understood;
}

bool RouteLine::is_of_label() const {
    return type_named("LABEL").takes(destination);
}

std::optional<RouteLine> KnownRoutes::after(const RouteLine &line) {
    auto &routes = routes_[line.destination];
    const auto same = routes.find(line.metric);
    if (line.event == RouteLine::Event::added)
        routes[line.metric] = line;
    else if (same != routes.end() && !leaves_gateways(same->second, line))
        routes.erase(same);
    if (routes.empty()) {
        routes_.erase(line.destination);
        return line;
    }
    const auto &[metric, counting] = *routes.begin();
    return line.metric <= metric ? std::optional(counting) : std::nullopt;
}

} // namespace ctl
