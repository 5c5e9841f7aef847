// Whether the chip holds what the tables say.

#include "chassis/ctl/server/command.h"
#include "chassis/tables/law.h"

namespace ctl::server {

namespace {

std::string plural(std::string_view name) {
    if (name.ends_with('s'))
        return std::string(name);
    const bool is_y = name.ends_with('y') && !name.ends_with("ey"); // port keys
    return std::string(name.substr(0, name.size() - is_y)) + (is_y ? "ies" : "s");
}

} // namespace

Reply chip_check(Command &command) {
    const tables::Verdict verdict = tables::chip_equals_tables(command.card);
    std::string differences;
    for (const std::string &line : verdict.all())
        differences += line + "\n";
    if (const std::uint64_t mistakes = command.card.chip.mistakes())
        differences += std::to_string(mistakes) + " requests that a chip would not understand\n";
    if (!differences.empty())
        return refused(differences);
    std::string counts;
    for (const auto &[kind, count] : verdict.wanted)
        counts += (counts.empty() ? " " : ", ") + plural(kind) + " " + std::to_string(count);
    return done("chip and tables agree:" + counts + "\n");
}

} // namespace ctl::server
