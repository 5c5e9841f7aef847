// The IP stack's socket calls: small descriptors with a family and a VRF, and six requests over a
// 60-byte block.
//
// A block is read and written through the layouts below, which are those that the contract draws.

#include "chassis/chassis.h"
#include "chassis/stack/state.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>

namespace chassis::stack {

namespace {

thread_local int last_error = 0;

int fail(int error) {
    return last_error = error, -1;
}

#pragma pack(push, 1)
struct ArpBlock {
    std::uint8_t ip_length, ip_family;
    std::uint16_t port;
    std::uint8_t address[4];
    std::uint8_t zero[8];
    std::uint8_t link_length, link_family;
    std::uint16_t link_index;
    std::uint32_t ifindex;
    std::uint8_t mac_length, name_length;
    std::uint8_t mac[6];
    std::uint16_t svlan, port_id; // in a reply
    std::uint8_t rest[24];
};
struct NdBlock {
    std::uint8_t ip_length, ip_family;
    std::uint16_t port;
    std::uint32_t flow;
    std::uint8_t address[16];
    std::uint32_t scope;
    std::uint8_t mac[6];
    std::uint16_t pad;
    std::uint32_t ifindex;
    std::uint16_t svlan, port_id; // in a reply
    std::uint32_t vrf;            // in a reply
    std::uint8_t rest[12];
};
#pragma pack(pop)
static_assert(sizeof(ArpBlock) == IPCOMX_REQUEST_BYTES && offsetof(ArpBlock, mac) == 26);
static_assert(sizeof(NdBlock) == IPCOMX_REQUEST_BYTES && offsetof(NdBlock, ifindex) == 36);

template <std::size_t size>
NeighbourKey key_from(std::uint32_t vrf, std::uint32_t family, const std::uint8_t (&address)[size],
                      std::uint32_t ifindex) {
    NeighbourKey key{vrf, family, {}, ifindex};
    std::copy_n(address, size, key.address.begin());
    return key;
}

void answer(ArpBlock &block, const dpm_host_info &info) {
    block.ifindex = info.ifindex;
    block.mac_length = DPM_MAC_BYTES;
    std::copy_n(info.mac, DPM_MAC_BYTES, block.mac);
    block.svlan = std::uint16_t(info.svlan);
    block.port_id = std::uint16_t(info.phy_port_id);
}

void answer(NdBlock &block, const dpm_host_info &info) {
    block.ifindex = info.ifindex;
    std::copy_n(info.mac, DPM_MAC_BYTES, block.mac);
    block.svlan = std::uint16_t(info.svlan);
    block.port_id = std::uint16_t(info.phy_port_id);
    block.vrf = info.vrf;
}

} // namespace

struct Contract {
    static Stack::State &state() { return card().stack.state(); }

    // The socket behind a number, or its error; scripted failures come first.
    static int check(int number, Socket *out) {
        Stack::State &stack = state();
        std::lock_guard lock(stack.mutex);
        if (stack.failures)
            return --stack.failures, fail(stack.failure);
        const auto found = stack.sockets.find(number);
        if (found == stack.sockets.end())
            return fail(EBADF);
        return *out = found->second, 0;
    }

    static int open(int family) {
        Stack::State &stack = state();
        std::lock_guard lock(stack.mutex);
        if (stack.failures)
            return --stack.failures, fail(stack.failure);
        if (family != IPCOMX_AF_INET && family != IPCOMX_AF_INET6)
            return fail(EAFNOSUPPORT);
        stack.sockets[stack.next_socket] = {family, 0};
        return stack.next_socket++;
    }

    static int close(int number) {
        Stack::State &stack = state();
        std::lock_guard lock(stack.mutex);
        return stack.sockets.erase(number) ? 0 : fail(EBADF);
    }

    static int set_vrf(int number, const void *value) {
        Stack::State &stack = state();
        std::lock_guard lock(stack.mutex);
        std::memcpy(&stack.sockets[number].vrf, value, sizeof(std::uint32_t));
        return 0;
    }

