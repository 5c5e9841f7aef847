// The settings that a card was given, as the commands that give them again.
#pragma once

#include "chassis/ctl/grammar.h"

#include <string>
#include <string_view>
#include <vector>

namespace ctl {

class Settings {
public:
    // A setting that the card took: it takes the place of one about the same, or undoes it.
    void keep(const Parsed &line, std::string_view text);
    std::string commands() const; // a line each, in the order in which they can be given

private:
    struct Setting {
        std::string about, command;
    };
    std::vector<Setting> settings_;
};

} // namespace ctl
