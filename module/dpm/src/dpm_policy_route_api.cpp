// Policy routes for their callers: requests, readers, and the buffers of rules and ports.
#include "dpm_policy_route.h"

#include "dpm_address.h"
#include "dpm_locks.h"
#include "dpm_memory.h"
#include "dpm_msg.h"
#include "dpm_trace.h"
#include "platform/hw.h"
#include "platform/nsm.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

constexpr dpm::oper_codes policy_route_codes = {DPM_MSG_ADD_POLICY_ROUTE, DPM_MSG_DEL_POLICY_ROUTE};

constexpr std::uint32_t vrf_name_bytes = 13; // with its end
constexpr int unknown_vrf = -2;
constexpr std::uint16_t max_ports = 56; // of "all ports"

// The VRF of a name that need not be ended; negative when there is none.
int vrf_of(const char *name, std::uint32_t length_bytes) {
    if (length_bytes == 0)
        return 0;
    char text[vrf_name_bytes] = {};
    if (name == nullptr || length_bytes >= sizeof text)
        return -1;
    std::memcpy(text, name, length_bytes);
    return nsm_vrf_id_get_by_name(text);
}

// A block that travels with a request.
class buffer_copy {
public:
    buffer_copy(const void *bytes, std::uint32_t length)
        : block_(static_cast<std::uint8_t *>(dpm_malloc(length))) {
        if (block_ != nullptr)
            std::memcpy(block_, bytes, length);
    }
    ~buffer_copy() {
        if (block_ != nullptr)
            dpm_free(block_);
    }
    buffer_copy(const buffer_copy &) = delete;
    buffer_copy &operator=(const buffer_copy &) = delete;

    std::uint8_t *get() const { return block_; }
    void release() { block_ = nullptr; }

private:
    std::uint8_t *block_;
};

bool is_buffer(std::uint32_t length_bytes) {
    return length_bytes != 0 && length_bytes <= DPM_POLICY_BUFFER_BYTES;
}

void print_bytes(const std::uint8_t *bytes, std::uint32_t length) {
    constexpr std::uint32_t bytes_in_line = 16;
    for (std::uint32_t i = 0; i < length; i++)
        std::printf("%s%02x ", i % bytes_in_line == 0 ? "\n\r" : "", bytes[i]);
}

// Records of the chip's buffers.  Each is written behind what the buffer holds.
struct rule_record {
    std::uint16_t field, second;
    std::uint16_t key_len, mask_len;
    std::uint8_t key[32];
    std::uint8_t mask[48];
};
static_assert(sizeof(rule_record) == 88);

struct op_value {
    std::uint16_t length;
    std::uint8_t bytes[16];
};
static_assert(sizeof(op_value) == 18);

// The words that open a record of ports or of an operation.
struct record_head {
    std::uint16_t id;
    std::uint16_t count;
};

void append(void *buffer, std::uint32_t *length, const void *bytes, std::size_t count) {
    std::memcpy(static_cast<std::uint8_t *>(buffer) + *length, bytes, count);
    *length += static_cast<std::uint32_t>(count);
}

void append_head(void *buffer, std::uint32_t *length, std::uint32_t id, std::uint32_t count) {
    const record_head head = {static_cast<std::uint16_t>(id), static_cast<std::uint16_t>(count)};
    append(buffer, length, &head, sizeof head);
}

} // namespace

int dpm_api_policy_route_process(std::uint32_t vsid, const void *rule, std::uint32_t rule_len,
                                 const void *ports, std::uint32_t port_len, std::uint32_t vrf,
                                 std::uint32_t family, const void *address, std::uint32_t oper) {
    if (rule == nullptr || ports == nullptr || address == nullptr)
        return dpm::null_parameter();
    if (!dpm::is_known_oper(oper))
        return -1;
    if (!is_buffer(rule_len) || !is_buffer(port_len)) {
        DPM_TRACE("%s %d::rule_len %u, port_len %u is err!\r\n", rule_len, port_len);
        return -1;
    }
    dpm::request<dpm_policy_route_msg> body;
    buffer_copy own_rule(rule, rule_len), own_ports(ports, port_len);
    if (!body || own_rule.get() == nullptr || own_ports.get() == nullptr)
        return -1;
    if (!dpm::is_known_family(family)) {
        DPM_TRACE("%s %d::the input flag is error!\r\n");
        return -1;
    }
    *body = {.vsid = vsid,
             .rule = own_rule.get(),
             .rule_len = rule_len,
             .ports = own_ports.get(),
             .port_len = port_len,
             .vrf = vrf,
             .family = family,
             .address = {}};
    std::memcpy(body->address, address, dpm::address_bytes(family));
    if (body.post(policy_route_codes.of(oper),
                  DPM_SEND_ERROR("%s %d::send msg err!\r\n", DPM_LEVEL_ERROR)) != 0)
        return -1;
    own_rule.release();
    own_ports.release();
    return 0;
}

