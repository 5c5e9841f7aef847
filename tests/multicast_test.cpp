// Multicast: the filter of a port and the members that follow from it, requests, bounds, the
// standby, and what time and interfaces take away.

#include "dpm_ipmc.h"
#include "support/multicast.h"
#include "support/rows.h"

#include <set>

namespace {

using chassis::chip::Function;
using chassis::os::Fault;
namespace kinds = chassis::chip::kinds;

// A state of a port, what comes in, which of the sources * 1 2 3 the port then gets, its filter, and
// whether its time begins anew.
constexpr struct Cell {
    const char *state, *event, *members, *filter;
    bool restarts = false;
} cells[] = {
    {"", "join", "*123", "any", true},
    {"", "leave", "", ""},
    {"", "is-in 2 3", "", ""},
    {"", "is-ex 2 3", "", ""},
    {"", "to-in 2 3", "", ""},
    {"", "to-in", "", ""},
    {"", "to-ex 2 3", "*1", "exclude 2 3", true},
    {"", "to-ex", "*123", "exclude", true},
    {"", "allow 2 3", "23", "include 2 3", true},
    {"", "block 2 3", "", ""},
    {"join", "join", "*123", "any", true},
    {"join", "leave", "", ""},
    {"join", "is-in 2 3", "*123", "any"},
    {"join", "is-ex 2 3", "*123", "any"},
    {"join", "to-in 2 3", "23", "include 2 3", true},
    {"join", "to-in", "", ""},
    {"join", "to-ex 2 3", "*1", "exclude 2 3", true},
    {"join", "allow 2 3", "*123", "any", true},
    {"join", "block 2 3", "*123", "any"},
    {"join", "", "", ""},
    {"allow 1 2", "join", "12", "include 1 2", true},
    {"allow 1 2", "leave", "", ""},
    {"allow 1 2", "is-in 2 3", "23", "include 2 3", true},
    {"allow 1 2", "is-ex 2 3", "12", "include 1 2"},
    {"allow 1 2", "to-in 2 3", "12", "include 1 2"},
    {"allow 1 2", "to-in", "12", "include 1 2"},
    {"allow 1 2", "to-ex 2 3", "*1", "exclude 2 3", true},
    {"allow 1 2", "allow 2 3", "123", "include 1 2 3", true},
    {"allow 1 2", "block 2 3", "1", "include 1"},
    {"allow 1 2", "block 1 2 3", "", ""},
    {"allow 1 1 2", "block 1", "2", "include 2"}, // a source that was told twice
    {"allow 1 2", "", "", ""},
    {"to-ex 1 2", "join", "*3", "exclude 1 2", true},
    {"to-ex 1 2", "leave", "", ""},
    {"to-ex 1 2", "is-in 2 3", "*3", "exclude 1 2"},
    {"to-ex 1 2", "is-ex 2 3", "*1", "exclude 2 3", true},
    {"to-ex 1 2", "to-in 2 3", "23", "include 2 3", true},
    {"to-ex 1 2", "to-in", "", ""},
    {"to-ex 1 2", "to-ex 2 3", "*1", "exclude 2 3", true},
    {"to-ex 1 2", "allow 2 3", "*23", "exclude 1", true},
    {"to-ex 1 2", "block 2 3", "*", "exclude 1 2 3", true},
    {"to-ex 1 2", "", "", ""},
};

class Membership : public rig::RowShelf {
public:
    explicit Membership(unsigned family) : RowShelf(family, rig::Role::mirroring, {}) {
        (void)run("mcast on");
        for (const char *source : {"*", "{s1}", "{s2}", "{s3}"})
            (void)act(expanded(std::string("mroute add ") + source + " {g1} vlanif200 vlanif100"));
    }
    void report(const std::string &event) {
        std::string command = "hear 3 100 ";
        for (const std::string &word : rig::words_of(event))
            command += std::isdigit(word[0]) ? " {s" + word + "}" : word + " {g1}";
        event.empty() ? advance(261) : void(act(expanded(command)));
    }
    std::string members() { // of the master's chip
        std::set<char> sources;
        for (const auto &[key, value] : master().chip.held<kinds::mcast_member>())
            sources.insert(key.of.source_len == 0
                               ? '*'
                               : char('0' + key.of.source[key.of.family == 1 ? 3 : 15]));
        return {sources.begin(), sources.end()};
    }
    std::string filter(std::int64_t &seconds_left) {
        std::string text;
        for (const dpm_ipmc_rx_port &port : all(master(), chassis::tables::mgroups)) {
            text = port.mode == 0 ? "any" : port.mode == 1 ? "include" : "exclude";
            for (unsigned i = 0; i < port.src_cnt; ++i)
                text += " " +
                        std::to_string(port.sources[i].address[port.sources[i].prefix_len / 8 - 1]);
            seconds_left =
                port.timer.expiry_sec - master().os.now_nsec() / chassis::os::nsec_per_sec;
        }
        return text;
    }
};

} // namespace

TEST(Membership, FollowsTheTableCellByCell) {
    for (const unsigned family : {4u, 6u})
        for (const auto &[state, event, members, filter, restarts] : cells) {
            SCOPED_TRACE(testing::Message()
                         << "family " << family << ": " << state << ", " << event);
            Membership shelf(family);
            if (*state)
                shelf.report(state);
            shelf.advance(*event ? 100 : 0);
            shelf.report(event);
            std::int64_t seconds_left = 0;
            EXPECT_EQ(shelf.filter(seconds_left), filter);
            EXPECT_EQ(shelf.members(), members);
            EXPECT_EQ(seconds_left, !*filter ? 0 : restarts ? 260 : 160);
            shelf.check_laws();
        }
}
