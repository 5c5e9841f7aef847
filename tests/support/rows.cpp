// Rows: what their words stand for, what they do and what is made of a difference.

#include "support/rows.h"

#include "dpm_route.h"

#include <algorithm>
#include <cstdlib>
#include <dlfcn.h>
#include <iostream>
#include <map>
#include <sstream>

namespace rig {

using namespace chassis;

namespace {

constexpr std::size_t columns = 100, literal_columns = 90;
using journal::channel_words;

struct Names { // of one family
    const char *link, *net, *inside, *any, *nets, *nets_end, *bits, *link_bits;
};
constexpr Names ipv4{"10.1.1.", "10.2.0.0/16", "10.2.3.4", "0.0.0.0/0",
                     "10.9.",   ".0/24",       "32",       "/24"};
constexpr Names ipv6{"2001:db8:1::", "2001:db8:2::/48", "2001:db8:2::4", "::/0",
                     "2001:db8:9:",  "::/64",           "128",           "/64"};

std::map<std::string, std::function<void(RowShelf &, const Words &)>> &added_verbs() {
    static std::map<std::string, std::function<void(RowShelf &, const Words &)>> verbs;
    return verbs;
}

bool is_part_of_word(char character) {
    return std::isalnum(static_cast<unsigned char>(character)) || character == '.' ||
           character == ':' || character == '/';
}

void replace_words(std::string &text, const std::string &word, const std::string &by) {
    for (std::size_t at = text.find(word); at != text.npos; at = text.find(word, at)) {
        const std::size_t end = at + word.size();
        const bool stands_alone = (at == 0 || !is_part_of_word(text[at - 1])) &&
                                  (end == text.size() || !is_part_of_word(text[end]));
        if (stands_alone)
            text.replace(at, word.size(), by);
        at += stands_alone ? by.size() : word.size();
    }
}

std::vector<std::string> split(const std::string &text, const std::string &by) {
    std::vector<std::string> parts;
    for (std::size_t at = 0; !text.empty();) {
        const std::size_t end = text.find(by, at);
        parts.push_back(text.substr(at, end - at));
        if (end == text.npos)
            break;
        at = end + by.size();
    }
    return parts;
}

bool matches(const std::string &wanted, const std::string &found) {
    return wanted.ends_with("...") ? found.starts_with(wanted.substr(0, wanted.size() - 3))
                                   : found == wanted;
}

std::string escaped(const std::string &text) {
    std::string plain;
    for (const char character : text)
        plain += character == '\r'   ? "\\r"
                 : character == '\n' ? "\\n"
                 : character == '\t' ? "\\t"
                 : character == '"'  ? "\\\""
                                     : std::string(1, character);
    return plain;
}

// A row as it is written in a source.
std::string source_of(const std::string &command, const std::vector<std::string> &effects) {
    std::string text = "    {\"" + command + "\",", line;
    for (const std::string &effect : effects) {
        const std::string part = escaped(effect) + (&effect == &effects.back() ? "" : "; ");
        if (!line.empty() && line.size() + part.size() > literal_columns)
            text += "\n     \"" + std::exchange(line, "") + "\"";
        line += part;
    }
    const bool fits = text.size() + line.size() + 5 <= columns;
    return text + (fits ? " \"" : "\n     \"") + line + "\"},\n";
}

void make_exception(Exceptions &exceptions, const Words &words) {
    const unsigned number = words.size() > 2 ? unsigned(std::stoul(words[2])) : 1;
    const std::map<std::string, unsigned Exceptions::*> known{
        {"mistakes", &Exceptions::mistakes},
        {"failed-checks", &Exceptions::failed_checks},
        {"leaks", &Exceptions::nexthop_leaks},
        {"group-leaks", &Exceptions::group_leaks},
        {"blocks", &Exceptions::blocks},
        {"adrift", &Exceptions::routes_adrift},
        {"chip-differs", &Exceptions::chip_differs},
        {"mcast-adrift", &Exceptions::mcast_adrift},
        {"standby-differs", &Exceptions::standby_differs},
    };
    const auto found = known.find(words[1]);
    ASSERT_NE(found, known.end()) << "no such exception: " << words[1];
    exceptions.*found->second = number;
}

} // namespace

Verb::Verb(const char *word, std::function<void(RowShelf &, const Words &)> act) {
    added_verbs()[word] = std::move(act);
}

// --- the shelf of a table ---

RowShelf::RowShelf(unsigned family, Role role, const RowOptions &options)
    : Shelf(role == Role::alone ? Start::alone : Start::mirroring), family_(family), role_(role) {
    const Names &names = family == 4 ? ipv4 : ipv6;
    const auto value = [this](const std::string &name, const std::string &text) {
        values_.emplace_back("{" + name + "}", text);
    };
    value("net", names.net);
    value("in", names.inside);
    value("any", names.any);
    value("gw", std::string(names.link) + "99");
    value("ip", family == 4 ? "ipv4" : "ipv6");
    value("bits", names.bits);
    for (int i = 1; i <= 9; ++i) {
        const std::string number = std::to_string(i);
        value(std::string(1, char('a' + i - 1)), names.link + number);
        value("m" + number, "02:00:00:00:01:0" + number);
        value("M" + number, "2.0.0.0.1." + number);
        value("l" + number, "fe80::ff:fe00:10" + number);
        value("g" + number, (family == 4 ? "224.1.1." : "ff05::") + number);
        value("s" + number, (family == 4 ? "10.9.9." : "2001:db8:9::") + number);
        value("net" + number, names.nets + number + names.nets_end);
    }
    see(options.see);
    if (!options.bare)
        for (const char *command : {"if add vlanif100", "if add vlanif200"})
            (void)run(command);
    if (!options.bare)
        (void)run(expanded("addr add {gw}") + names.link_bits + " dev vlanif100");
    if (role == Role::taken_over) {
        switch_over();
        standby_connects();
    }
    value("mac", role == Role::taken_over ? "02:00:00:00:00:0a" : "02:00:00:00:00:09");
    value("linklocal", role == Role::taken_over ? "fe80::ff:fe00:a" : "fe80::ff:fe00:9");
}

std::string RowShelf::expanded(std::string text) const {
    for (const auto &[name, value] : values_)
        for (std::size_t at = text.find(name); at != text.npos; at = text.find(name, at))
            text.replace(at, name.size(), value);
    const std::size_t left = text.find('{'); // JSON has one in front of a quote
    EXPECT_TRUE(left == text.npos || text[left + 1] == '"') << "unknown placeholder in " << text;
    return text;
}

std::string RowShelf::written(std::string text) const {
    for (const auto &[name, value] : values_)
        if (value.size() > 3) // no single numbers
            replace_words(text, value, name);
    return text;
}

void RowShelf::answer(const std::string &line) {
    for (const std::string &part : split("= " + line, "; "))
        answers_.push_back(part);
}

void RowShelf::see(const std::string &channels) {
    seen_.clear();
    seen_log_.clear();
    const std::size_t end = channels.find(" but ");
    unseen_ = words_of(end == channels.npos ? "" : channels.substr(end + 5));
    for (std::string word : words_of(channels.substr(0, end))) {
        if (word.starts_with("log/"))
            seen_log_ = word.substr(4), word = "log";
        const auto at = std::find(std::begin(channel_words), std::end(channel_words), word);
        ASSERT_NE(at, std::end(channel_words)) << "no such channel: " << word;
        seen_.push_back(Channel(at - std::begin(channel_words)));
    }
}

// "many 300 neigh add 10.1.#": the numbers stand for # in two bytes, as "1.43".
void RowShelf::repeat(const Words &words, const std::string &command) {
    const std::string each = command.substr(command.find(words[2]));
    keep_log(false);
    for (unsigned number = 0; number < std::stoul(words[1]); ++number) {
        std::string one = each;
        for (std::size_t at = one.find('#'); at != one.npos; at = one.find('#'))
            one.replace(at, 1, std::to_string(number >> 8) + "." + std::to_string(number & 255));
        EXPECT_EQ(run(one).text, "") << one;
    }
    keep_log(true);
}

// "each {a} {b} do neigh add *": the words stand for *.
void RowShelf::each(const std::string &command) {
    const std::size_t end = command.find(" do ");
    for (const std::string &word : words_of(command.substr(5, end - 5))) {
        std::string one = command.substr(end + 4);
        perform(one.replace(one.find('*'), 1, word));
    }
}

// What a function answers to words of the machine, as both ABIs pass them: numbers, addresses of an
// IP address's bytes, texts.  It takes as many as it knows.
std::string RowShelf::called(const Words &words) const {
    using Function = int (*)(std::uintptr_t, std::uintptr_t, std::uintptr_t, std::uintptr_t,
                             std::uintptr_t, std::uintptr_t);
    const auto function = reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, words[1].c_str()));
    dpm_prefix ip[8] = {};
    std::uintptr_t at[8] = {};
    for (std::size_t i = 2; i < std::min<std::size_t>(words.size(), 8); ++i)
        if (words[i].find_first_of(".:") != words[i].npos)
            ip[i] = prefix_of(words[i]), at[i] = std::uintptr_t(ip[i].address);
        else
            at[i] = std::isalpha(words[i][0]) ? std::uintptr_t(words[i].c_str())
                                              : std::uintptr_t(std::stoll(words[i], nullptr, 0));
    return function ? std::to_string(function(at[2], at[3], at[4], at[5], at[6], at[7]))
                    : "no such function";
}

