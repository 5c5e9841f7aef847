#include "chassis/card/line_cards.h"

#include "chassis/tables/law.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace card {

namespace {

using chassis::chip::Change;
using chassis::chip::Chip;

constexpr std::uint64_t changes_before_rewrite = 100'000;
constexpr std::int64_t retry_nsec =
    chassis::os::nsec_per_sec; // to write anew what could not be written

chassis::chip::FileBytes contents_of(const std::string &path) {
    const ctl::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    chassis::chip::FileBytes bytes;
    std::array<std::byte, 65536> part;
    for (ssize_t count; file && (count = read(file.get(), part.data(), part.size())) > 0;)
        bytes.insert(bytes.end(), part.begin(), part.begin() + count);
    return bytes;
}

} // namespace

LineCards::LineCards(chassis::Card &card, std::string path) : card_(card), path_(std::move(path)) {
    card_.chip.observe([this](const Change &change) { write(change); });
    card_.peer.before_master([this] {
        take_over();
        card_.mended = 0;
    });
    card_.peer.around_master([this] { card_.mended += chassis::tables::mend_chip(card_); });
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
    static_cast<void>(start_file());
}

// A file that is damaged is not applied: what the tables say is put in its place (mend_chip).
void LineCards::read_into(Chip &chip) const {
    const chassis::chip::FileBytes bytes = contents_of(path_);
    if (bytes.empty())
        return;
    const chassis::chip::ChangesFile file = chassis::chip::read_changes(bytes);
    if (!file.fault.empty())
        return complain("is not read: " + file.fault);
    card_.peer.know_term(file.term);
    for (const Change &change : file.changes)
        chip.apply(change);
}

void LineCards::complain(const std::string &what) const {
    std::fprintf(stderr, "dpm-card: %s %s\n", path_.c_str(), what.c_str());
}

bool LineCards::append(const chassis::chip::FileBytes &bytes) {
    const ssize_t count = ::write(file_.get(), bytes.data(), bytes.size());
    if (count >= 0 && std::size_t(count) < bytes.size())
        errno = ENOSPC; // a part has found room
    return count == ssize_t(bytes.size());
}

void LineCards::breaks() {
    if (!std::exchange(is_broken_, true))
        complain(std::string("cannot be written: ") + std::strerror(errno));
    file_.reset();
    retry_at_nsec_ = card_.os.now_nsec() + retry_nsec;
}

// The term of a card that is about to become master is one above what it knows.
bool LineCards::write_snapshot() {
    const bool is_master = card_.peer.role() == chassis::peer::Role::master;
    sequence_ = 0;
    bool is_written = append(chassis::chip::file_header(card_.peer.term() + !is_master));
    for (const Change &change : card_.chip.forwarding())
        is_written = is_written && append(chassis::chip::file_record(change, ++sequence_));
    return is_written && append(chassis::chip::file_end_mark(++sequence_));
}

// Begins the file anew with what the chip holds now, in one step for whoever reads it.  The caller
// holds the chip's lock.
bool LineCards::start_file() {
    const std::string fresh = path_ + ".new";
    file_ = ctl::Descriptor(
        open(fresh.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_APPEND | O_CLOEXEC, 0600));
    const bool is_begun = file_ && write_snapshot() && rename(fresh.c_str(), path_.c_str()) == 0;
    if (!is_begun)
        breaks(), unlink(fresh.c_str());
    else if (std::exchange(is_broken_, false))
        complain("is whole again");
    rewrite_at_ = sequence_ + changes_before_rewrite;
    return is_begun;
}

// The other card may have begun a file of its own while the two could not see each other: the one
// that stays master begins again, the one that does not stops.
bool LineCards::is_replaced() const {
    struct stat about {};
    return fstat(file_.get(), &about) != 0 || about.st_nlink == 0;
}

// A standby's requests reach its own chip only.
void LineCards::write(const Change &change) {
    const bool is_master = card_.peer.role() == chassis::peer::Role::master;
    if (std::exchange(was_master_, is_master) && !is_master)
        file_.reset(), is_broken_ = false;
    if (!file_ && !is_broken_)
        return;
    const bool is_due = is_broken_ ? is_retried() : sequence_ >= rewrite_at_ || is_replaced();
    if (is_due && !start_file()) // without this change, which the chip is about to make or has made
        return;
    if (!is_broken_ && !append(chassis::chip::file_record(change, ++sequence_)))
        breaks();
}

bool LineCards::is_retried() const {
    return card_.os.now_nsec() >= retry_at_nsec_;
}

void LineCards::retry() {
    const auto lock = card_.chip.lock();
    if (is_broken_ && is_retried() && card_.peer.role() == chassis::peer::Role::master)
        static_cast<void>(start_file());
}

} // namespace card