#define DPM_POLICY_ROUTE_REQUEST(name, oper)                                                       \
    int name(std::uint32_t vsid, const void *rule, std::uint32_t rule_len, const void *ports,      \
             std::uint32_t port_len, const char *vrf_name, std::uint32_t vrf_name_len,             \
             std::uint32_t family, const void *address) {                                          \
        const int vrf = vrf_of(vrf_name, vrf_name_len);                                            \
        if (vrf < 0)                                                                               \
            return unknown_vrf;                                                                    \
        return dpm_api_policy_route_process(vsid, rule, rule_len, ports, port_len,                 \
                                            static_cast<std::uint32_t>(vrf), family, address,      \
                                            oper);                                                 \
    }
DPM_POLICY_ROUTE_REQUEST(dpm_api_policy_route_add, DPM_OPER_ADD)
DPM_POLICY_ROUTE_REQUEST(dpm_api_policy_route_del, DPM_OPER_DEL)

const dpm_policy_route_entry *dpm_api_get_policy_route_entry_first() {
    return dpm::policy_routes().first();
}

const dpm_policy_route_entry *
dpm_api_get_policy_route_entry_next(const dpm_policy_route_entry *entry) {
    if (entry == nullptr)
        return (void)dpm::null_parameter(), nullptr;
    return dpm::policy_routes().next(*entry);
}

void dpm_policy_route_show() {
    const dpm::dpm_lock lock;
    for (const dpm_policy_route_entry &route : dpm::policy_routes()) {
        std::printf("\n\r vsid %d vrf %d ipaddr %s if_index %d nexthop %d acl_index %d\n\r",
                    route.vsid, route.vrf, dpm::address_text(route.next_hop).c_str(),
                    route.if_index, route.nexthop, route.acl_index);
        std::printf("\n\r rule info rule_buffer_len %d\n\r", route.rule_buffer_len);
        print_bytes(route.rule_buffer, route.rule_buffer_len);
        std::printf("\n\r port info port_buffer_len %d\n\r", route.port_buffer_len);
        print_bytes(route.port_buffer, route.port_buffer_len);
    }
}

int dpm_hw_fill_rule(void *buffer, std::uint32_t *length, std::uint32_t field, const void *key,
                     std::uint32_t key_len, const void *mask, std::uint32_t mask_len,
                     std::uint32_t second) {
    rule_record record = {};
    if (buffer == nullptr || length == nullptr || key == nullptr || mask == nullptr ||
        key_len > sizeof record.key || mask_len > sizeof record.mask)
        return -1;
    record.field = static_cast<std::uint16_t>(field);
    record.second = static_cast<std::uint16_t>(second);
    record.key_len = static_cast<std::uint16_t>(key_len);
    record.mask_len = static_cast<std::uint16_t>(mask_len);
    std::memcpy(record.key, key, key_len);
    std::memcpy(record.mask, mask, mask_len);
    append(buffer, length, &record, sizeof record);
    return 0;
}

int dpm_hw_fill_port(void *buffer, std::uint32_t *length, const std::uint16_t *ports,
                     std::int32_t count, std::uint32_t id) {
    if (buffer == nullptr || length == nullptr || ports == nullptr || count < 1 ||
        count > UINT16_MAX)
        return -1;
    append_head(buffer, length, id, static_cast<std::uint32_t>(count));
    append(buffer, length, ports, static_cast<std::size_t>(count) * sizeof *ports);
    return 0;
}

int dpm_hw_fill_port_all(void *buffer, std::uint32_t *length, std::uint32_t id) {
    std::uint16_t ports[max_ports];
    for (std::uint16_t i = 0; i < max_ports; i++)
        ports[i] = static_cast<std::uint16_t>(i + 1);
    const int count = std::min<int>(ddGetSwitchChipLogicPortAmount(), max_ports);
    return dpm_hw_fill_port(buffer, length, ports, count, id);
}

int dpm_hw_fill_op(void *buffer, std::uint32_t *length, std::uint32_t code, std::uint32_t count,
                   const void *const *values, const std::uint32_t *lengths) {
    if (buffer == nullptr || length == nullptr || values == nullptr || lengths == nullptr ||
        count > UINT16_MAX)
        return -1;
    for (std::uint32_t i = 0; i < count; i++)
        if (values[i] == nullptr || lengths[i] > sizeof op_value::bytes)
            return -1;
    append_head(buffer, length, code, count);
    for (std::uint32_t i = 0; i < count; i++) {
        op_value value = {static_cast<std::uint16_t>(lengths[i]), {}};
        std::memcpy(value.bytes, values[i], lengths[i]);
        append(buffer, length, &value, sizeof value);
    }
    return 0;
}
