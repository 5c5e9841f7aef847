// The contract functions of stream items.
#include "chassis/chip/contract.h"
#include "platform/hw.h"

namespace chassis::chip {

namespace {

constexpr int logical_ports = 64;

std::vector<std::uint8_t> bytes_of(const void *buffer, std::uint32_t length) {
    const auto *const first = static_cast<const std::uint8_t *>(buffer);
    return {first, first + length};
}

// The next hop that the first operation redirects to.
Index target_of(const void *operations, std::uint32_t length) {
    constexpr std::size_t value_at = 8; // behind the counts, the code and the value's length
    Index index = 0;
    if (length >= value_at + sizeof index)
        std::memcpy(&index, static_cast<const std::uint8_t *>(operations) + value_at, sizeof index);
    return index;
}

} // namespace

} // namespace chassis::chip

using namespace chassis::chip;

#define STREAM_ITEM(contract_function, function, Act)                                              \
    int contract_function(uint32_t vsid, uint32_t, const void *rule, uint32_t rule_len,            \
                          const void *oper, uint32_t oper_len, const void *ports,                  \
                          uint32_t port_len, uint32_t) {                                           \
        return answer<Function::function>(                                                         \
            Act<kinds::stream>({vsid, bytes_of(rule, rule_len), bytes_of(ports, port_len)},        \
                               target_of(oper, oper_len)));                                        \
    }
STREAM_ITEM(hw_driver_set_stream_qos_item, set_stream_qos_item, Put)
STREAM_ITEM(hw_driver_delete_qos_item_by_stream, delete_qos_item_by_stream, Drop)
#undef STREAM_ITEM

int ddGetSwitchChipLogicPortAmount() {
    return logical_ports;
}
