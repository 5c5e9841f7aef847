// The line cards of a shelf of processes: what their chips forward by outlives a control card.
//
// The chip model lives in the control card's process.  So that a standby that becomes master finds
// the chips as the dead master left them, the master writes every change to a file of the shelf
// (chip/changes_file.h), and a card that becomes master reads it first.  The file is of the
// master's term: a card of an earlier one writes nothing any more.  A write that fails is told
// once, and the whole file is written anew as soon as it can be.
#pragma once

#include "chassis/chassis.h"
#include "chassis/chip/changes_file.h"
#include "chassis/ctl/wire.h"

#include <mutex>
#include <string>

namespace card {

class LineCards {
public:
    LineCards(chassis::Card &card, std::string path);
    ~LineCards();
    LineCards(const LineCards &) = delete;
    LineCards &operator=(const LineCards &) = delete;

    // No card runs in this shelf any more, or yet: the line cards have no power.
    void forget();
    // Writes the file anew if it lacks something; is called now and then, from any thread.
    void retry();

private:
    void take_over();
    void read_into(chassis::chip::Chip &chip) const;
    bool start_file();
    bool write_snapshot();
    bool append(const chassis::chip::FileBytes &bytes);
    void breaks();
    bool is_retried() const;
    bool is_replaced() const;
    void write(const chassis::chip::Change &change);
    void complain(const std::string &what) const;

    chassis::Card &card_;
    const std::string path_;
    std::mutex taking_over_;
    ctl::Descriptor file_; // guarded by the chip's lock, as are those below
    bool was_master_ = false;
    bool is_broken_ = false;       // a write failed: the file lacks something
    std::uint64_t sequence_ = 0;   // of the last record
    std::uint64_t rewrite_at_ = 0; // a sequence
    std::int64_t retry_at_nsec_ = 0;
};

} // namespace card
