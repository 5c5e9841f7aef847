// A master that is killed between any two of the things that it lets out.  An account of its own, of
// what was asked for, says where packets go then; the tables and their descriptions have no part in
// it.

#include "chassis/chip/trace.h"
#include "chassis/tables/text.h"
#include "platform/dal.h"
#include "support/shelf.h"

#include <cstdio>
#include <random>
#include <set>
#include <span>

namespace {

using Members = std::set<std::string>; // "2@1": a MAC address' last byte, and the port

// Where packets are for: an address of a VRF, or whatever is behind an incoming label.
struct Place {
    const char *address;
    unsigned vrf = 0, label = 0;
};

struct Killed : rig::Shelf {
    void TestBody() override {}
    using Shelf::TearDown;

    // Where the chip sends packets.  One of VRF 0 that leaves with a label is told with it:
    // "2@1/1000".  To a group the ports, with the sources' lengths: "1/32".
    Members members(const Place &place) {
        Members found = labelled(place);
        const dpm_prefix ip = rig::prefix_of(place.address);
        for (const auto &[key, value] : master().chip.held<chassis::chip::kinds::mcast_member>())
            if (std::equal(key.of.group.begin(), key.of.group.end(), ip.address))
                found.insert(std::to_string(key.port) + "/" + std::to_string(key.of.source_len));
        const auto vrf = std::int32_t(place.vrf);
        if (!found.empty() || place.label != 0)
            return found;
        if (const auto answer = master().chip.lookup(vrf, ip.family, ip.address))
            for (const auto index : answer->members)
                if (index != DAL_NEXTHOP_TO_CPU) {
                    const auto &to = master().chip.held<chassis::chip::kinds::nexthop>().at(index);
                    found.insert(std::to_string(to.mac[5]) + "@" + std::to_string(to.port_id));
                }
        return found;
    }

private:
    Members labelled(const Place &place) {
        using namespace chassis;
        const dpm_prefix ip = rig::prefix_of(place.address);
        chip::Packet packet{std::int32_t(place.vrf), {}, {64, 0}, {}};
        if (place.label != 0)
            packet.labels.push_back({{64, 0}, place.label});
        else
            packet.destination = tables::chip_key(place.vrf, ip);
        unsigned port = 0, mac = 0, label = 0;
        const auto lock = master().chip.lock();
        if (std::sscanf(chip::trace(master().chip, packet).back().c_str(),
                        "out of port %u vlan %*u to %*x:%*x:%*x:%*x:%*x:%x with label %u", &port,
                        &mac, &label) != 3)
            return {};
        return {std::to_string(mac) + "@" + std::to_string(port) +
                (place.vrf == 0 ? "/" + std::to_string(label) : "")};
    }
};

Members members_of(const char *text) {
    const rig::Words words = rig::words_of(text ? text : "");
    return {words.begin(), words.end()};
}

constexpr Place places[] = {{"10.1.1.2"}, {"10.1.1.3"}, {"fd00::2"}, {"10.2.0.9"}, {"10.9.0.9"}};
constexpr Place label_places[] = {
    {"10.2.0.9"}, {"10.7.0.9", 5}, {"0.0.0.0", 0, 300}, {"10.1.1.2"}, {"10.1.1.3"}};
struct Step {
    const char *command;
    const char *members[std::size(places)]; // behind it; null: none
};
using Steps = std::span<const Step>;
constexpr Step steps[] = {
    {"addr add 10.1.1.1/24 dev vlanif100", {"", "", "", "", ""}},
    {"neigh add 10.1.1.2 port 1", {"2@1", "", "", "", ""}},
    {"route add 10.2.0.0/16 via 10.1.1.2", {"2@1", "", "", "2@1", ""}},
    {"neigh add 10.1.1.3 lladdr 02:00:00:00:01:02", {"2@1", "2@1", "", "2@1", ""}},
    {"neigh add 10.1.1.3 port 2", {"2@1", "3@2", "", "2@1", ""}},
    {"route add 0.0.0.0/0 via 10.1.1.3", {"2@1", "3@2", "", "2@1", "3@2"}},
    {"route add 10.2.0.0/16 via 10.1.1.2 via 10.1.1.3", {"2@1", "3@2", "", "2@1 3@2", "3@2"}},
    {"neigh add fd00::2 port 1", {"2@1", "3@2", "2@1", "2@1 3@2", "3@2"}},
    {"route del 0.0.0.0/0", {"2@1", "3@2", "2@1", "2@1 3@2", ""}},
    {"neigh add 10.1.1.2 port 3", {"2@3", "3@2", "2@1", "2@3 3@2", ""}},
    {"neigh del 10.1.1.3", {"2@3", "", "2@1", "2@3", ""}},
    {"route del 10.2.0.0/16", {"2@3", "", "2@1", "", ""}},
    {"neigh del 10.1.1.2", {"", "", "2@1", "", ""}},
    {"neigh del fd00::2", {"", "", "", "", ""}}};

// Label entries over a neighbour, in the place of a route, and with a prefix of a VRF on them.
constexpr Step label_steps[] = {
    {"neigh add 10.1.1.2 port 1", {"", "", "", "2@1", ""}},
    {"neigh add 10.1.1.3 port 2", {"", "", "", "2@1", "3@2"}},
    {"route add 10.2.0.0/16 via 10.1.1.2 dev vlanif100", {"2@1", "", "", "2@1", "3@2"}},
    {"ftn add 10.2.0.0/16 via 10.1.1.3", {"3@2/1000", "", "", "2@1", "3@2"}},
    {"ftn add 10.7.0.0/16 via 10.1.1.2 vrf 5 remote 10.2.0.0",
     {"3@2/1000", "3@2", "", "2@1", "3@2"}},
    {"ilm add 300 via 10.1.1.2", {"3@2/1000", "3@2", "2@1/2001", "2@1", "3@2"}},
    {"neigh add 10.1.1.3 port 3", {"3@3/1000", "3@3", "2@1/2001", "2@1", "3@3"}},
    {"ilm add 300 via 10.1.1.3 swap 2002", {"3@3/1000", "3@3", "3@3/2002", "2@1", "3@3"}},
    {"ftn add 10.2.0.0/16 via 10.1.1.3 label 1001",
     {"3@3/1001", "", "3@3/2002", "2@1", "3@3"}}, // the suite tells again what was on it
    {"ftn add 10.7.0.0/16 via 10.1.1.3 vrf 5 remote 10.2.0.0",
     {"3@3/1001", "3@3", "3@3/2002", "2@1", "3@3"}},
    {"neigh del 10.1.1.3", {"", "", "", "2@1", ""}},
    {"neigh add 10.1.1.3 port 3", {"3@3/1001", "3@3", "3@3/2002", "2@1", "3@3"}},
    {"ftn del 10.2.0.0/16 via 10.1.1.3", {"2@1", "", "3@3/2002", "2@1", "3@3"}},
    {"ilm del 300", {"2@1", "", "", "2@1", "3@3"}}};

constexpr Place group_places[std::size(places)] = {
    {"224.1.1.1"}, {"ff05::1"}, {"10.1.1.2"}, {"10.1.1.2"}, {"10.1.1.2"}};
constexpr Step group_steps[] = {
    {"mcast snoop on", {}},
    {"mroute add any 224.1.1.1 vlanif100 vlanif100", {}},
    {"hear 1 100 to-ex 224.1.1.1 10.9.9.9", {"1/0"}},
    {"mroute add 10.9.9.9 224.1.1.1 vlanif100 vlanif100", {"1/0"}},
    {"mroute add any ff05::1 vlanif100 vlanif100", {"1/0"}},
    {"hear 2 100 join 224.1.1.1", {"1/0 2/0 2/32"}},
    {"hear 2 100 join ff05::1", {"1/0 2/0 2/32", "2/0"}},
    {"hear 1 100 allow 224.1.1.1 10.9.9.9", {"1/0 1/32 2/0 2/32", "2/0"}},
    {"hear 1 100 to-in 224.1.1.1 10.9.9.9", {"1/32 2/0 2/32", "2/0"}},
    {"hear 2 100 leave 224.1.1.1", {"1/32", "2/0"}},
    {"mroute del any ff05::1", {"1/32"}},
    {"hear 1 100 block 224.1.1.1 10.9.9.9", {}},
    {"mroute del 10.9.9.9 224.1.1.1", {}}};

// What the step under way does not touch is there, and of what it touches nothing but what was or
// what shall be.
void expect_between(Killed &shelf, const Place *at, const Step &before, const Step &step) {
    for (unsigned i = 0; i < std::size(places); ++i) {
        const Members was = members_of(before.members[i]), are = shelf.members(at[i]);
        Members may = members_of(step.members[i]);
        const bool is_touched = may != was;
        may.insert(was.begin(), was.end());
        EXPECT_TRUE(is_touched ? std::ranges::includes(may, are) : are == may) << at[i].address;
    }
}

void expect_behind(Killed &shelf, const Place *at, const Step &step) {
    for (unsigned i = 0; i < std::size(places); ++i)
        EXPECT_EQ(shelf.members(at[i]), members_of(step.members[i])) << at[i].address;
}

constexpr Step nothing = {"", {"", "", "", "", ""}};

// False when it lived through all steps.
bool is_killed_at(unsigned moment, const Place *at, Steps steps) {
    Killed shelf;
    EXPECT_EQ(shelf.run("if add vlanif100").text, "");
    shelf.dies_behind(moment);
    bool was_killed = false;
    for (const Step &step : steps) {
        SCOPED_TRACE("killed at " + std::to_string(moment) + ": " + step.command);
        EXPECT_EQ(shelf.run(step.command).text, "");
        if (shelf.is_dead()) {
            was_killed = true;
            shelf.switch_over();
            expect_between(shelf, at, &step == steps.data() ? nothing : *(&step - 1), step);
            EXPECT_EQ(shelf.run(step.command).text, ""); // suite and stack tell it again
            shelf.standby_connects();
        }
        expect_behind(shelf, at, step);
    }
    shelf.TearDown();
    return was_killed;
}

} // namespace

