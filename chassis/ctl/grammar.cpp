// Patterns of arguments, parsing, completion and help.

#include "chassis/ctl/grammar.h"

#include <algorithm>

namespace ctl {

namespace {

struct Group { // arguments that stand together
    std::vector<Expected> items;
    bool positional = false, required = false, repeats = false;
};

struct Pattern {
    std::vector<std::string_view> path;
    std::vector<Group> groups;
    bool skips = false; // what ip(8) prints besides
};

Expected item_of(std::string_view text) {
    const bool is_type = text.front() >= 'A' && text.front() <= 'Z';
    return is_type ? Expected{{}, &type_named(text)} : Expected{text};
}

// One group from the words of a pattern, from the word at `at` on.
Group read_group(const std::vector<Word> &words, std::size_t &at) {
    Group group;
    const char open = words[at].text.front();
    group.positional = open != '[' && open != '{';
    group.required = open != '[';
    for (bool closed = false; !closed; at++) {
        std::string_view text = words[at].text;
        group.repeats = text.back() == '*';
        closed = group.positional || text.find_first_of("]}") != text.npos;
        text.remove_prefix(std::min(text.find_first_not_of("[{"), text.size()));
        group.items.push_back(item_of(text.substr(0, text.find_first_of("]}"))));
    }
    return group;
}

Pattern read_pattern(const Command &command) {
    Pattern pattern;
    for (const Word &word : split_words(command.path))
        pattern.path.push_back(word.text);
    const std::vector<Word> words = split_words(command.arguments);
    for (std::size_t at = 0; at < words.size();) {
        if (words[at].text == "...") {
            pattern.skips = true;
            at++;
        } else {
            pattern.groups.push_back(read_group(words, at));
        }
    }
    return pattern;
}

const Pattern &pattern_of(const Command &command) {
    static const std::vector<Pattern> patterns = [] {
        std::vector<Pattern> all;
        for (const Command &each : commands())
            all.push_back(read_pattern(each));
        return all;
    }();
    return patterns[std::size_t(command.verb)];
}

bool begins_with(const Pattern &pattern, const std::vector<Word> &words, std::size_t count) {
    if (pattern.path.size() < count)
        return false;
    for (std::size_t i = 0; i < count; i++)
        if (pattern.path[i] != words[i].text)
            return false;
    return true;
}

Error unexpected(const Word &word, const std::vector<Expected> &expected) {
    std::string text = "unknown word '" + std::string(word.text.substr(0, 64)) + "'";
    for (std::size_t i = 0; i < expected.size(); i++)
        text += (i == 0                     ? "; expected "
                 : i + 1 == expected.size() ? " or "
                                            : ", ") +
                expected[i].text();
    if (expected.empty())
        text += "; nothing more was expected";
    return {word.column, text};
}

Error incomplete(std::string_view line, const std::vector<Expected> &missing) {
    const std::size_t end = line.find_last_not_of(" \t\r\n");
    std::string text = "the command is not complete; expected ";
    for (std::size_t i = 0; i < missing.size(); i++)
        text += (i ? ", " : "") + missing[i].text();
    return {end == line.npos ? 1 : end + 3, text};
}

// The path of a command: the longest that the line begins with.  `at` is left behind it.
const Command *find_command(const std::vector<Word> &words, std::size_t &at, Parsed &parsed) {
    const Command *found = nullptr;
    for (std::size_t depth = 0;; depth++) {
        parsed.expected.clear();
        for (const Command &command : commands()) {
            const Pattern &pattern = pattern_of(command);
            if (!begins_with(pattern, words, depth))
                continue;
            if (pattern.path.size() == depth) {
                found = &command;
                at = depth;
                continue;
            }
            const std::string_view next = pattern.path[depth];
            if (std::ranges::find(parsed.expected, next, &Expected::literal) ==
                parsed.expected.end())
                parsed.expected.push_back({next});
        }
        const bool goes_on =
            depth < words.size() && std::ranges::any_of(parsed.expected, [&](const Expected &each) {
                return each.takes(words[depth].text);
            });
        if (!goes_on) {
            at = found ? at : depth;
            return found;
        }
    }
}

// Matches the words behind a path with a pattern.
class Matcher {
public:
    Matcher(const Pattern &pattern, std::string_view line, const std::vector<Word> &words,
            Parsed &parsed)
        : pattern_(pattern), line_(line), words_(words), parsed_(parsed),
          used_(pattern.groups.size()) {}

    void match(std::size_t at) {
        while (at < words_.size() && !parsed_.error) {
            if (Group const *const group = take_group(words_[at].text))
                match_group(*group, at);
            else if (const std::size_t skipped = pattern_.skips ? skipped_words(words_, at) : 0)
                at += skipped;
            else
                parsed_.error = unexpected(words_[at], openings());
        }
        if (parsed_.error)
            return;
        parsed_.expected = openings();
        if (const auto missing = openings(true); !missing.empty())
            parsed_.error = incomplete(line_, missing);
    }

private:
    bool is_open(std::size_t index) const {
        const Group &group = pattern_.groups[index];
        if (group.positional)
            return index == next_positional();
        return !used_[index] || group.repeats;
    }

    std::size_t next_positional() const {
        std::size_t index = 0;
        while (index < used_.size() && (!pattern_.groups[index].positional || used_[index]))
            index++;
        return index;
    }

    // What may begin here; `required`: what must still come.
    std::vector<Expected> openings(bool required = false) const {
        std::vector<Expected> all;
        for (std::size_t i = 0; i < pattern_.groups.size(); i++) {
            const Group &group = pattern_.groups[i];
            if (is_open(i) && (!required || (group.required && !used_[i])))
                all.push_back(group.items.front());
        }
        return all;
    }

