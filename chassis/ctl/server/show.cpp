// The tables, as people and programs read them, and their digests; and what the chassis counts.

#include "chassis/ctl/server/command.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace ctl::server {

namespace {

// The rows that were asked for: of a VRF, and inside a prefix; of "default" the two themselves.
class Filter {
public:
    explicit Filter(const Parsed &line) : vrf_(parse_number(line.value("--vrf"))) {
        const std::string_view subnet = line.value("SUBNET");
        is_default_ = subnet == "default";
        const auto address = parse_address(subnet);
        if (const auto prefix = address ? address : parse_prefix(subnet))
            subnet_ = record_of(*prefix);
    }

    bool takes(const tables::Row &row) const {
        if (!vrf_ && !subnet_ && !is_default_)
            return true;
        const std::vector<Place> places = row.places();
        return std::ranges::any_of(places, [this](const Place &place) { return takes(place); });
    }

private:
    bool takes(const Place &place) const {
        if (vrf_ && place.vrf != *vrf_)
            return false;
        if (is_default_)
            return place.prefix && place.prefix->prefix_len == 0;
        return !subnet_ || (place.prefix && tables::covers(*subnet_, *place.prefix));
    }

    std::optional<std::uint64_t> vrf_;
    std::optional<dpm_prefix> subnet_;
    bool is_default_ = false;
};

Reply print(const Command &command, const Table &table) {
    if (command.line.has("--count"))
        return done(std::to_string(table.rows()) + "\n");
    return done(command.line.has("--json") ? table.json() : table.text());
}

Reply show(Command &command, std::string_view name) {
    const tables::Table &described = *tables::find(name);
    const Filter filter(command.line);
    Table table(described.columns);
    const Reading reading(command.card);
    described.each(reading, [&](const tables::Row &row) {
        if (filter.takes(row))
            table.row(row.cells());
    });
    if (command.line.has("clear")) {
        command.card.stack.clear_history();
        command.card.suite.clear_bfd_reports();
    }
    return print(command, table);
}

std::uint64_t hash_of(const std::string &bytes) {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char byte : bytes)
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
    return hash;
}

std::string hash_text(std::uint64_t hash) {
    char text[17];
    std::snprintf(text, sizeof text, "%016" PRIx64, hash);
    return text;
}

} // namespace

#define CTL_SHOW_HANDLER(ROW, name, record, scope, help)                                           \
    Reply show_##name(Command &command) {                                                          \
        return show(command, tables::typed_name<#name>);                                           \
    }
CHASSIS_TABLES(CTL_SHOW_HANDLER, )
#undef CTL_SHOW_HANDLER

Reply route_show(Command &command) {
    return show_routes(command);
}
Reply ecmp_show(Command &command) {
    return show_ecmp(command);
}
Reply ftn_show(Command &command) {
    return show_ftn(command);
}
Reply ilm_show(Command &command) {
    return show_ilm(command);
}

// A record's digest leaves out what is the card's own.
Reply digest(Command &command) {
    const std::string_view wanted = command.line.value("TABLE");
    const Reading reading(command.card);
    std::string text;
    for (const tables::Table &table : tables::all()) {
        if (!table.is_mirrored)
            continue;
        std::uint64_t sum = 0; // of the records: the order of a tree may be the card's own
        std::uint64_t records = 0;
        table.each(reading, [&](const tables::Row &row) {
            const std::uint64_t hash = hash_of(row.bytes());
            sum += hash;
            records++;
            if (wanted == table.name)
                text += hash_text(hash) + " " + row.key() + "\n";
        });
        if (wanted.empty())
            text += std::string(table.name) + " " + std::to_string(records) + " " + hash_text(sum) +
                    "\n";
    }
    return done(text);
}

Reply show_memory(Command &command) {
    Table table({"file", "line", "blocks", "bytes"});
    for (const auto &[place, use] : command.card.os.live_by_place())
        table.row({place.file, place.line, std::int64_t(use.blocks), std::int64_t(use.bytes)});
    return print(command, table);
}

Reply show_counters(Command &command) {
    using chassis::chip::Function;
    const chassis::Card &card = command.card;
    Table table({"counter", "value"});
    const auto count = [&](std::string name, std::uint64_t value) {
        table.row({std::move(name), std::int64_t(value)});
    };
    for (unsigned kind = 0; kind < unsigned(Function::count); kind++)
        count("chip " + std::string(name_of(Function(kind))), card.chip.requests(Function(kind)));
    count("chip mistakes", card.chip.mistakes());
    const chassis::ports::Counts frames = card.ports.counts();
    count("frames received", frames.received);
    count("frames seen by a hook", frames.seen);
    count("messages queued", card.os.queued());
    count("live blocks", card.os.live_blocks());
    count("live bytes", card.os.live_bytes());
    count("bad frees", card.os.bad_frees());
    count("handle errors", card.os.handle_errors());
    count("delays", card.os.delays());
    count("clock reads", card.os.clock_reads());
    return print(command, table);
}

} // namespace ctl::server
