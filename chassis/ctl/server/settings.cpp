#include "chassis/ctl/server/settings.h"

#include <algorithm>

namespace ctl {

namespace {

constexpr Verb undoing[] = {Verb::if_del, Verb::addr_del, Verb::sub_del, Verb::neigh_silent,
                            Verb::pbr_del};

// What a setting is about.
std::string subject_of(const Parsed &line) {
    std::string subject(line.command->path.substr(0, line.command->path.find(' ')));
    subject += line.command->verb == Verb::if_vrf ? " vrf" : "";
    for (const char *key : {"NAME", "PREFIX", "SUPERVLAN", "IP", "dev"})
        subject += line.has(key) ? " " + std::string(line.value(key)) : "";
    const bool is_of_a_vlan = line.has("SUPERVLAN") || line.command->path.starts_with("vrf ") ||
                               line.command->path.starts_with("vlan ");
    for (const char *key : {"VLAN", "VRF"})
        subject += is_of_a_vlan && line.has(key) ? " " + std::string(line.value(key)) : "";
    const bool is_of_a_rule = line.command->path.starts_with("pbr ");
    for (const char *key : {"from", "to", "port"})
        for (const std::string_view value : line.values(key))
            subject += is_of_a_rule ? " " + std::string(key) + " " + std::string(value) : "";
    return subject;
}

} // namespace

void Settings::keep(const Parsed &line, std::string_view text) {
    if (line.command->verb == Verb::clock_advance)
        return;
    const std::string subject = subject_of(line);
    std::string command;
    for (const Word &word : split_words(text))
        command += (command.empty() ? "" : " ") + std::string(word.text);
    const bool undoes = std::ranges::find(undoing, line.command->verb) != std::end(undoing);
    const auto place = std::ranges::find(settings_, subject, &Setting::about);
    if (!undoes && place != settings_.end())
        place->command = command;
    else if (!undoes)
        settings_.push_back({subject, command});
    if (!undoes)
        return;
    // With an interface goes all that is about it, and what is about its VLAN.
    const std::string name(line.command->verb == Verb::if_del ? line.value("NAME") : "");
    const std::string subs = "sub " + (name.size() > 6 ? name.substr(6) : "none") + " ";
    std::erase_if(settings_, [&](const Setting &kept) {
        return kept.about == subject || kept.about.starts_with(subs) ||
               (!name.empty() && kept.about.ends_with(" " + name));
    });
}

std::string Settings::commands() const {
    std::string text;
    for (const Setting &setting : settings_)
        text += setting.command + "\n";
    return text;
}

} // namespace ctl
