// The shelf: its cards' lives, its verbs, and the end of a test.

#include "support/shelf.h"

#include "chassis/tables/law.h"
#include "chassis/tables/tables.h"
#include "dpm.h"
#include "dpm_host.h"
#include "dpm_ipmc_global.h"
#include "dpm_route.h"
#include "platform/dal.h"
#include "support/laws.h"
#include "support/multicast.h"

#include <algorithm>
#include <map>
#include <sstream>

// The head of the timer list comes from the system's allocator and lives as long as the process.
extern "C" const char *__lsan_default_suppressions() {
    return "leak:dpm_timer_list_create\n";
}

namespace rig {

using namespace chassis;

namespace {

constexpr unsigned max_rounds = 10'000; // of settling

void expect_lawful(const laws::Lines &lines, const char *law) {
    std::string text;
    for (const std::string &line : lines)
        text += "\n  " + line;
    EXPECT_TRUE(lines.empty()) << law << ":" << text;
}

std::map<const Card *, Journal *> &journals() {
    static std::map<const Card *, Journal *> journals;
    return journals;
}

// What dependants of the host table are told.
int write_notice(const dpm_host_entry *host, std::uint32_t event) {
    journals().at(&card())->note(card(), Channel::notice,
                                 "notice " + text_of(host->ip) +
                                     (host->vrf ? " vrf " + std::to_string(host->vrf) : "") +
                                     (event == DPM_HOST_ADDED ? " came" : " goes"));
    return -1; // nobody looks
}

// Whether an object stands otherwise than the tables have it, since a request for it was refused.
bool chip_keeps_refused(const chip::Chip &chip) {
    const auto lock = chip.lock();
    bool keeps = false;
    chip::each_kind([&]<class Kind>(Kind) {
        if constexpr (Kind::may_differ)
            for (const auto &[key, value] : chip.held<Kind>())
                keeps |= chip.is_excused<Kind>(key);
    });
    return keeps;
}

} // namespace

// --- cards ---

Shelf::Shelf(Start start) {
    start_card(0).peer.set_role(peer::Role::master);
    make_current(master());
    line_cards_follow();
    if (start == Start::joined)
        standby_starts();
    if (start == Start::mirroring)
        standby_connects();
    clear_journal();
}

Shelf::~Shelf() = default;

std::vector<Card *> Shelf::cards() {
    std::vector<Card *> present{&master()};
    if (has_standby())
        present.push_back(&standby());
    return present;
}

Card &Shelf::start_card(unsigned index) {
    const unsigned slot = 9 + index;
    CardOptions options{.slot = slot, .mode = os::Mode::pumped, .mac = {}};
    options.mac = {0x02, 0, 0, 0, 0, std::uint8_t(slot)};
    cards_[index] = std::make_unique<Card>(options);
    Card &card = *cards_[index];
    if (const Card *const other = cards_[1 - index].get())
        card.os.advance(other->os.now_nsec() - card.os.now_nsec());
    servers_[index] = std::make_unique<ctl::Server>(card, journal);
    EXPECT_EQ(card.start(), 0);
    journal.watch(card);
    card.os.log_to([this, &card](const os::LogLine &line) { journal.note_log(card, line); });
    card.peer.around_master([&card] { card.mended += tables::mend_chip(card); });
    journals()[&card] = &journal;
    {
        const CardScope scope(card);
        dpm_host_notify_register(write_notice);
    }
    keep_log(keep_log_);
    blocks_at_start_[index] = card.os.live_blocks();
    return card;
}

void Shelf::end_card(unsigned index) {
    Card &card = *cards_[index];
    past_mistakes_ += card.chip.mistakes();
    past_failed_checks_ += laws::failed_checks(card);
    card.peer.cut();
    servers_[index].reset();
    cards_[index].reset();
}

void Shelf::standby_starts() {
    Card &card = start_card(1 - master_);
    card.peer.set_role(peer::Role::standby);
    replay(card);
    card.peer.join(master().peer);
    settle();
}

void Shelf::standby_connects() {
    if (!has_standby())
        standby_starts();
    master().peer.connected();
    settle();
}

// What is there travels first, and then every change.
void Shelf::line_cards_follow() {
    line_cards_ = std::make_unique<chip::Chip>();
    for (const chip::Change &change : master().chip.forwarding())
        EXPECT_TRUE(line_cards_->apply(change));
    master().chip.observe(
        [this](const chip::Change &change) { lives() && line_cards_->apply(change); });
    master().peer.take_calls([this] { return lives(); });
}

void Shelf::standby_lost() {
    end_card(1 - master_);
    settle();
}

void Shelf::switch_over() {
    const bool is_quiet = std::exchange(changes_left_, ~0u) > 0 && exceptions_.nexthop_leaks == 0;
    EXPECT_TRUE(!is_quiet || line_cards_->forwarding() == master().chip.forwarding());
    const bool keeps_refused = chip_keeps_refused(master().chip);
    standby().chip.take_over(*line_cards_);
    const unsigned former = master_;
    master_ = 1 - master_;
    make_current(master());
    end_card(former);
    line_cards_follow();
    master().peer.become_master();
    settle();
    EXPECT_TRUE(master().mended == 0 || !is_quiet || keeps_refused || exceptions_.chip_differs ||
                exceptions_.routes_adrift);
    exceptions_.nexthop_leaks = exceptions_.group_leaks = 0; // both are counted anew
}

// --- commands ---

// The suite tells a card that comes later what it has; each step is worked off before the next,
// since an address is accepted only in the interface's VRF.
void Shelf::replay(Card &card) {
    std::istringstream settings(servers_[master_]->execute("config").text);
    for (std::string line; std::getline(settings, line); card.pump())
        (void)servers_[&card == cards_[1].get()]->execute(line);
}

namespace {

// The neighbour's interface and MAC, where a command leaves them open.
std::string completed(std::string command) {
    if (!command.starts_with("neigh "))
        return command;
    const std::size_t end = command.find(' ', command.find(' ', 6) + 1);
    const char last = command[std::min(end, command.size()) - 1];
    const bool names_mac = command.starts_with("neigh add") || command.starts_with("neigh reach");
    if (names_mac && command.find(" lladdr ") == command.npos)
        command += std::string(" lladdr 02:00:00:00:01:0") + last;
    return command.find(" dev ") == command.npos ? command + " dev vlanif100" : command;
}

// Events of links are seen by both cards.
bool goes_to_both(const std::string &command) {
    if (command.starts_with("port ") || command.starts_with("trunk "))
        return true;
    return std::ranges::any_of(ctl::commands(), [&](const ctl::Command &each) {
        return each.kind == ctl::Kind::config && command.starts_with(each.path);
    });
}

} // namespace

ctl::Reply Shelf::run_on(Card &card, const std::string &command) {
    const ctl::Reply reply = servers_[&card == cards_[1].get()]->execute(completed(command));
    settle_verb();
    return reply;
}

ctl::Reply Shelf::run(const std::string &text) {
    if (const Words words = words_of(text);
        words.size() > 2 && (words[1] == "add" || words[1] == "del") &&
        (words[0] == "ftn" || words[0] == "ilm" || words[0] == "mpls")) {
        const bool done = change_label(words);
        settle_verb();
        return {done ? ctl::Status::ok : ctl::Status::failed, done ? "" : "the library refused"};
    }
    if (const Words words = words_of(text); multicast::is_command(words)) {
        const bool done = multicast::act(*this, words);
        settle_verb();
        return {done ? ctl::Status::ok : ctl::Status::failed, done ? "" : "the library refused"};
    }
    const std::string command = completed(text);
    const bool is_for_both = goes_to_both(command);
    if (is_for_both) {
        const ctl::Parsed line = ctl::parse(command);
        if (!line.error && line.command->path == "clock advance") {
            const auto nsec = *ctl::parse_duration(line.value("DURATION"));
            return advance(unsigned(nsec / os::nsec_per_sec)), ctl::Reply{};
        }
    }
    ctl::Reply reply = servers_[master_]->execute(command);
    if (is_for_both && has_standby())
        (void)servers_[1 - master_]->execute(command);
    settle_verb();
    return reply;
}

// --- time and work ---

std::int64_t Shelf::nsec_to_next_timer() {
    std::int64_t nearest = INT64_MAX;
    for (Card *card : cards()) {
        CardScope scope(*card);
        for (const dpm_timer_list *const timers :
             {g_dpm_global.timer_list, g_ipmc_global.timer_list}) {
            if (!timers || list_empty(&timers->head))
                continue;
            using view = dpm::list_view<dpm_timer_node, &dpm_timer_node::link>;
            const dpm_timer_node &first = view::entry_of(timers->head.next);
            const std::int64_t due = first.expiry_sec * os::nsec_per_sec + first.expiry_nsec;
            nearest = std::min(nearest, due - card->os.now_nsec());
        }
    }
    return std::max<std::int64_t>(nearest, 0);
}

void Shelf::advance(unsigned seconds) {
    settle();
    for (std::int64_t left = seconds * os::nsec_per_sec; left > 0;) {
        const std::int64_t step = std::clamp<std::int64_t>(nsec_to_next_timer(), 1, left);
        for (Card *card : cards())
            card->os.advance(step);
        settle();
        left -= step;
    }
}

void Shelf::settle() {
    for (unsigned round = 0; round < max_rounds; ++round) {
        unsigned handled = 0;
        for (Card *card : cards())
            handled += card->pump();
        if (handled == 0)
            return;
    }
    ADD_FAILURE() << "the cards do not come to rest";
}

// --- journal and tables ---

std::vector<std::string> Shelf::told(const Card &card, Channel channel) const {
    std::vector<std::string> texts;
    for (const Event &event : journal.events())
        if (event.slot == card.slot() && event.channel == channel)
            texts.push_back(event.text);
    return texts;
}

unsigned Shelf::logged(const Card &card, const std::string &part) const {
    return unsigned(std::ranges::count_if(
        log(card), [&](const std::string &line) { return line.find(part) != line.npos; }));
}

void Shelf::clear_journal() {
    journal.clear();
    for (Card *card : cards())
        card->peer.clear_calls();
}

void Shelf::keep_log(bool on) {
    keep_log_ = on;
    for (Card *card : cards()) {
        journal.keep(*card, on);
        card->os.log_level(on ? 0 : 100);
    }
}

dpm_route_entry *Shelf::route(Card &card, const std::string &prefix, unsigned vrf) {
    CardScope scope(card);
    return dpm::find_route(vrf, prefix_of(prefix));
}

std::string Shelf::forwards(const std::string &address, unsigned vrf) {
    const dpm_prefix ip = prefix_of(address);
    const auto answer = master().chip.lookup(std::int32_t(vrf), ip.family, ip.address);
    if (!answer)
        return "";
    std::map<std::uint32_t, std::string> names{{DAL_NEXTHOP_TO_CPU, "cpu"}};
    for (const dpm_host_entry &host : hosts(master()))
        names.emplace(host.sdk_index, text_of(host.ip));
    dpm_prefix entry{std::uint16_t(ip.family), std::uint16_t(answer->entry.prefix_len), {}};
    std::copy(answer->entry.bytes.begin(), answer->entry.bytes.end(), entry.address);
    std::string text = text_of(entry) + " ->";
    for (const std::uint32_t member : answer->members)
        text += " " + (names.contains(member) ? names[member] : "?");
    return answer->members.empty() ? text + " nowhere" : text;
}

// --- the laws ---

void Shelf::check_laws() {
    settle();
    std::uint64_t mistakes = past_mistakes_, failed = past_failed_checks_;
    std::string mistake_text;
    for (Card *card : cards()) {
        const std::string who = "slot " + std::to_string(card->slot());
        expect_lawful(laws::tables_are_sound(*card), (who + " tables are sound").c_str());
        expect_lawful(multicast::is_sound(*card, !exceptions_.mcast_adrift),
                      (who + " multicast is sound").c_str());
        expect_lawful(laws::heap_is_explained(*card, blocks_at_start_[card->slot() - 9],
                                              card == &master() ? exceptions_.blocks : 0),
                      (who + " heap is explained").c_str());
        EXPECT_EQ(card->os.bad_frees(), 0u) << who;
        EXPECT_EQ(card->os.handle_errors(), 0u) << who;
        EXPECT_EQ(card->stack.open_sockets(), 0u) << who;
        mistakes += card->chip.mistakes();
        failed += laws::failed_checks(*card);
        for (const std::string &line : card->chip.mistake_lines())
            mistake_text += "\n  " + who + ": " + line;
    }
    EXPECT_EQ(mistakes, exceptions_.mistakes) << "mistakes of the chip:" << mistake_text;
    EXPECT_EQ(failed, exceptions_.failed_checks) << "failed checks of the library";
    if (!exceptions_.chip_differs) {
        expect_lawful(laws::chip_equals_tables(master(), exceptions_), "chip = tables");
        expect_lawful(laws::routes_follow_hosts(master(), exceptions_.routes_adrift),
                      "routes follow hosts");
    }
    if (!exceptions_.standby_differs && has_standby() && laws::is_mirroring(master()))
        for (const auto &lines : {tables::standby_equals_master(master(), standby()),
                                  multicast::chip_holds_tables(standby())})
            expect_lawful(lines, "standby = master");
}

} // namespace rig
