#include "chassis/chip/changes_file.h"

#include "chassis/peer/claim.h"

#include <cstddef>

namespace chassis::chip {

namespace {

constexpr std::uint32_t file_magic = 0x4452434c; // "LCRD"
constexpr std::uint32_t file_version = 1;
constexpr std::size_t head_bytes = offsetof(Change, bytes);

struct Header {
    std::uint32_t magic, version, head, longest;
    std::uint64_t term;
    std::uint32_t kinds, checksum;
};
static_assert(sizeof(Header) == 32);

struct RecordHead {
    std::uint64_t sequence;
    std::uint32_t length, checksum;
};
static_assert(sizeof(RecordHead) == 16);

std::uint32_t checksum_of(std::span<const std::byte> bytes, std::uint32_t sum = 0x811C9DC5) {
    for (const std::byte byte : bytes)
        sum = (sum ^ std::uint32_t(byte)) * 0x01000193;
    return sum;
}

std::uint32_t checksum_of(const RecordHead &head, std::span<const std::byte> body) {
    const auto told = std::as_bytes(std::span(&head, 1)).first(offsetof(RecordHead, checksum));
    return checksum_of(body, checksum_of(told));
}

Header header_of(std::uint64_t term) {
    Header header{
        file_magic, file_version, head_bytes, Change::max_bytes, term, std::tuple_size_v<Kinds>, 0};
    const auto told = std::as_bytes(std::span(&header, 1)).first(offsetof(Header, checksum));
    header.checksum = checksum_of(told);
    return header;
}

FileBytes record_of(std::span<const std::byte> body, std::uint64_t sequence) {
    RecordHead head{sequence, std::uint32_t(body.size()), 0};
    head.checksum = checksum_of(head, body);
    FileBytes record(sizeof head + body.size());
    std::memcpy(record.data(), &head, sizeof head);
    if (!body.empty())
        std::memcpy(record.data() + sizeof head, body.data(), body.size());
    return record;
}

// The bytes of the next record's change, none for the end mark; false when there is no whole one.
// A record that was cut short by the end of the file is no fault.
bool next_record(std::span<const std::byte> &file, std::uint64_t sequence,
                 std::span<const std::byte> &body, std::string &fault) {
    RecordHead head;
    if (file.size() < sizeof head)
        return false;
    std::memcpy(&head, file.data(), sizeof head);
    if (head.length > sizeof(Change) || head.sequence != sequence)
        return fault = "record " + std::to_string(sequence) + " is damaged", false;
    if (file.size() < sizeof head + head.length)
        return false;
    body = file.subspan(sizeof head, head.length);
    file = file.subspan(sizeof head + head.length);
    if (head.checksum != checksum_of(head, body))
        return fault = "record " + std::to_string(sequence) + " is damaged", false;
    return true;
}

bool read_change(std::span<const std::byte> body, Change &change) {
    change = {};
    if (body.size() < head_bytes || body.size() > sizeof change)
        return false;
    std::memcpy(static_cast<void *>(&change), body.data(), body.size());
    return change.size == body.size() - head_bytes;
}

} // namespace

FileBytes file_header(std::uint64_t term) {
    const Header header = header_of(term);
    const auto bytes = std::as_bytes(std::span(&header, 1));
    return {bytes.begin(), bytes.end()};
}

FileBytes file_record(const Change &change, std::uint64_t sequence) {
    const auto bytes = std::as_bytes(std::span(&change, 1));
    return record_of(bytes.first(head_bytes + change.used().size()), sequence);
}

FileBytes file_end_mark(std::uint64_t sequence) {
    return record_of({}, sequence);
}

ChangesFile read_changes(std::span<const std::byte> file) {
    Header header;
    if (file.size() < sizeof header)
        return {0, {}, "it has no header"};
    std::memcpy(&header, file.data(), sizeof header);
    const Header wanted = header_of(header.term);
    if (std::memcmp(&header, &wanted, sizeof header) != 0 || header.term >= peer::max_term)
        return {0, {}, "it is not a file of this program's line cards"};
    file = file.subspan(sizeof header);
    ChangesFile read{header.term, {}, {}};
    bool is_snapshot_whole = false;
    std::span<const std::byte> body;
    for (std::uint64_t sequence = 1; next_record(file, sequence, body, read.fault); sequence++) {
        if (body.empty())
            is_snapshot_whole = true;
        else if (!read_change(body, read.changes.emplace_back()))
            read.fault = "record " + std::to_string(sequence) + " holds no change";
        if (!read.fault.empty())
            break;
    }
    if (read.fault.empty() && !is_snapshot_whole)
        read.fault = "its snapshot does not end";
    if (!read.fault.empty())
        read.changes.clear();
    return read;
}

} // namespace chassis::chip
