// One ordered journal of everything that leaves the library on the cards of a shelf: requests to
// the chip, records that are mirrored, lines of the log, requests to the IP stack, what dependants
// of the host table are told, notices to the platform.
//
// An event is a compact line of text, as rows compare it (rows.h): "nexthop+ port 3
// 02:00:00:00:01:01 n1", "entry+ 10.1.1.1 n1", "mirror host+ 10.1.1.1", "probe 10.1.1.1", "notice
// 10.1.1.1 came".  Left out is what is usual: a result of 0, every slot, VRF 0, VLAN 100 without an inner one.  The
// chip's indexes have names in the order of their making, n1, n2 for next hops, g1, g2 for groups;
// "cpu" is the CPU.  A line of the log stands with its level and as it was logged, line end and all,
// but for # in place of the line's number: "log10 dpm_host_entry_add #::host entry is full!!!\r\n".
#pragma once

#include "chassis/chassis.h"

#include <deque>
#include <map>
#include <string>
#include <string_view>

namespace rig {

enum class Channel { chip, mirror, log, stack, notice, platform };

struct Event {
    unsigned number; // one sequence over all cards and channels
    unsigned slot;
    Channel channel;
    std::string text;
};

class Journal {
public:
    // Writes down from now on what leaves the library on this card.  The card does not outlive the
    // journal, and the library has been started.
    void watch(chassis::Card &card);
    void keep(bool on) { keeps_ = on; } // long walks do without

    const std::deque<Event> &events() const { return events_; }
    void clear() { events_.clear(); }
    std::string name_of(std::uint32_t index) const; // of a next hop or group
    std::string with_names(std::string text) const; // in place of the numbers behind "sdk_index"

private:
    void note(unsigned slot, Channel channel, std::string text);
    std::string chip_text(const std::string &line);
    std::string mirror_text(std::string_view receiver, std::span<const std::byte> bytes) const;

    bool keeps_ = true;
    unsigned count_ = 0;
    std::deque<Event> events_; // the last ones
    std::map<std::uint32_t, std::string> names_;
    unsigned nexthops_ = 0, groups_ = 0; // that were made
};

} // namespace rig
