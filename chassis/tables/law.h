// The laws that the descriptions of tables make: the chip holds what the tables say and nothing
// else, and the standby's records are the master's.
//
// They read by exported walkers alone, so they hold in a card that runs (`chip check`) as in the
// tests.
#pragma once

#include "chassis/chassis.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace chassis::tables {

using Lines = std::vector<std::string>; // one for each difference

struct Verdict {
    Lines faults;
    Lines drifts; // of routes that do not follow their gateways since the chip refused something
    Lines leaks;  // objects that count more users than they have
    std::map<std::string_view, unsigned> leaked; // such users, by kind of object
    std::map<std::string_view, unsigned> wanted; // objects, by kind

    Lines all() const;
};

Verdict chip_equals_tables(Card &card);

// Makes what line cards keep equal to what the tables say, objects under the tables' indexes: what
// a master that died between a request to the chip and its record left behind.  How many objects
// were put, set to another value or taken away.  Takes the DPM lock, then the chip's.
unsigned mend_chip(Card &card);

// But for what is the card's own.
Lines standby_equals_master(Card &master, Card &standby);

} // namespace chassis::tables