    // Literal words win over values, and places win over attributes without a literal.
    const Group *take_group(std::string_view word) {
        for (const bool literal : {true, false})
            for (std::size_t i = 0; i < pattern_.groups.size(); i++) {
                const Group &group = pattern_.groups[i];
                const Expected &first = group.items.front();
                if (!is_open(i) || literal == (first.type != nullptr) || !first.takes(word))
                    continue;
                used_[i] = true;
                return &group;
            }
        return nullptr;
    }

    void match_group(const Group &group, std::size_t &at) {
        std::string_view key;
        for (const Expected &item : group.items) {
            if (at == words_.size()) {
                parsed_.expected = {item};
                parsed_.error = incomplete(line_, {item});
                return;
            }
            const Word &word = words_[at++];
            if (!item.takes(word.text)) {
                parsed_.error = unexpected(word, {item});
                return;
            }
            if (item.type)
                parsed_.arguments.push_back({key.empty() ? item.type->name : key, word.text});
            key = item.literal;
        }
        if (!key.empty())
            parsed_.arguments.push_back({key, {}});
    }

    const Pattern &pattern_;
    const std::string_view line_;
    const std::vector<Word> &words_;
    Parsed &parsed_;
    std::vector<bool> used_;
};

bool is_at_end(const Error &error, std::string_view line) {
    return error.column > line.size();
}

std::string padded(std::string text, std::size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

void explain_types(const Pattern &pattern, std::string &text) {
    std::vector<const Type *> told;
    for (const Group &group : pattern.groups)
        for (const Expected &item : group.items)
            if (item.type && std::ranges::find(told, item.type) == told.end()) {
                told.push_back(item.type);
                text += "    " + padded(std::string(item.type->name), 10) + item.text() + "\n";
            }
}

} // namespace

const std::vector<Command> &commands() {
    static const std::vector<Command> all = {
#define CTL_ROW(name, path, arguments, kind, help)                                                 \
    {Verb::name, #name, path, arguments, Kind::kind, help},
        CTL_COMMANDS(CTL_ROW)
#undef CTL_ROW
    };
    return all;
}

std::string command_line_of(const Command &command) {
    return std::string(command.path) + (command.arguments.empty() ? "" : " ") +
           std::string(command.arguments);
}

bool Expected::takes(std::string_view text) const {
    if (type)
        return type->takes(text);
    return text == literal || (literal.starts_with("--") && text == literal.substr(2));
}

std::string Expected::text() const {
    if (!type)
        return std::string(literal);
    std::string text(type->expected);
    for (std::size_t i = 0; i < type->values.size(); i++)
        text += (i ? ", " : " (") + std::string(type->values[i]);
    return text + (type->values.empty() ? "" : ")");
}

bool Parsed::has(std::string_view key) const {
    return std::ranges::find(arguments, key, &Argument::key) != arguments.end();
}

std::string_view Parsed::value(std::string_view key) const {
    const auto found = std::ranges::find(arguments, key, &Argument::key);
    return found == arguments.end() ? std::string_view() : found->value;
}

std::vector<std::string_view> Parsed::values(std::string_view key) const {
    std::vector<std::string_view> all;
    for (const Argument &argument : arguments)
        if (argument.key == key)
            all.push_back(argument.value);
    return all;
}

std::uint64_t Parsed::number(std::string_view key, std::uint64_t otherwise) const {
    return parse_number(value(key)).value_or(otherwise);
}

Parsed parse(std::string_view line) {
    Parsed parsed;
    if (line.size() > max_line_bytes) {
        parsed.error = Error{max_line_bytes + 1, "the line is too long"};
        return parsed;
    }
    const std::vector<Word> words = split_words(line);
    std::size_t at = 0;
    parsed.command = find_command(words, at, parsed);
    if (parsed.command) {
        const std::vector<Expected> longer =
            at == words.size() ? parsed.expected : std::vector<Expected>();
        Matcher(pattern_of(*parsed.command), line, words, parsed).match(at);
        parsed.expected.insert(parsed.expected.begin(), longer.begin(), longer.end());
    } else if (at < words.size())
        parsed.error = unexpected(words[at], parsed.expected);
    else if (!words.empty())
        parsed.error = incomplete(line, parsed.expected);
    return parsed;
}

std::vector<std::string> complete(std::string_view line, const Values &values_of) {
    const std::size_t blank = line.find_last_of(" \t");
    const std::string_view begun = blank == line.npos ? line : line.substr(blank + 1);
    const std::string_view before = line.substr(0, line.size() - begun.size());
    const Parsed parsed = parse(before);
    if (parsed.error && !is_at_end(*parsed.error, before))
        return {};
    std::vector<std::string> found;
    const auto offer = [&](std::string_view word) {
        if (word.starts_with(begun))
            found.emplace_back(word);
    };
    for (const Expected &expected : parsed.expected) {
        if (!expected.type) {
            offer(expected.literal);
            continue;
        }
        for (const std::string_view value : expected.type->values)
            offer(value);
        if (values_of && expected.type->values.empty())
            for (const std::string &value : values_of(expected.type->name))
                offer(value);
    }
    return found;
}

std::string help(std::string_view topic) {
    std::vector<const Command *> matching;
    const std::vector<Word> words = split_words(topic);
    for (const Command &command : commands())
        if (begins_with(pattern_of(command), words, words.size()))
            matching.push_back(&command);
    std::string text;
    for (const Command *command : matching) {
        text += command_line_of(*command) + "\n    " + std::string(command->help) + "\n";
        if (matching.size() == 1)
            explain_types(pattern_of(*command), text);
    }
    return text;
}

} // namespace ctl
