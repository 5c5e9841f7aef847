// The command language, and its handlers on cards of the rig: what people type is understood or
// refused with its place, and what the cards answer is what the tables and the chip hold.
#include "chassis/ctl/grammar.h"
#include "support/commands.h"

#include <algorithm>
#include <gtest/gtest.h>

using ctl::parse;
using rig::has;

namespace {

std::string error_of(std::string_view line) {
    const ctl::Parsed parsed = parse(line);
    return parsed.error ? std::to_string(parsed.error->column) + ": " + parsed.error->text : "";
}

std::vector<std::string> words(std::initializer_list<const char *> list) {
    return {list.begin(), list.end()};
}

TEST(command_language, takes_attributes_in_any_order_and_skips_what_ip_prints_besides) {
    for (const char *line :
         {"neigh add 10.1.1.2 lladdr 02:00:00:00:01:02 dev vlanif100 port 3 vlan 100",
          "neigh add vlan 100 port 3 dev vlanif100 lladdr 02:00:00:00:01:02 10.1.1.2",
          "  neigh add 10.1.1.2 dev vlanif100 lladdr 02:00:00:00:01:02 router proto zebra ref 2 "
          "used 1/2/3 port 3 vlan 100 extern_learn REACHABLE # as printed"}) {
        const ctl::Parsed parsed = parse(line);
        ASSERT_FALSE(parsed.error) << line << "\n" << parsed.error->text;
        EXPECT_EQ(parsed.command->verb, ctl::Verb::neigh_add);
        EXPECT_EQ(parsed.value("IP"), "10.1.1.2");
        EXPECT_EQ(parsed.value("dev"), "vlanif100");
        EXPECT_EQ(parsed.number("port"), 3u);
        EXPECT_EQ(parsed.number("cvlan", 7), 7u) << "not given";
    }
}

TEST(command_language, gives_repeated_attributes_in_their_order) {
    const ctl::Parsed parsed = parse("import --dev-map eth0=vlanif1 --dev-map eth1=vlanif2");
    ASSERT_FALSE(parsed.error);
    EXPECT_EQ(parsed.values("--dev-map"),
              (std::vector<std::string_view>{"eth0=vlanif1", "eth1=vlanif2"}));
}

TEST(command_language, refuses_with_the_column_and_what_was_expected) {
    EXPECT_EQ(error_of("shwo hosts").substr(0, 31), "1: unknown word 'shwo'; expecte");
    EXPECT_EQ(error_of("port  down 65"), "12: unknown word '65'; expected a port (1 to 64)");
    EXPECT_EQ(error_of("port down"), "11: the command is not complete; expected a port (1 to 64)");
    EXPECT_EQ(error_of("quit now"), "6: unknown word 'now'; nothing more was expected");
    EXPECT_EQ(error_of("addr add 10.1.1.1/24 dev"),
              "26: the command is not complete; expected the name of an interface (at most 63 "
              "characters)");
    EXPECT_EQ(error_of("neigh add 10.1.1.2 dev vlanif100"),
              "34: the command is not complete; expected lladdr");
    EXPECT_EQ(error_of("show hosts vrf 1 --vrf 2").substr(0, 25), "18: unknown word '--vrf';");
}

TEST(command_language, refuses_values_out_of_bounds) {
    for (const char *line :
         {"addr add 10.1.1.1/33 dev x", "addr add fd00::1/129 dev x", "addr add 10.1.1/24 dev x",
          "if add vlanif0 vlan 0", "if add vlanif1 vlan 4095", "vrf enable 256", "vrf enable -1",
          "trunk up 17", "port up 99999999999999999999", "clock advance 3", "clock advance -3s",
          "clock advance 99999999999d", "neigh add 1.2.3.4 lladdr 02:00:00:00:01 dev x",
          "neigh add 1.2.3.4 lladdr 02:00:00:00:01:0g dev x",
          "neigh add 1.2.3.4 lladdr 02:00-00:00:01:02 dev x", "chip refuse everything 1",
          "if del aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"})
        EXPECT_NE(error_of(line), "") << line;
    EXPECT_NE(error_of("quit #" + std::string(ctl::max_line_bytes, 'x')), "");
}

TEST(command_language, offers_the_words_that_fit) {
    EXPECT_EQ(ctl::complete("chi"), words({"chip"}));
    EXPECT_EQ(ctl::complete("trunk "), words({"up", "down", "join", "leave"}));
    EXPECT_EQ(ctl::complete("neigh del 10.1.1.2 l"), words({"lladdr"}));
    EXPECT_EQ(ctl::complete("chip refuse nexthop"), words({"nexthop", "nexthop-del"}));
    EXPECT_EQ(ctl::complete("nonsense "), words({}));
    const auto names = [](std::string_view type) {
        return type == "NAME" ? words({"vlanif100", "vlanif200"}) : words({});
    };
    EXPECT_EQ(ctl::complete("if del vlanif2", names), words({"vlanif200"}));
}

TEST(command_language, explains_every_command) {
    const std::string all = ctl::help();
    for (const ctl::Command &command : ctl::commands()) {
        EXPECT_NE(all.find(ctl::command_line_of(command)), all.npos);
        EXPECT_NE(ctl::help(command.path), "");
    }
    EXPECT_EQ(ctl::help("no such thing"), "");
    EXPECT_TRUE(has(ctl::help("port down"), "a port (1 to 64)"));
}

TEST(command_language, names_chip_requests_as_the_chip_does) {
    for (const std::string_view value : ctl::type_named("REQUEST").values)
        EXPECT_TRUE(chassis::chip::request_named(value)) << value;
}

class ctl_server : public rig::Commands {};

TEST_F(ctl_server, leads_a_neighbour_into_the_tables_the_chip_and_the_other_card) {
    configure_vlan_100();
    text("neigh add 10.1.1.2 lladdr 02:00:00:00:01:02 dev vlanif100 port 3");
    text("neigh add fd00::2 lladdr 02:00:00:00:01:02 dev vlanif100 port 3");
    text("neigh add 10.1.1.3 lladdr 02:00:00:00:01:03 dev vlanif100 trunk 2 vlan 100 cvlan 7");
    EXPECT_EQ(text("show hosts --count"), "3\n");
    EXPECT_TRUE(has(text("chip lookup 10.1.1.2"), "10.1.1.2/32 -> next hop"));
    EXPECT_EQ(text("chip lookup 10.1.1.9"), "10.1.1.9: no entry, by default to the CPU\n");
    EXPECT_TRUE(has(text("why 10.1.1.3"), "in the chip"));
    settle();
    EXPECT_EQ(on_standby_.execute("show hosts --count").text, "3\n");
    text("neigh del 10.1.1.2 dev vlanif100");
    EXPECT_EQ(text("show hosts 10.0.0.0/8 --count"), "1\n");
    EXPECT_EQ(text("show hosts fd00::/16 --count"), "1\n");
    EXPECT_EQ(text("show hosts 10.1.1.2/31 vrf 0 --count"), "1\n") << "10.1.1.3 is inside";
    EXPECT_EQ(text("show hosts 10.1.1.4/31 --count"), "0\n");
    EXPECT_EQ(text("show hosts --vrf 1 count"), "0\n");
}

TEST_F(ctl_server, prints_the_same_rows_for_people_and_for_programs) {
    configure_vlan_100();
    text("neigh add 10.1.1.2 lladdr 02:00:00:00:01:02 dev vlanif100 port 3");
    const std::string table = text("show hosts");
    EXPECT_TRUE(has(table, "VRF  ADDRESS   MAC                PORT  VLAN"));
    EXPECT_TRUE(has(table, "\n0    10.1.1.2  02:00:00:00:01:02  3     100 "));
    const std::string json = text("show hosts --json");
    EXPECT_TRUE(has(json, R"("vrf": 0, "address": "10.1.1.2", "mac": "02:00:00:00:01:02")"));
    EXPECT_TRUE(has(json, R"("log_port_id": 3)"));
    EXPECT_TRUE(has(text("show interfaces --json"), R"("addresses": ["10.1.1.1/24"])"));
    EXPECT_EQ(text("show hold --json"), "[]\n");
}

TEST_F(ctl_server, digests_records_without_what_is_the_cards_own) {
    configure_vlan_100();
    text("neigh add 10.1.1.2 lladdr 02:00:00:00:01:02 dev vlanif100 port 3");
    settle();
    ASSERT_NE(hosts(master())[0].ifindex, hosts(standby())[0].ifindex);
    const std::string digest = text("digest");
    EXPECT_EQ(digest, on_standby_.execute("digest").text);
    EXPECT_TRUE(has(text("digest hosts"), "vrf 0 10.1.1.2 dev vlanif100"));
    text("neigh add 10.1.1.2 lladdr 02:00:00:00:01:99 dev vlanif100 port 3");
    EXPECT_NE(digest, text("digest"));
}

TEST_F(ctl_server, finds_what_the_chip_lacks_and_what_no_table_has) {
    configure_vlan_100();
    text("neigh add 10.1.1.2 lladdr 02:00:00:00:01:02 dev vlanif100 port 3");
    EXPECT_EQ(text("chip check"),
              "chip and tables agree: entries 1, next hops 1, groups 0, interfaces 1\n");
    auto entry = take_entry(32);
    EXPECT_EQ(execute("chip check").text, "the chip lacks entry vrf 0 10.1.1.2/32\n");
    EXPECT_TRUE(has(text("why 10.1.1.2"), "but not in the chip"));
    auto &entries = master().chip.entries;
    auto other = std::pair(entry.key(), entry.mapped());
    other.first.bytes[3] = 77;
    entries.insert(std::move(entry));
    entries.insert(other);
    const ctl::Reply reply = execute("chip check");
    EXPECT_EQ(reply.status, ctl::Status::failed);
    EXPECT_EQ(reply.text, "no table has entry vrf 0 10.1.1.77/32\n");
    entries.erase(other.first);
}

TEST_F(ctl_server, tells_what_an_address_waits_for_and_since_when) {
    configure_vlan_100();
    EXPECT_EQ(text("why 10.1.1.2"), "10.1.1.2: not a neighbour, and nothing waits for it\n");
    text("neigh add 10.1.1.2 lladdr 02:00:00:00:01:02 dev vlanif100 port 3");
    settle();
    switch_over();
    ctl::Server new_master(master());
    advance(12);
    const std::string waiting = new_master.execute("why 10.1.1.2").text;
    EXPECT_TRUE(has(waiting, "in the chip"));
    EXPECT_TRUE(has(waiting, "since 12 s; 2 probes left, the next in 18 s"));
    EXPECT_EQ(new_master.execute("show probes --count").text, "1\n");
    EXPECT_EQ(new_master.execute("show deletions 10.1.1.2 --count").text, "1\n");
    EXPECT_EQ(new_master.execute("port down 3").text, "");
    const std::string held = new_master.execute("why 10.1.1.2").text;
    EXPECT_TRUE(has(held, "held since port 3 went down"));
}

TEST_F(ctl_server, refuses_what_it_cannot_do_and_changes_nothing) {
    EXPECT_EQ(execute("neigh add 10.1.1.2 lladdr 02:00:00:00:01:02 dev vlanif9").status,
              ctl::Status::no_interface);
    configure_vlan_100();
    for (const char *line :
         {"neigh add 10.1.1.2 lladdr 02:00:00:00:01:02 dev vlanif100 port 1 trunk 1",
          "neigh add 10.1.1.2 lladdr 02:00:00:00:01:02 dev vlanif100 incomplete", "if add uplink",
          "verify", "no such command", "ospf fd00::/64"}) {
        const ctl::Reply reply = execute(line);
        EXPECT_NE(reply.status, ctl::Status::ok) << line;
        EXPECT_NE(reply.text, "") << line;
    }
    EXPECT_EQ(text("show hosts --count"), "0\n");
    EXPECT_EQ(text("if list"), "vlanif100\n");
}

} // namespace
