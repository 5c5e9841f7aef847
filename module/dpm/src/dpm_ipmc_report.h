// What a received frame tells about multicast groups: where its IGMP or MLD message stands, and the
// group records of a report.
//
// Frames come from anybody.  Nothing is read past the length that is given, whatever the bytes say;
// what does not lie whole inside the message ends it.  No state, any thread.
#pragma once

#include "dpm_address.h"
#include "dpm_api.h"

#include <cstdint>

// Where the IGMP or MLD message of a frame begins (which may be past its end), and its family.  0,
// or -1 when there is none.  An IGMP message's type is not looked at.
int dpm_ipmc_packet_parser(const std::uint8_t *frame, std::uint32_t length_bytes,
                           std::uint32_t *offset, std::uint32_t *family);

namespace dpm {

enum class record_type : std::uint8_t {
    is_include = 1,
    is_exclude = 2,
    to_include = 3,
    to_exclude = 4,
    allow = 5,
    block = 6,
};

struct group_record {
    record_type type;
    dpm_prefix group;
    std::uint32_t source_count; // of those taken
    dpm_prefix sources[DPM_IPMC_SOURCES];
};

// The address of a family at a place of a message.  False when it does not lie whole inside.
bool read_address(const std::uint8_t *message, std::uint32_t length_bytes, std::uint32_t at,
                  std::uint32_t family, dpm_prefix &address);

// Reads the records of an IGMPv3 or MLDv2 report, one after the other.  A record of an unknown type,
// or one that does not lie whole inside the message, ends it.
class record_reader {
public:
    // `message` begins with its type.
    record_reader(const std::uint8_t *message, std::uint32_t length_bytes, std::uint32_t family);
    bool next(group_record &record);

private:
    const std::uint8_t *const message_;
    const std::uint32_t length_bytes_;
    const std::uint32_t family_;
    std::uint32_t at_;
    std::uint32_t left_; // records
};

} // namespace dpm
