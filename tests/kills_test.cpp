// A master that is killed between any two of the things that it lets out.  An account of its own, of
// what was asked for, says where packets go then; the tables and their descriptions have no part in
// it.

#include "platform/dal.h"
#include "support/shelf.h"

#include <set>

namespace {

using Members = std::set<std::string>; // "2@1": a MAC address' last byte, and the port

struct Killed : rig::Shelf {
    void TestBody() override {}
    using Shelf::TearDown;

    // Where the chip sends what is for an address.
    Members members(const char *address) {
        Members found;
        const dpm_prefix ip = rig::prefix_of(address);
        if (const auto answer = master().chip.lookup(0, ip.family, ip.address))
            for (const auto index : answer->members)
                if (index != DAL_NEXTHOP_TO_CPU) {
                    const auto &to = master().chip.held<chassis::chip::kinds::nexthop>().at(index);
                    found.insert(std::to_string(to.mac[5]) + "@" + std::to_string(to.port_id));
                }
        return found;
    }
};

Members members_of(const char *text) {
    const rig::Words words = rig::words_of(text);
    return {words.begin(), words.end()};
}

constexpr const char *addresses[] = {"10.1.1.2", "10.1.1.3", "fd00::2", "10.2.0.9", "10.9.0.9"};
struct Step {
    const char *command;
    const char *members[std::size(addresses)]; // behind it
};
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

// What the step under way does not touch is there, and of what it touches nothing but what was or
// what shall be.
void expect_between(Killed &shelf, const Step &before, const Step &step) {
    for (unsigned i = 0; i < std::size(addresses); ++i) {
        const Members was = members_of(before.members[i]), are = shelf.members(addresses[i]);
        Members may = members_of(step.members[i]);
        const bool is_touched = may != was;
        may.insert(was.begin(), was.end());
        EXPECT_TRUE(is_touched ? std::ranges::includes(may, are) : are == may) << addresses[i];
    }
}

void expect_behind(Killed &shelf, const Step &step) {
    for (unsigned i = 0; i < std::size(addresses); ++i)
        EXPECT_EQ(shelf.members(addresses[i]), members_of(step.members[i])) << addresses[i];
}

// False when it lived through all steps.
bool is_killed_at(unsigned moment) {
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
            expect_between(shelf, &step == steps ? step : *(&step - 1), step);
            EXPECT_EQ(shelf.run(step.command).text, ""); // suite and stack tell it again
            shelf.standby_connects();
        }
        expect_behind(shelf, step);
    }
    shelf.TearDown();
    return was_killed;
}

} // namespace

TEST(Kills, LeaveLineCardsThatForwardByWhatWasAskedFor) {
    unsigned moment = 1;
    while (is_killed_at(moment))
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
            expect_between(shelf, {"", {"", "", "", "", ""}}, fullest);
        }
        shelf.dies_behind(~0u);
        for (const Step *step = steps; step <= &fullest; ++step)
            shelf.run(step->command);
        expect_behind(shelf, fullest);
        shelf.TearDown();
    }
    EXPECT_GT(moment, 8u);
}
