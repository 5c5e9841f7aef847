// Records from text and back.

#include "support/shelf.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <sstream>

namespace rig {

Words words_of(const std::string &text) {
    std::istringstream stream(text);
    Words words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

std::string word_behind(const Words &words, const std::string &word, const char *otherwise) {
    const auto at = std::find(words.begin(), words.end(), word);
    return at == words.end() || at + 1 == words.end() ? otherwise : at[1];
}

dpm_prefix prefix_of(const std::string &text) {
    const std::size_t slash = text.find('/');
    const std::string address = text.substr(0, slash);
    dpm_prefix ip{};
    if (inet_pton(AF_INET, address.c_str(), ip.address) == 1)
        ip.family = DPM_FAMILY_IPV4, ip.prefix_len = 32;
    else if (inet_pton(AF_INET6, address.c_str(), ip.address) == 1)
        ip.family = DPM_FAMILY_IPV6, ip.prefix_len = 128;
    else
        ADD_FAILURE() << "not an address: " << text;
    if (slash != std::string::npos)
        ip.prefix_len = std::uint16_t(std::stoi(text.substr(slash + 1)));
    return ip;
}

std::array<std::uint8_t, DPM_MAC_BYTES> mac_of(const std::string &text) {
    std::array<unsigned, DPM_MAC_BYTES> parts{};
    if (std::sscanf(text.c_str(), "%x:%x:%x:%x:%x:%x", &parts[0], &parts[1], &parts[2], &parts[3],
                    &parts[4], &parts[5]) != DPM_MAC_BYTES)
        ADD_FAILURE() << "not a MAC: " << text;
    std::array<std::uint8_t, DPM_MAC_BYTES> mac{};
    std::copy(parts.begin(), parts.end(), mac.begin());
    return mac;
}

std::string text_of(const dpm_prefix &ip) {
    char text[INET6_ADDRSTRLEN] = "?";
    const bool ipv4 = ip.family == DPM_FAMILY_IPV4;
    inet_ntop(ipv4 ? AF_INET : AF_INET6, ip.address, text, sizeof text);
    return ip.prefix_len == (ipv4 ? 32 : 128) ? text : text + ("/" + std::to_string(ip.prefix_len));
}

std::string text_of(const dpm_host_entry &host) {
    char rest[160];
    std::snprintf(rest, sizeof rest, " %02x:%02x:%02x:%02x:%02x:%02x %.63s vlan %u %s %u",
                  host.mac[0], host.mac[1], host.mac[2], host.mac[3], host.mac[4], host.mac[5],
                  host.ifname, host.svlan, host.port_type == DPM_PORT_LOGICAL ? "trunk" : "port",
                  host.port_type == DPM_PORT_LOGICAL ? host.log_port_id : host.phy_port_id);
    return text_of(host.ip) + rest;
}

dpm_host_info info_of(const Card &card, const Neighbour &neighbour) {
    const std::string name =
        neighbour.ifname.empty() ? "vlanif" + std::to_string(neighbour.vlan) : neighbour.ifname;
    const auto interface = card.suite.find(name);
    const dpm_prefix ip = prefix_of(neighbour.ip);
    const auto mac = mac_of(neighbour.mac);
    dpm_host_info info{};
    info.oper = DPM_OPER_ADD;
    info.vrf = neighbour.vrf;
    info.ifindex = interface ? interface->ifindex : 0;
    info.family = std::uint8_t(ip.family);
    std::memcpy(info.address, ip.address, sizeof info.address);
    std::copy(mac.begin(), mac.end(), info.mac);
    info.svlan = info.supervlan = neighbour.vlan;
    info.cvlan = neighbour.cvlan;
    info.port_type = neighbour.trunk ? DPM_PORT_LOGICAL : 0;
    info.log_port_id = neighbour.trunk ? neighbour.trunk : neighbour.port;
    info.phy_port_id = neighbour.port;
    return info;
}

void expect_all(int wanted, std::initializer_list<int> answers) {
    unsigned number = 0;
    for (const int answer : answers)
        EXPECT_EQ(answer, wanted) << "of call " << ++number;
}

} // namespace rig
