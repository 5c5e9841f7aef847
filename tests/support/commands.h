// A shelf whose cards are given commands, as dpmctl gives them.
#pragma once

#include "chassis/ctl/server/server.h"
#include "support/shelf.h"

#include <algorithm>

namespace rig {

inline testing::AssertionResult has(const std::string &text, const std::string &part) {
    return text.find(part) != text.npos ? testing::AssertionSuccess()
                                        : testing::AssertionFailure() << "no '" << part << "' in\n"
                                                                      << text;
}

// Commands to the cards of a shelf.
class Commands : public Shelf {
protected:
    ctl::Reply execute(std::string_view line) { return on_master_.execute(line); }

    std::string text(std::string_view line) {
        const ctl::Reply reply = execute(line);
        EXPECT_EQ(reply.status, ctl::Status::ok) << line << ": " << reply.text;
        return reply.text;
    }

    // Settings go to both cards, as dpmctl sends them.
    void configure(std::string_view line) {
        for (ctl::Server *server : {&on_master_, &on_standby_})
            EXPECT_EQ(server->execute(line).text, "") << line;
        settle();
    }

    void configure_vlan_100() {
        configure("if add vlanif100 vlan 100");
        configure("addr add 10.1.1.1/24 dev vlanif100");
    }

    // Takes an entry of this length out of the chip; the test puts it back.
    auto take_entry(unsigned prefix_len) {
        auto &entries = master().chip.entries;
        const auto at = std::ranges::find_if(
            entries, [=](const auto &entry) { return entry.first.prefix_len == prefix_len; });
        EXPECT_NE(at, entries.end());
        return entries.extract(at);
    }

    ctl::Server on_master_{master()}, on_standby_{standby()};
};

} // namespace rig
