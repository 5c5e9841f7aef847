// Frames of layer-2 services: from a circuit over a pseudowire or through a virtual bridge, and back.
//
// A frame keeps its tags on the way; where it leaves by a circuit it has those of the circuit.
#include "chassis/chip/trace_steps.h"

#include "platform/dal.h"

namespace chassis::chip::tracing {

namespace {

using std::to_string;

constexpr LabelRule pseudowire_rule{DAL_TTL_SET, 255, DAL_EXP_SET, 0};

// --- pseudowires -----------------------------------------------------------------------------

// The label that the peer knows it by, under those of the path to the peer.
bool leave_over(Trace &trace, const std::string &name, const Wire &wire) {
    const char *const how = wire.control_word != 0 ? ", with a control word" : "";
    push(trace, name + how, wire.out_label, pseudowire_rule);
    const FtnKey *const path = trace.chip.beside<kinds::ftn>().find(wire.path);
    if (path == nullptr)
        return trace.end("its label path is not there: dropped");
    return leave_by(trace, *path, trace.chip.held<kinds::ftn>().at(*path));
}

// Of a redundancy group the one that it uses.
bool leave_over(Trace &trace, const Pseudowire &key, const Vpws &value) {
    const auto &services = trace.chip.held<kinds::vpws>();
    const auto group = trace.chip.held<kinds::pw_group>().find(value.aps_id);
    if (group == trace.chip.held<kinds::pw_group>().end())
        return leave_over(trace, kinds::vpws::key_text(key), value.wire);
    const std::string text = "group " + to_string(value.aps_id) + " uses its " +
                             kinds::pw_group::value_text(group->second);
    const auto is_used = [&](const Pseudowire &member) {
        return services.at(member).role == group->second;
    };
    const Pseudowire *const used =
        trace.chip.beside<kinds::vpws>().members.find_if(value.aps_id, is_used);
    if (used == nullptr)
        return trace.end(text + ", which is not there: dropped");
    trace.tell(text);
    return leave_over(trace, kinds::vpws::key_text(*used), services.at(*used).wire);
}

// Tags of 0 are the frame's own.
bool leave_to(Trace &trace, std::uint32_t port, std::uint32_t outer, std::uint32_t inner) {
    std::string text = "out of port " + to_string(port);
    if (std::optional<Frame> &frame = trace.packet.frame) {
        frame->outer = outer != 0 ? outer : frame->outer;
        frame->inner = inner != 0 ? inner : frame->inner;
    } else {
        text += (outer != 0 ? " vlan " + to_string(outer) : "") +
                (inner != 0 ? " inner " + to_string(inner) : "");
    }
    return trace.end(text + packet_text(trace.packet));
}

bool leave_to(Trace &trace, const Pseudowire &key, const Vpws &value) {
    const Match first = kinds::vpws::matches(key, value).front();
    return leave_to(trace, first.port, value.vlans.bits.empty() ? first.outer : 0, first.inner);
}

// --- virtual bridges -------------------------------------------------------------------------

struct Port { // one of the two is there
    Index logic_port;
    const std::pair<const VplsCircuit, VplsAc> *circuit = nullptr;
    const std::pair<const Pseudowire, VplsPw> *pseudowire = nullptr;

