// A packet goes through steps, each of which takes it from where it is to the next place, until one
// ends its way.  A step that does not know the place leaves it to the next in the list at the end.
//
// An IP packet that is sent on has one hop less; labels have what the modes of their entry say.
#include "chassis/chip/trace_steps.h"

#include "platform/dal.h"

namespace chassis::chip::tracing {

using std::to_string;

namespace {

constexpr std::uint32_t implicit_null = 3; // no label at all

std::string text_of(const Header &header) {
    return "ttl " + to_string(header.ttl) + " exp " + to_string(header.exp);
}

std::string frame_text(const Frame &frame) {
    const auto tag = [](const char *name, std::uint32_t vlan) {
        return vlan != 0 ? name + to_string(vlan) : "";
    };
    return " frame from " + mac_text(frame.source.data()) + " to " +
           mac_text(frame.destination.data()) + tag(" vlan ", frame.outer) +
           tag(" inner ", frame.inner);
}

} // namespace

std::string packet_text(const Packet &packet) {
    std::string text = " with";
    for (auto label = packet.labels.rbegin(); label != packet.labels.rend(); label++)
        text += " label " + to_string(label->number) + " " + text_of(*label) + ",";
    return text + (packet.destination ? " ip " + text_of(packet.ip)
                   : packet.frame     ? frame_text(*packet.frame)
                                      : " what is behind");
}

namespace {

template <class Hop> std::string hop_text(const Hop &hop, std::uint16_t vlan) {
    return (hop.port_type == 1 ? "trunk " : "port ") + to_string(hop.port_id) + " vlan " +
           to_string(vlan) + " to " + mac_text(hop.mac.data());
}

bool leave(Trace &trace, const LabelHop &hop) {
    return trace.end("out of " + hop_text(hop, hop.vlan) + packet_text(trace.packet));
}

// --- TTL and EXP -----------------------------------------------------------------------------

Header written(const LabelRule &rule, const Header &packet) {
    const bool is_set = rule.ttl_mode == DAL_TTL_SET;
    return {is_set ? rule.ttl : packet.ttl - std::min<unsigned>(packet.ttl, rule.ttl),
            rule.exp_type == DAL_EXP_COPY ? packet.exp : rule.exp};
}

Header &outermost(Packet &packet) {
    return packet.labels.empty() ? packet.ip : packet.labels.back();
}

// What stands behind a popped label takes its TTL over, unless it has less itself: a TTL never grows.
void uncover(Packet &packet, const LabelRule &rule) {
    const Header popped = packet.labels.back();
    packet.labels.pop_back();
    Header &now = outermost(packet);
    if (rule.ttl_mode == DAL_TTL_LESS)
        now.ttl = std::min(now.ttl, written(rule, popped).ttl);
    if (rule.exp_type == DAL_EXP_SET && rule.ttl_mode == DAL_TTL_LESS)
        now.exp = rule.exp;
}

// False, and the end, for a packet that has no hop left.
bool takes_hop(Trace &trace) {
    if (trace.packet.ip.ttl > 1)
        return trace.packet.ip.ttl--, true;
    return !trace.end("its ttl runs out: to the CPU");
}

} // namespace

void push(Trace &trace, const std::string &entry, std::uint32_t number, const LabelRule &rule) {
    if (number == implicit_null)
        return trace.tell(entry + ": no label");
    const Label label{written(rule, outermost(trace.packet)), number};
    trace.packet.labels.push_back(label);
    trace.tell(entry + ": push " + to_string(number) + " " + text_of(label));
}

bool leave_by(Trace &trace, const FtnKey &key, const Ftn &value) {
    push(trace, "label entry " + kinds::entry::key_text(key.tunnel), key.tunnel_label,
         value.tunnel);
    return leave(trace, key.hop);
}

namespace {

// --- steps -----------------------------------------------------------------------------------

// " in gre from IP to IP key N,", with a blank in front.
std::string gre_text(const GreTunnel &tunnel) {
    return " in gre from " + address_text(1, tunnel.source.data()) + " to " +
           address_text(1, tunnel.destination.data()) +
           (tunnel.key != DAL_GRE_NO_KEY ? " key " + to_string(tunnel.key) : "") +
           (tunnel.checksum != 0 ? " with checksum" : "") + ",";
}

// A GRE next hop packs the packet, and names the neighbour on the way to the tunnel's end itself.
std::string nexthop_text(const Chip &chip, Index index) {
    const auto &plain = chip.held<kinds::nexthop>();
    if (const auto nexthop = plain.find(index); nexthop != plain.end())
        return "out of " + hop_text(nexthop->second, nexthop->second.svlan);
    const auto &gre = chip.held<kinds::gre_nexthop>();
    if (const auto nexthop = gre.find(index); nexthop != gre.end())
        return "out of " + hop_text(nexthop->second, std::uint16_t(nexthop->second.vid)) +
               gre_text(nexthop->second.tunnel);
    return "index " + to_string(index);
}

// A policy route stands in front of every look-up; it asks where the packet came in, and from whom.
bool by_stream(Trace &trace) {
    if (!std::exchange(trace.is_coming_in, false) || !trace.packet.port)
        return false;
    for (const auto &[key, target] : trace.chip.held<kinds::stream>()) {
        if (!kinds::stream::matches(key, *trace.packet.port, trace.packet.source,
                                    trace.packet.destination))
            continue;
        trace.tell("redirected by " + kinds::stream::key_text(key));
        trace.target = target;
        return true;
    }
    return false;
}

bool by_target(Trace &trace) {
    if (!trace.target)
        return false;
    if (*trace.target == to_cpu)
        return trace.end("to the CPU");
    if (!takes_hop(trace))
        return true;
    const auto group = trace.chip.held<kinds::group>().find(*trace.target);
    if (group == trace.chip.held<kinds::group>().end())
        return trace.end(nexthop_text(trace.chip, *trace.target) + packet_text(trace.packet));
    trace.tell("group " + to_string(group->first) + ": one of");
    for (const Index member : group->second)
        trace.tell("    " + nexthop_text(trace.chip, member));
    return trace.end((group->second.empty() ? "none: dropped" : "on its way") +
                     packet_text(trace.packet));
}

bool by_incoming_label(Trace &trace) {
    if (trace.packet.labels.empty())
        return false;
    Label &label = trace.packet.labels.back();
    const std::string text = "incoming label " + to_string(label.number) + ": ";
    const auto found = trace.chip.held<kinds::ilm>().find(label.number);
    if (found == trace.chip.held<kinds::ilm>().end())
        return trace.end(text + "no entry, dropped");
    const Ilm &entry = found->second;
    if (entry.action == DAL_ILM_SWAP) {
        label = {written(entry.rule, label), entry.out_label};
        trace.tell(text + "swap for " + to_string(label.number) + " " + text_of(label));
        return label.ttl == 0 ? trace.end("its ttl runs out: to the CPU") : leave(trace, entry.hop);
    }
    uncover(trace.packet, entry.rule);
    trace.packet.vrf = entry.fec.vrf;
    trace.tell(text + "pop" + (entry.lookup ? ", look up in vrf " + to_string(entry.fec.vrf) : ""));
    return entry.lookup || leave(trace, entry.hop);
}

bool by_nothing(Trace &trace) {
    return !trace.packet.destination &&
           trace.end("what stands behind is looked up by an address that is not told");
}

bool covers(const Address &entry, const Address &address) {
    return entry.family == address.family && entry.vrf == address.vrf &&
           masked(entry.bytes, entry.prefix_len) == masked(address.bytes, entry.prefix_len);
}

using Ftns = std::map<FtnKey, Ftn>;

const Address &prefix_of(const FtnKey &key) {
    return key.vpn.family != 0 ? key.vpn : key.tunnel;
}

// Of several to one prefix the first.
Ftns::const_iterator longest_ftn(const Ftns &ftns, const Address &address) {
    auto longest = ftns.end();
    for (auto each = ftns.begin(); each != ftns.end(); each++) {
        const Address &prefix = prefix_of(each->first);
        if (covers(prefix, address) &&
            (longest == ftns.end() || prefix.prefix_len > prefix_of(longest->first).prefix_len))
            longest = each;
    }
    return longest;
}

// A prefix of a VRF names its tunnel, whose own labels and next hop count.
Ftns::const_iterator tunnel_of(const Ftns &ftns, const FtnKey &vpn) {
    const auto found = ftns.lower_bound(FtnKey{vpn.tunnel, {}, 0, 0, {}});
    const bool is_it =
        found != ftns.end() && found->first.tunnel == vpn.tunnel && found->first.vpn.family == 0;
    return is_it ? found : ftns.end();
}

// A label entry counts before an entry of the same length.
bool by_label_entry(Trace &trace) {
    const Ftns &ftns = trace.chip.held<kinds::ftn>();
    const Address &address = *trace.packet.destination;
    auto found = longest_ftn(ftns, address);
    const auto entry = trace.chip.find_entry(address);
    if (found == ftns.end() ||
        (entry && entry->entry.prefix_len > prefix_of(found->first).prefix_len))
        return false;
    if (!takes_hop(trace))
        return true;
    if (const FtnKey vpn = found->first; vpn.vpn.family != 0) {
        push(trace, "label entry " + kinds::entry::key_text(vpn.vpn), vpn.vpn_label,
             found->second.vpn);
        found = tunnel_of(ftns, vpn);
        if (found == ftns.end())
            return trace.end("no tunnel to " + kinds::entry::key_text(vpn.tunnel) + ": dropped");
    }
    return leave_by(trace, found->first, found->second);
}

bool by_entry(Trace &trace) {
    const auto found = trace.chip.find_entry(*trace.packet.destination);
    if (!found)
        return false;
    trace.target = found->index;
    trace.tell("entry " + kinds::entry::key_text(found->entry));
    return true;
}

bool by_default(Trace &trace) {
    const Address &address = *trace.packet.destination;
    const auto &defaults = trace.chip.held<kinds::cpu_default>();
    const auto found = defaults.find({address.family, std::uint32_t(address.vrf)});
    const bool goes_to_cpu = found != defaults.end() && found->second;
    return trace.end(std::string("no entry, ") +
                     (goes_to_cpu ? "by default to the CPU" : "dropped"));
}

// The first that knows the place where the packet is takes it; the last knows all.
constexpr bool (*steps[])(Trace &) = {by_circuit,     by_stream,         by_target,
                                      by_pseudowire,  by_incoming_label, by_nothing,
                                      by_label_entry, by_entry,          by_default};

} // namespace
} // namespace chassis::chip::tracing

namespace chassis::chip {

using namespace tracing;

std::vector<std::string> trace(Chip &chip, const Packet &packet) {
    Trace trace{chip, packet};
    while (!trace.has_ended) { // each look-up has a label less, or ends it
        if (trace.packet.destination)
            trace.packet.destination->vrf = trace.packet.vrf;
        for (const auto step : steps)
            if (step(trace))
                break;
    }
    return trace.lines;
}

} // namespace chassis::chip
