// The line cards' file: any bytes are read and applied without harm, what was written is read again,
// and of a file that is cut or damaged nothing is read but what stood in front of that.
//
// An input's first byte says what the rest is: a file, or changes to write, each behind its length;
// and then where the file is cut, or damaged.
#include "chassis/chip/changes_file.h"
#include "chassis/chip/chip.h"
#include "fuzz/input.h"

namespace {

using namespace chassis::chip;

// The chip that they make looks for addresses, and is made again by what it says of itself.
void apply(const std::vector<Change> &changes) {
    Chip chip, again;
    for (const Change &change : changes)
        (void)chip.apply(change);
    for (const Change &change : chip.forwarding())
        fuzz::require(again.apply(change), "what a chip says of itself are changes");
    fuzz::require(again.forwarding() == chip.forwarding(), "and all that it holds");
    for (const auto &[key, index] : chip.held<kinds::entry>())
        fuzz::require(chip.lookup(key.vrf, key.family, key.bytes.data()).has_value(),
                      "an entry is found by its address");
}

Change change_of(fuzz::Input &input) {
    Change change{input.byte() % 32u, input.byte() % 2u, 0, {}};
    const auto bytes = std::as_bytes(input.bytes(input.byte()));
    change.size = std::uint32_t(bytes.size());
    std::ranges::copy(bytes, change.bytes.begin());
    return change;
}

void write_and_read(fuzz::Input &input) {
    const std::size_t cut = input.byte() * 8u, damaged = input.byte() * 8u;
    FileBytes file = file_header(input.byte());
    std::vector<Change> changes;
    std::uint64_t sequence = 0;
    const auto append = [&](const FileBytes &part) {
        file.insert(file.end(), part.begin(), part.end());
    };
    append(file_end_mark(++sequence));
    while (!input.empty())
        append(file_record(changes.emplace_back(change_of(input)), ++sequence));
    const auto read = read_changes(file).changes;
    fuzz::require(read == changes, "what was written is read");
    apply(read);
    const auto is_begin = [&](const std::vector<Change> &some) {
        return some.size() <= changes.size() &&
               std::ranges::equal(some, std::span(changes).first(some.size()));
    };
    fuzz::require(is_begin(read_changes(std::span(file).first(std::min(cut, file.size()))).changes),
                  "a file that is cut begins as it did");
    file[damaged % file.size()] ^= std::byte{1};
    fuzz::require(is_begin(read_changes(file).changes), "and one that is damaged");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    if (input.byte() % 2)
        apply(read_changes(std::as_bytes(input.bytes(size))).changes);
    else
        write_and_read(input);
    return 0;
}
