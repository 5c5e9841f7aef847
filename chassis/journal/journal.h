// One ordered journal of what leaves the library on a card, or on several: requests to the chip,
// records that are mirrored, lines of the log, requests to the IP stack, and notices.
//
// An event is a compact line of text: "nexthop+ port 3 02:00:00:00:01:01 n18", "entry+ 10.1.1.1
// n18", "mirror host+ 10.1.1.1", "probe 10.1.1.1".  Left out is what is usual: a result of 0, every
// slot, VRF 0, VLAN 100 without an inner one.  The chip's next hops and groups are n18 and g19 by
// their indexes, or n1 and g1 in the order of their making; "cpu" is the CPU.  A line of the log
// stands with its level and as it was logged, line end and all, but for # in place of the line's
// number: "log10 dpm_host_entry_add #::host entry is full!!!\r\n".
//
// Events come from any thread.
#pragma once

#include "chassis/chassis.h"

#include <atomic>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace chassis::journal {

enum class Channel { chip, mirror, log, stack, notice, platform };
inline constexpr const char *channel_words[] = {"chip",  "mirror", "log",
                                                "stack", "notice", "platform"};

struct Event {
    unsigned number; // one sequence over all cards and channels
    unsigned slot;
    std::int64_t at_nsec; // of the card's clock
    Channel channel;
    std::string text;
};

enum class Naming { by_index, by_making };

class Journal {
public:
    explicit Journal(Naming naming = Naming::by_index) : naming_(naming) {}

    // Hears of what leaves this card, and writes it down while keep() is on.  For a card that has
    // not been started; the journal outlives it.
    void watch(Card &card);
    void keep(Card &card, bool on); // of every card; the chip makes lines only for a journal
    // What the card's owner hears: the log has one sink.
    void note(const Card &card, Channel channel, std::string text);
    void note_log(const Card &card, const os::LogLine &line);

    std::deque<Event> events() const; // the last ones
    void clear();
    std::string name_of(std::uint32_t index) const; // of a next hop or group
    std::string with_names(std::string text) const; // in place of the numbers behind "sdk_index"

private:
    std::string chip_text(const std::string &line);
    std::string mirror_text(std::string_view receiver, std::span<const std::byte> bytes) const;
    void name(std::uint32_t index, char kind);

    const Naming naming_;
    std::atomic<bool> keeps_{false};
    mutable std::mutex mutex_; // guards what follows
    unsigned count_ = 0;
    std::deque<Event> events_;
    std::map<std::uint32_t, std::string> names_;
    std::map<char, unsigned> made_; // of a kind
};

} // namespace chassis::journal