TEST(Kills, LeaveLineCardsThatForwardByWhatWasAskedFor) {
    unsigned moment = 1;
    while (is_killed_at(moment, places, steps))
        ++moment;
    EXPECT_GT(moment, 50u);
}

TEST(Kills, LeaveLineCardsThatSwitchLabelsAsWasAskedFor) {
    unsigned moment = 1;
    while (is_killed_at(moment, label_places, label_steps))
        ++moment;
    EXPECT_GT(moment, 50u);
}

// The standby has a part of the tables then.  What it lacks is gone, and can be told again.
TEST(Kills, InTheMiddleOfTheTablesLeaveNothingElse) {
    const Step &fullest = steps[9];
    unsigned moment = 0;
    for (bool was_killed = true; was_killed;) {
        Killed shelf;
        SCOPED_TRACE("killed at " + std::to_string(++moment));
        shelf.run("if add vlanif100");
        for (const Step *step = steps; step <= &fullest; ++step)
            shelf.run(step->command);
        shelf.standby_lost();
        shelf.standby_starts();
        shelf.dies_behind(moment);
        shelf.standby_connects();
        was_killed = shelf.is_dead();
        if (was_killed) {
            shelf.switch_over();
            expect_between(shelf, places, nothing, fullest);
        }
        shelf.dies_behind(~0u);
        for (const Step *step = steps; step <= &fullest; ++step)
            shelf.run(step->command);
        expect_behind(shelf, places, fullest);
        shelf.TearDown();
    }
    EXPECT_GT(moment, 8u);
}