bool RowShelf::perform_verb(const std::string &command) {
    const Words words = words_of(command);
    const std::string &verb = words[0], second = words.size() > 1 ? words[1] : "";
    const std::string vrf = words.size() > 2 ? words[2] : "0";
    if (const auto added = added_verbs().find(verb); added != added_verbs().end())
        added->second(*this, words);
    else if (verb == "see")
        see(command.substr(4));
    else if (verb == "switch-over")
        switch_over();
    else if (command == "standby comes")
        standby_connects();
    else if (command == "standby starts")
        standby_starts();
    else if (command == "standby goes")
        standby_lost();
    else if (verb == "hold" || verb == "go")
        hold(verb == "hold");
    else if (verb == "allow")
        make_exception(allow(), words);
    else if (verb == "each")
        each(command);
    else if (verb == "many")
        repeat(words, command);
    else if (verb == "shown") {
        testing::internal::CaptureStdout();
        (void)called(words);
        answers_.push_back("= " + journal.with_names(testing::internal::GetCapturedStdout()));
    } else if (verb == "call")
        answer(called(words));
    else if (verb == "forwards")
        answer(forwards(second, unsigned(std::stoul(vrf))));
    else if (verb == "best") {
        const dpm_prefix ip = prefix_of(second);
        const auto *const route = dpm_route_find_best_route(std::uint32_t(std::stoul(vrf)), &ip);
        answer(route ? text_of(route->destination) : "none");
    } else
        return false;
    return true;
}

