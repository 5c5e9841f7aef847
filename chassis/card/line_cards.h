// The line cards of a shelf of processes: what their chips forward by outlives a control card.
//
// The chip model lives in the control card's process.  So that a standby that becomes master finds
// the chips as the dead master left them, the master writes every change to a file of the shelf,
// one record a change, and a card that becomes master reads it first.  A record that was cut short
// ends the file.
#pragma once

#include "chassis/chassis.h"
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

private:
    void take_over();
    void read_into(chassis::chip::Chip &chip) const;
    void start_file();
    bool is_replaced() const;
    void write(const chassis::chip::Change &change);

    chassis::Card &card_;
    const std::string path_;
    std::mutex taking_over_;
    ctl::Descriptor file_; // guarded by the chip's lock, as are those below
    bool was_master_ = false;
    std::size_t written_ = 0, kept_ = 0; // changes in the file, and when it was begun
};

} // namespace card