// Nobody knows then what the ports want: who is a member stays one, until it is reported again or a
// membership interval has passed.
TEST(Kills, LeaveMembersOfGroupsThatGoWithTheirTime) {
    unsigned moment = 0;
    for (bool was_killed = true; was_killed;) {
        Killed shelf;
        EXPECT_EQ(shelf.run("if add vlanif100").text, "");
        shelf.dies_behind(++moment);
        const Step *before = &nothing;
        was_killed = false;
        for (const Step &step : group_steps) {
            SCOPED_TRACE("killed at " + std::to_string(moment) + ": " + step.command);
            EXPECT_EQ(shelf.run(step.command).text, "");
            was_killed = shelf.is_dead();
            if (was_killed)
                break;
            expect_behind(shelf, group_places, step);
            before = &step;
        }
        if (was_killed) {
            shelf.switch_over();
            expect_between(shelf, group_places, *before,
                           *(before == &nothing ? group_steps : before + 1));
            shelf.standby_connects();
            shelf.check_laws();
            shelf.advance(261);
            expect_behind(shelf, group_places, nothing);
        }
        shelf.TearDown();
    }
    EXPECT_GT(moment, 30u);
}

// What was on its way to the standby is lost with a master that dies: its tables are of a moment
// before, and the line cards of the last one.
TEST(Kills, WithAStandbyThatLagsLeaveWhatItHas) {
    for (unsigned seed = 1; seed <= 8; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        const auto any = [&](unsigned low, unsigned high) {
            return std::to_string(low + random() % (high - low));
        };
        const auto change = [&](Killed &shelf) {
            std::string words = random() % 3 == 0 ? "del " : "add ";
            if (random() % 2 == 0) {
                words = "neigh " + words + "10.1.1." + any(2, 20);
                words += words.find("add") == words.npos
                             ? ""
                             : " lladdr 02:00:00:00:01:" + any(10, 18) + " port " + any(1, 5);
            } else {
                const bool adds = words == "add ";
                words = "route " + words + "10." + any(2, 20) + ".0.0/16";
                for (unsigned i = random() % 3 + 1; adds && i > 0; --i)
                    words += " via 10.1.1." + any(2, 20);
            }
            static_cast<void>(shelf.run(words));
        };
        Killed shelf;
        shelf.run("if add vlanif100");
        shelf.run("addr add 10.1.1.1/24 dev vlanif100");
        for (unsigned i = 0; i < 60; ++i)
            change(shelf);
        shelf.master().peer.take_calls([] { return false; });
        for (unsigned i = random() % 60; i > 0; --i)
            change(shelf);
        shelf.dies_behind(0);
        shelf.switch_over();
        EXPECT_EQ(shelf.run("chip check").status, ctl::Status::ok) << shelf.run("chip check").text;
        shelf.standby_connects();
        for (unsigned i = 0; i < 30; ++i)
            change(shelf);
        shelf.TearDown();
    }
}