void RowShelf::perform(const std::string &command) {
    if (perform_verb(command))
        return;
    const bool is_standbys = command.starts_with("standby ");
    const std::string own = command.substr(is_standbys ? 8 : 0);
    const auto scope = as(is_standbys ? standby() : master());
    if (is_standbys && perform_verb(own))
        return;
    const ctl::Reply reply = is_standbys ? run_on(standby(), own) : run(own);
    if (reply.status == ctl::Status::ok) {
        for (const std::string &line : split(reply.text, "\n"))
            line.empty() ? void() : answer(line);
        return;
    }
    const bool is_librarys = reply.text.find("library refused") != reply.text.npos;
    answers_.push_back(is_librarys ? "refused" : "error " + reply.text);
}

bool RowShelf::act(const std::string &command) {
    answers_.clear();
    perform(command);
    return std::ranges::none_of(answers_, [](const std::string &answer) {
        return answer.starts_with("refused") || answer.starts_with("error");
    });
}

std::vector<std::string> RowShelf::wanted(const Row &row) const {
    std::vector<std::string> wanted;
    for (const std::string &effect : split(expanded(row.effects), "; ")) {
        const bool is_of_one = effect.starts_with("4: ") || effect.starts_with("6: ");
        if (is_of_one && unsigned(effect[0] - '0') != family_)
            continue;
        const std::string text = effect.substr(is_of_one ? 3 : 0);
        if (role_ != Role::alone || !text.starts_with("mirror "))
            wanted.push_back(text);
    }
    return wanted;
}

