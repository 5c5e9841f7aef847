// dpm-listener: a host that joins and leaves multicast groups, as its kernel reports them.
//
// It reads a wish a line from standard input and asks the kernel, by the socket options that any
// program uses; the kernel sends the IGMP and MLD reports.  At the end of its input it leaves
// everything.
//
//   join GROUP            leave GROUP
//   join GROUP SOURCE     leave GROUP SOURCE      of one sender alone
//   block GROUP SOURCE    unblock GROUP SOURCE    of a group that was joined as a whole
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <net/if.h>
#include <netinet/in.h>
#include <sstream>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

struct Wish {
    const char *verb;
    bool has_source;
    int ipv4, ipv6; // socket options
};
constexpr Wish wishes[] = {
    {"join", false, IP_ADD_MEMBERSHIP, MCAST_JOIN_GROUP},
    {"leave", false, IP_DROP_MEMBERSHIP, MCAST_LEAVE_GROUP},
    {"join", true, IP_ADD_SOURCE_MEMBERSHIP, MCAST_JOIN_SOURCE_GROUP},
    {"leave", true, IP_DROP_SOURCE_MEMBERSHIP, MCAST_LEAVE_SOURCE_GROUP},
    {"block", true, IP_BLOCK_SOURCE, MCAST_BLOCK_SOURCE},
    {"unblock", true, IP_UNBLOCK_SOURCE, MCAST_UNBLOCK_SOURCE},
};

const Wish *find_wish(const std::string &verb, bool has_source) {
    for (const Wish &wish : wishes)
        if (verb == wish.verb && has_source == wish.has_source)
            return &wish;
    return nullptr;
}

// A device as one socket option names it: by an address of its own.
bool read_address(int socket, unsigned device, in_addr &address) {
    ifreq request{};
    if (!if_indextoname(device, request.ifr_name) || ioctl(socket, SIOCGIFADDR, &request) != 0)
        return false;
    sockaddr_in found{};
    std::memcpy(&found, &request.ifr_addr, sizeof found);
    address = found.sin_addr;
    return true;
}

bool ask_ipv4(int socket, unsigned device, const Wish &wish, const in_addr &group,
              const std::string &source_text) {
    if (!wish.has_source) {
        const ip_mreqn request{group, {}, int(device)};
        return setsockopt(socket, IPPROTO_IP, wish.ipv4, &request, sizeof request) == 0;
    }
    ip_mreq_source request{};
    request.imr_multiaddr = group;
    return read_address(socket, device, request.imr_interface) &&
           inet_pton(AF_INET, source_text.c_str(), &request.imr_sourceaddr) == 1 &&
           setsockopt(socket, IPPROTO_IP, wish.ipv4, &request, sizeof request) == 0;
}

bool put(sockaddr_storage &to, const std::string &text) {
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    const bool is_good = inet_pton(AF_INET6, text.c_str(), &address.sin6_addr) == 1;
    std::memcpy(&to, &address, sizeof address);
    return is_good;
}

bool ask_ipv6(int socket, unsigned device, const Wish &wish, const std::string &group,
              const std::string &source) {
    group_source_req request{};
    request.gsr_interface = device;
    if (!put(request.gsr_group, group) || (wish.has_source && !put(request.gsr_source, source)))
        return false;
    group_req whole{};
    whole.gr_interface = device;
    whole.gr_group = request.gsr_group;
    return wish.has_source
               ? setsockopt(socket, IPPROTO_IPV6, wish.ipv6, &request, sizeof request) == 0
               : setsockopt(socket, IPPROTO_IPV6, wish.ipv6, &whole, sizeof whole) == 0;
}

} // namespace

int main(int argc, char **argv) {
    const unsigned device = argc == 2 ? if_nametoindex(argv[1]) : 0;
    const int ipv4 = socket(AF_INET, SOCK_DGRAM, 0), ipv6 = socket(AF_INET6, SOCK_DGRAM, 0);
    if (device == 0 || ipv4 < 0 || ipv6 < 0) {
        std::fprintf(stderr, "usage: dpm-listener DEVICE\n");
        return 2;
    }
    bool good = true;
    for (std::string line; std::getline(std::cin, line);) {
        std::string verb, group, source;
        std::istringstream(line) >> verb >> group >> source;
        const Wish *const wish = find_wish(verb, !source.empty());
        in_addr address{};
        const bool is_ipv4 = inet_pton(AF_INET, group.c_str(), &address) == 1;
        const bool is_done = wish && (is_ipv4 ? ask_ipv4(ipv4, device, *wish, address, source)
                                              : ask_ipv6(ipv6, device, *wish, group, source));
        if (!is_done)
            std::fprintf(stderr, "dpm-listener: %s: %s\n", line.c_str(), std::strerror(errno));
        good = good && is_done;
    }
    return good ? 0 : 1;
}
