// Commands on the cards that they are for, and printing what those answer.

#include "chassis/ctl/client.h"

#include <algorithm>
#include <cstdio>

namespace ctl {

namespace {

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

std::size_t width_of(const std::vector<std::string> &lines) {
    std::size_t width = 0;
    for (const std::string &line : lines)
        width = std::max(width, line.size());
    return width;
}

std::string side_by_side(const std::vector<std::string> &left,
                         const std::vector<std::string> &right) {
    const std::size_t width = width_of(left);
    std::string text;
    for (std::size_t i = 0; i < std::max(left.size(), right.size()); i++) {
        const std::string first = i < left.size() ? left[i] : "";
        const std::string second = i < right.size() ? right[i] : "";
        text += first + std::string(width - first.size(), ' ') + " | " + second + "\n";
    }
    return text;
}

struct Answer {
    std::string heading;
    std::string text;
};

// The answers of two cards stand side by side where there is room.
void print_answers(const std::vector<Answer> &answers) {
    std::vector<std::vector<std::string>> blocks;
    for (const Answer &answer : answers) {
        if (answer.text.empty())
            continue;
        blocks.push_back(lines_of(answer.text));
        if (answers.size() > 1)
            blocks.back().insert(blocks.back().begin(), answer.heading);
    }
    if (blocks.size() == 2 && width_of(blocks[0]) + 3 + width_of(blocks[1]) <= terminal_columns())
        return print_paged(side_by_side(blocks[0], blocks[1]));
    std::string text;
    for (const auto &block : blocks)
        for (const std::string &line : block)
            text += line + "\n";
    print_paged(text);
}

std::string name_of(unsigned slot) {
    return "slot " + std::to_string(slot);
}

bool complain(const std::string &origin, const std::string &text) {
    std::fflush(stdout);
    const bool ended = text.ends_with('\n');
    std::fprintf(stderr, "%s: %s%s", printable(origin).c_str(), printable(text).c_str(),
                 ended ? "" : "\n");
    return false;
}

} // namespace

std::vector<Seen> Session::cards_for(const Command &command, const std::string &origin) {
    if (target_.slot)
        return {{*target_.slot, "chosen"}};
    const bool is_for_all = target_.both || command.kind == Kind::config;
    const std::vector<Seen> seen = shelf_.look(!is_for_all);
    if (seen.empty())
        complain(origin, "no card runs in " + shelf_.directory());
    if (seen.empty() || is_for_all)
        return seen;
    if (const auto found = std::ranges::find(seen, "master", &Seen::role); found != seen.end())
        return {*found};
    for (const Seen &card : seen)
        if (card.role.empty())
            complain(origin, "the card in " + name_of(card.slot) + " " + shelf_.trouble(card.slot));
    complain(origin, "no card is master; choose one with --card");
    return {};
}

// A card that did not say what it is would keep this waiting as well.
std::optional<Reply> Session::ask(const Seen &card, const Command &command, std::string_view line) {
    if (card.role.empty())
        return std::nullopt;
    return shelf_.ask(card.slot, line, command.kind == Kind::read ? read_limit : change_limit);
}

bool Session::run_on_cards(const Command &command, std::string_view line,
                           const std::string &origin) {
    const std::vector<Seen> cards = cards_for(command, origin);
    if (cards.size() > 1 && command.kind == Kind::read)
        for (const Seen &card : cards)
            if (card.role == "master") // what it still has to do reaches the other card
                shelf_.ask(card.slot, "settle");
    bool good = !cards.empty();
    std::vector<Answer> answers;
    for (const Seen &card : cards) {
        const std::string name = name_of(card.slot);
        const auto reply = ask(card, command, line);
        if (!reply)
            good = complain(origin, "the card in " + name + " " + shelf_.trouble(card.slot));
        else if (reply->status != Status::ok)
            good = complain(origin, (cards.size() > 1 ? name + ": " : "") + reply->text);
        else
            answers.push_back({name + " (" + card.role + ")", reply->text});
    }
    print_answers(answers);
    return good;
}

// A capture is read here, and goes to the card frame by frame.
static bool is_local(const Parsed &parsed) {
    return parsed.command->kind == Kind::local ||
           (parsed.command->verb == Verb::rx && !parsed.has("hex"));
}

bool Session::run_local(const Parsed &parsed, const std::string &origin) {
    switch (parsed.command->verb) {
    case Verb::verify:
        return verify_shelf(shelf_);
    case Verb::import:
        return import_lines(shelf_, parsed);
    case Verb::rx:
        return receive_capture(shelf_, target_, parsed);
    case Verb::quit:
        return quit_ = true;
    default:
        break;
    }
    std::string topic;
    for (const std::string_view word : parsed.values("TOPIC"))
        topic += (topic.empty() ? "" : " ") + std::string(word);
    const std::string text = help(topic);
    print_paged(text);
    return !text.empty() || complain(origin, "no command begins with '" + topic + "'");
}

bool Session::run(std::string_view line, const std::string &origin) {
    const Parsed parsed = parse(line);
    if (parsed.error)
        return complain(origin, "column " + std::to_string(parsed.error->column) + ": " +
                                    parsed.error->text);
    if (!parsed.command)
        return true;
    if (line.find('\n') != line.npos)
        return complain(origin, "a command is one line");
    const bool good =
        is_local(parsed) ? run_local(parsed, origin) : run_on_cards(*parsed.command, line, origin);
    return flush_output() && good;
}

std::vector<std::string> Session::values_of(std::string_view type) {
    const auto master = type == "NAME" ? shelf_.master() : std::nullopt;
    const auto reply = master ? shelf_.ask(*master, "if list") : std::nullopt;
    return reply ? lines_of(reply->text) : std::vector<std::string>{};
}

} // namespace ctl