std::vector<std::string> RowShelf::effects() const {
    std::vector<std::string> effects;
    const unsigned own = const_cast<RowShelf &>(*this).master().slot();
    const auto is_seen = [this](const Event &event) {
        return std::find(seen_.begin(), seen_.end(), event.channel) != seen_.end() &&
               (event.channel != Channel::log ||
                event.text.compare(event.text.find(' ') + 1, seen_log_.size(), seen_log_) == 0) &&
               std::ranges::none_of(unseen_, [&](const std::string &word) {
                   const bool is_mirror = event.text.starts_with("mirror ");
                   return event.text.compare(is_mirror ? 7 : 0, word.size(), word) == 0;
               });
    };
    for (const Event &event : journal.events())
        if (is_seen(event))
            effects.push_back((event.slot == own ? "" : "standby: ") + event.text);
    effects.insert(effects.end(), answers_.begin(), answers_.end());
    return effects;
}

void RowShelf::take(const Row &row, bool print) {
    const bool is_of_one = row.command.starts_with("4: ") || row.command.starts_with("6: ");
    if (is_of_one && unsigned(row.command[0] - '0') != family_)
        return;
    if (role_ == Role::alone && row.command.starts_with("standby ") && !has_standby())
        return;
    clear_journal();
    answers_.clear();
    perform(expanded(row.command.substr(is_of_one ? 3 : 0)));
    settle();
    std::vector<std::string> found = effects();
    const auto is_as_wanted = [&] {
        const std::vector<std::string> wanted_effects = wanted(row);
        return std::equal(wanted_effects.begin(), wanted_effects.end(), found.begin(), found.end(),
                          matches);
    };
    const bool is_same = !row.effects || is_as_wanted();
    for (std::string &effect : found)
        effect = written(effect);
    if (print)
        std::cout << source_of(row.command, found);
    EXPECT_TRUE(is_same) << source_of(row.command, split(row.effects, "; ")) << "did\n"
                         << source_of(row.command, found);
    SCOPED_TRACE("behind " + row.command);
    if (!row.command.starts_with("allow ")) // what is allowed comes with the next row
        check_laws();
}

// --- tables ---

namespace {

class TableOfRows : public ::testing::Test {
public:
    TableOfRows(const Rows &rows, RowOptions options) : rows_(rows), options_(options) {}

private:
    void TestBody() override {
        static constexpr const char *names[] = {"alone", "mirroring", "taken over"};
        const bool print = std::getenv("DPM_ROWS") != nullptr;
        for (const Role role : options_.roles)
            for (const unsigned family : options_.families) {
                SCOPED_TRACE("IPv" + std::to_string(family) + ", " + names[unsigned(role)]);
                if (print)
                    std::cout << "IPv" << family << ", " << names[unsigned(role)] << "\n";
                RowShelf shelf(family, role, options_);
                for (const Row &row : rows_.all)
                    shelf.take(row, print);
            }
    }
    const Rows &rows_;
    const RowOptions options_;
};

} // namespace

RowTest::RowTest(const char *suite, const char *name, const Rows &rows, const char *file, int line,
                 RowOptions options) {
    testing::RegisterTest(
        suite, name, nullptr, nullptr, file, line,
        [&rows, options]() -> testing::Test * { return new TableOfRows(rows, options); });
}

} // namespace rig
