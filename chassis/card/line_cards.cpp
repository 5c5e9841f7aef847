#include "chassis/card/line_cards.h"

#include "chassis/tables/law.h"

#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace card {

namespace {

using chassis::chip::Change;
using chassis::chip::Chip;

constexpr std::size_t changes_before_rewrite = 100'000;

constexpr std::size_t head_bytes = offsetof(Change, bytes);

bool read_change(int file, Change &change) {
    return read(file, &change, head_bytes) == ssize_t(head_bytes) &&
           change.size <= change.bytes.size() &&
           read(file, change.bytes.data(), change.size) == ssize_t(change.size);
}

bool write_change(int file, const Change &change) {
    const std::size_t bytes = head_bytes + change.used().size();
    return write(file, &change, bytes) == ssize_t(bytes);
}

} // namespace

LineCards::LineCards(chassis::Card &card, std::string path) : card_(card), path_(std::move(path)) {
    card_.chip.observe([this](const Change &change) { write(change); });
    card_.peer.before_master([this] { take_over(); });
    card_.peer.behind_master([this] { card_.mended = chassis::tables::mend_chip(card_); });
}

LineCards::~LineCards() {
    card_.chip.observe(nullptr);
}

void LineCards::forget() {
    unlink(path_.c_str());
}

void LineCards::take_over() {
    const std::lock_guard guard(taking_over_);
    {
        const auto lock = card_.chip.lock();
        if (file_ && !is_replaced()) // nobody was master in between
            return;
    }
    Chip left;
    read_into(left);
    if (!left.forwarding().empty())
        card_.chip.take_over(left);
    const auto lock = card_.chip.lock();
    start_file();
}

void LineCards::read_into(Chip &chip) const {
    const ctl::Descriptor file(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
    Change change;
    while (file && read_change(file.get(), change))
        chip.apply(change);
}

// Begins the file anew with what the chip holds now, in one step for whoever reads it.  The caller
// holds the chip's lock.
void LineCards::start_file() {
    const std::string fresh = path_ + ".new";
    file_ = ctl::Descriptor(
        open(fresh.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_APPEND | O_CLOEXEC, 0600));
    if (!file_)
        return std::perror(fresh.c_str());
    written_ = 0;
    const std::vector<Change> changes = card_.chip.forwarding();
    for (const Change &change : changes)
        if (!write_change(file_.get(), change))
            return std::perror(fresh.c_str());
    kept_ = changes.size();
    if (rename(fresh.c_str(), path_.c_str()) != 0)
        std::perror(path_.c_str());
}

// The other card may have begun a file of its own while the two could not see each other: the one
// that stays master begins again, the one that does not stops.
bool LineCards::is_replaced() const {
    struct stat about {};
    return fstat(file_.get(), &about) != 0 || about.st_nlink == 0;
}

// A standby's requests reach its own chip only.
void LineCards::write(const Change &change) {
    if (!file_)
        return;
    const bool is_master = card_.peer.role() == chassis::peer::Role::master;
    if (was_master_ && !is_master)
        file_.reset();
    was_master_ = is_master;
    if (!file_)
        return;
    if (++written_ > changes_before_rewrite + kept_ || is_replaced())
        start_file(); // without this change, which the chip is about to make or has just made
    if (!write_change(file_.get(), change))
        std::perror(path_.c_str());
}

} // namespace card
