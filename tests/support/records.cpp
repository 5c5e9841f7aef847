// Records from text and back.

#include "chassis/ctl/words.h"
#include "chassis/tables/text.h"
#include "support/shelf.h"

#include <algorithm>
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
    const auto address = ctl::parse_address(text.substr(0, slash));
    if (!address)
        return ADD_FAILURE() << "not an address: " << text, dpm_prefix{};
    dpm_prefix ip = chassis::tables::host_of(address->family, address->address.data());
    if (slash != text.npos)
        ip.prefix_len = std::uint16_t(std::stoi(text.substr(slash + 1)));
    return ip;
}

std::string text_of(const dpm_prefix &ip) {
    const std::string text = chassis::address_text(ip.family, ip.address);
    const bool is_host = ip.prefix_len == chassis::host_length(ip.family);
    return is_host ? text : text + "/" + std::to_string(ip.prefix_len);
}

dpm_host_info info_of(const Card &card, const Neighbour &neighbour) {
    const auto interface = card.suite.find("vlanif100");
    const dpm_prefix ip = prefix_of(neighbour.ip);
    dpm_host_info info{};
    info.oper = DPM_OPER_ADD;
    info.vrf = neighbour.vrf;
    info.ifindex = interface ? interface->ifindex : 0;
    info.family = std::uint8_t(ip.family);
    std::memcpy(info.address, ip.address, sizeof info.address);
    std::memcpy(info.mac, "\2\0\0\0\1\2", sizeof info.mac);
    info.svlan = info.supervlan = 100;
    info.log_port_id = info.phy_port_id = neighbour.port;
    return info;
}

void expect_all(int wanted, std::initializer_list<int> answers) {
    unsigned number = 0;
    for (const int answer : answers)
        EXPECT_EQ(answer, wanted) << "of call " << ++number;
}

} // namespace rig
