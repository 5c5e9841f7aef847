// Changes of the chip in a file, as line cards keep them over their control cards' death.
//
//   header | records of a snapshot | end mark | records of what changed since
//   record:  sequence u64 | length u32 | checksum u32 | the change, as many bytes
//
// A file is of one master's term.  It is read whole or not at all: one that is foreign or damaged
// is not to be applied.  Only its last record may be cut short, by a writer that died.
#pragma once

#include "chassis/chip/change.h"

#include <string>
#include <vector>

namespace chassis::chip {

struct ChangesFile {
    std::uint64_t term = 0;
    std::vector<Change> changes;
    std::string fault; // what is wrong with the file; then there are no changes
};

ChangesFile read_changes(std::span<const std::byte> file);

// What is written, in this order.  The first record's sequence is 1, each next one's one higher.
using FileBytes = std::vector<std::byte>;
FileBytes file_header(std::uint64_t term);
FileBytes file_record(const Change &change, std::uint64_t sequence);
FileBytes file_end_mark(std::uint64_t sequence); // behind the snapshot

} // namespace chassis::chip