    bool is_mesh() const { return pseudowire != nullptr && pseudowire->second.is_spoke == 0; }
    std::string text() const {
        return circuit != nullptr
                   ? "circuit " + kinds::vpls_ac::key_text(circuit->first)
                   : "pseudowire to " + address_text(1, pseudowire->first.peer.data());
    }
};

std::vector<Port> ports_of(const Chip &chip, std::uint32_t vpls_id) {
    std::vector<Port> ports;
    for (const auto &circuit : chip.held<kinds::vpls_ac>())
        if (circuit.second.vpls_id == vpls_id)
            ports.push_back({circuit.second.logic_port, &circuit});
    const auto &pseudowires = chip.held<kinds::vpls_pw>();
    for (auto at = pseudowires.lower_bound({vpls_id, {}});
         at != pseudowires.end() && at->first.id == vpls_id; at++)
        ports.push_back({at->second.logic_port, nullptr, &*at});
    return ports;
}

const Port *find_port(const std::vector<Port> &ports, Index logic_port) {
    const auto found = std::ranges::find(ports, logic_port, &Port::logic_port);
    return found != ports.end() ? &*found : nullptr;
}

// What came from a pseudowire that is no spoke has come to all of them.
bool may_pass(const Port &from, const Port &to) {
    return from.logic_port != to.logic_port && !(from.is_mesh() && to.is_mesh());
}

bool leave_by(Trace &trace, const Port &port) {
    if (port.pseudowire != nullptr)
        return leave_over(trace, port.text(), port.pseudowire->second.wire);
    const auto &[key, value] = *port.circuit;
    const Match match = kinds::vpls_ac::matches(key, value).front();
    return leave_to(trace, match.port, match.outer, match.inner);
}

bool flood(Trace &trace, const std::string &name, const Port &from,
           const std::vector<Port> &ports) {
    trace.tell(name + "flooded to");
    bool has_port = false;
    for (const Port &to : ports) {
        if (!may_pass(from, to))
            continue;
        has_port = true;
        Trace copy{trace.chip, trace.packet};
        (void)leave_by(copy, to);
        for (const std::string &line : copy.lines)
            trace.tell("    " + line);
    }
    trace.has_ended = true;
    return has_port || trace.end("no port: dropped");
}

bool cross(Trace &trace, std::uint32_t vpls_id, Index logic_port) {
    const std::string name = kinds::vpls::key_text(vpls_id) + ": ";
    if (!trace.packet.frame)
        return trace.end(name + "looked up by addresses that are not told");
    const Frame &frame = *trace.packet.frame;
    const std::vector<Port> ports = ports_of(trace.chip, vpls_id);
    const Port &from = *find_port(ports, logic_port);
    if (trace.chip.learning.learn({vpls_id, frame.source}, logic_port))
        trace.tell(name + mac_text(frame.source.data()) + " is behind " + from.text());
    const auto learnt = trace.chip.learning.find({vpls_id, frame.destination});
    const Port *const to = learnt ? find_port(ports, *learnt) : nullptr;
    if (to == nullptr)
        return flood(trace, name, from, ports);
    const std::string where =
        name + mac_text(frame.destination.data()) + " is behind " + to->text();
    if (!may_pass(from, *to))
        return trace.end(where + ", where this one may not go: dropped");
    trace.tell(where);
    return leave_by(trace, *to);
}

} // namespace

// --- steps -----------------------------------------------------------------------------------

bool by_circuit(Trace &trace) {
    if (!trace.packet.frame || !trace.packet.labels.empty())
        return false;
    const Frame &frame = *trace.packet.frame;
    if (!std::exchange(trace.is_coming_in, false))
        return trace.end("a frame behind labels that no pseudowire has: dropped");
    const Match match{trace.packet.port.value_or(0), frame.outer, frame.inner};
    const Chip &chip = trace.chip;
    if (const Pseudowire *const key = chip.beside<kinds::vpws>().find(match))
        return leave_over(trace, *key, chip.held<kinds::vpws>().at(*key));
    if (const VplsCircuit *const key = chip.beside<kinds::vpls_ac>().find(match)) {
        const VplsAc &value = chip.held<kinds::vpls_ac>().at(*key);
        return cross(trace, value.vpls_id, value.logic_port);
    }
    return trace.end("no circuit takes it");
}

bool by_pseudowire(Trace &trace) {
    if (trace.packet.labels.empty())
        return false;
    const Chip &chip = trace.chip;
    const std::uint32_t label = trace.packet.labels.back().number;
    const auto pop = [&](const std::string &whose) {
        trace.packet.labels.pop_back();
        trace.tell("incoming label " + to_string(label) + ": pop, of " + whose);
    };
    if (const Pseudowire *const key = chip.beside<kinds::vpws>().in_labels.find(label)) {
        pop(kinds::vpws::key_text(*key));
        return leave_to(trace, *key, chip.held<kinds::vpws>().at(*key));
    }
    if (const Pseudowire *const key = chip.beside<kinds::vpls_pw>().in_labels.find(label)) {
        pop(kinds::vpls_pw::key_text(*key));
        return cross(trace, key->id, chip.held<kinds::vpls_pw>().at(*key).logic_port);
    }
    return false;
}

} // namespace chassis::chip::tracing