    // An IPv6 entry is looked for on every interface when the request names none.
    template <class Block> static int get(const NeighbourKey &key, Block &block) {
        Stack::State &stack = state();
        std::lock_guard lock(stack.mutex);
        const auto found = stack.cache.lower_bound(key);
        if (found == stack.cache.end() || found->first.vrf != key.vrf ||
            found->first.family != key.family || found->first.address != key.address ||
            (key.ifindex && found->first.ifindex != key.ifindex))
            return fail(ENXIO);
        return answer(block, found->second), 0;
    }

    template <class Block>
    static int request(std::uint32_t code, const NeighbourKey &key, Block &block) {
        switch (code) {
        case IPCOMX_ARP_REQUEST:
        case IPCOMX_ND_SOLICIT:
            return card().stack.probe(key, block.ifindex), 0;
        case IPCOMX_ARP_DELETE:
        case IPCOMX_ND_DELETE:
            return card().stack.forget(key) ? 0 : fail(ENXIO);
        default:
            return get(key, block);
        }
    }

    static int control(const Socket &socket, std::uint32_t code, void *bytes) {
        const bool arp =
            code == IPCOMX_ARP_REQUEST || code == IPCOMX_ARP_DELETE || code == IPCOMX_ARP_GET;
        const bool nd =
            code == IPCOMX_ND_SOLICIT || code == IPCOMX_ND_DELETE || code == IPCOMX_ND_GET;
        if (!bytes || !(arp || nd) || (socket.family == IPCOMX_AF_INET) != arp)
            return fail(EINVAL);
        if (arp) {
            auto &block = *static_cast<ArpBlock *>(bytes);
            if (block.ip_length != 16 || block.ip_family != IPCOMX_AF_INET)
                return fail(EINVAL);
            return request(code, key_from(socket.vrf, DPM_FAMILY_IPV4, block.address, 0), block);
        }
        auto &block = *static_cast<NdBlock *>(bytes);
        if (block.ip_length != 28 || block.ip_family != IPCOMX_AF_INET6)
            return fail(EINVAL);
        return request(code, key_from(socket.vrf, DPM_FAMILY_IPV6, block.address, block.ifindex),
                       block);
    }
};

} // namespace chassis::stack

using namespace chassis::stack;

extern "C" {

int ipcomx_socket(int family, int type, int) {
    return type == IPCOMX_SOCK_DGRAM ? Contract::open(family) : fail(EPROTOTYPE);
}

int ipcomx_setsockopt(int socket, int level, int option, const void *value, uint32_t length_bytes) {
    Socket found;
    if (Contract::check(socket, &found) != 0)
        return -1;
    if (level != IPCOMX_SOL_SOCKET || option != IPCOMX_SO_VRF || !value ||
        length_bytes != sizeof(uint32_t))
        return fail(ENOPROTOOPT);
    return Contract::set_vrf(socket, value);
}

int ipcomx_socketioctl(int socket, uint32_t request, void *block) {
    Socket found;
    return Contract::check(socket, &found) == 0 ? Contract::control(found, request, block) : -1;
}

int ipcomx_socketclose(int socket) {
    return Contract::close(socket);
}

int ipcomx_errno_get() {
    return last_error;
}
const char *ipcomx_strerror(int error) {
    const char *const text = strerrordesc_np(error);
    return text ? text : "unknown error";
}

int ipcomx_getsockaddrbyaddr(const void *address, int family, void *socket_address) {
    if (!address || !socket_address || family != IPCOMX_AF_INET6)
        return fail(EINVAL);
    auto *const bytes = static_cast<uint8_t *>(socket_address);
    std::memset(bytes, 0, 28);
    bytes[0] = 28;
    bytes[1] = IPCOMX_AF_INET6;
    std::memcpy(bytes + 8, address, 16);
    return 0;
}

int ipcomx_getnameinfo(const void *socket_address, uint32_t length_bytes, char *text,
                       uint32_t text_bytes) {
    if (!socket_address || length_bytes < 28 || !text)
        return fail(EINVAL);
    const auto *const bytes = static_cast<const uint8_t *>(socket_address);
    return inet_ntop(AF_INET6, bytes + 8, text, text_bytes) ? 0 : fail(ENOSPC);
}

int ipstack_no_nbase_func_register(ipcomx_neighbour_callback callback) {
    return Contract::state().callback = callback, 0;
}

} // extern "C"
