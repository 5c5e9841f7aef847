// import: the lines of `ip neigh`, `ip route` and `ip monitor`, as they stand, become neighbours and
// routes.
//
//   10.1.1.2 dev vlanif100 lladdr 02:00:00:00:01:02 REACHABLE
//   Deleted 10.1.1.3 dev vlanif100 lladdr 02:00:00:00:01:03 STALE
//   10.1.1.4 dev vlanif100 FAILED
//   10.2.0.0/16 via 10.1.1.2 dev vlanif100 proto bird metric 32
//   10.3.0.0/16 proto bird metric 32 \	nexthop via 10.1.1.2 dev vlanif100 weight 1 \	nexthop ...
//
// A route over several next hops stands on one line (ip -o) or goes on in lines that begin with a
// blank (ip monitor).
//
// Each line is applied as it arrives, on the card that is master then; while there is none, the
// line waits.

#include "chassis/ctl/client.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace ctl {

namespace {

constexpr std::chrono::milliseconds master_retry{50};
constexpr unsigned master_tries = 300;
constexpr std::size_t bar_width = 40;
constexpr int quiet_msec = 20;

volatile std::sig_atomic_t interrupted = 0;

void interrupt(int) {
    interrupted = 1;
}

// A read that waits is to end, so that the summary is still told.
void catch_interrupts() {
    struct sigaction action {};
    action.sa_handler = interrupt;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

struct Neighbour {
    enum class Event { learnt, lost, none, not_understood } event = Event::not_understood;
    std::string address, device, mac;
};

Neighbour::Event event_of(bool deleted, std::string_view state, const std::string &mac) {
    if (deleted || state == "FAILED")
        return Neighbour::Event::lost;
    const auto bytes = parse_mac(mac);
    const bool usable = bytes && !((*bytes)[0] & 1); // groups have no neighbour
    for (const std::string_view resolved :
         {"REACHABLE", "STALE", "PERMANENT", "DELAY", "PROBE", "NOARP"})
        if (state == resolved && usable)
            return Neighbour::Event::learnt;
    return Neighbour::Event::none;
}

Neighbour read_neighbour(std::string_view line) {
    const std::vector<Word> words = split_words(line);
    std::size_t at = 0;
    if (at < words.size() && words[at].text.starts_with('[')) // a label or a time stamp
        at++;
    const bool deleted = at < words.size() && words[at].text == "Deleted";
    at += deleted;
    Neighbour neighbour;
    if (at >= words.size() || !parse_address(words[at].text))
        return neighbour;
    neighbour.address = words[at++].text;
    std::string_view state;
    const Type &states = type_named("NUD");
    while (at < words.size()) {
        const std::string_view word = words[at++].text;
        const bool last = at == words.size();
        if (word == "dev" && !last)
            neighbour.device = words[at++].text;
        else if (word == "lladdr" && !last)
            neighbour.mac = words[at++].text;
        else if (states.takes(word))
            state = word;
        else if (const std::size_t skipped = skipped_words(word))
            at = std::min(at + skipped - 1, words.size());
        else
            return neighbour;
    }
    const bool is_neighbour = !state.empty() || !neighbour.mac.empty(); // else a route to a host
    if (!neighbour.device.empty() && is_neighbour)
        neighbour.event = event_of(deleted, state, neighbour.mac);
    return neighbour;
}

// --- routes ----------------------------------------------------------------------------------

struct Route {
    enum class Event { added, gone, skipped, not_understood } event = Event::not_understood;
    std::string why_skipped;
    std::string rest; // destination and attributes, with the devices as the cards call them
    std::vector<std::string> devices;
};

bool is_destination(std::string_view word) {
    return type_named("DEST").takes(word);
}

// Routes that forward nothing, or that every stack has of its own.
bool is_other_kind(std::string_view word) {
    for (const std::string_view kind : {"unreachable", "blackhole", "prohibit", "throw", "local",
                                        "broadcast", "anycast", "multicast", "nat"})
        if (word == kind)
            return true;
    return false;
}

bool is_link_scoped(std::string_view destination) {
    return destination.starts_with("fe80:") || destination.starts_with("ff");
}

Route read_route(std::string_view line, const std::map<std::string, std::string> &device_map) {
    const std::vector<Word> words = split_words(line);
    std::size_t at = 0;
    if (at < words.size() && words[at].text.starts_with('['))
        at++;
    const bool deleted = at < words.size() && words[at].text == "Deleted";
    at += deleted;
    Route route;
    if (at < words.size() && words[at].text == "unicast")
        at++;
    if (at < words.size() && is_other_kind(words[at].text)) {
        route.event = Route::Event::skipped;
        route.why_skipped = std::string(words[at].text) + " routes";
        return route;
    }
    if (at >= words.size() || !is_destination(words[at].text))
        return route;
    if (is_link_scoped(words[at].text)) {
        route.event = Route::Event::skipped;
        route.why_skipped = "routes of one link";
        return route;
    }
    std::string_view before;
    for (; at < words.size(); at++) {
        const std::string_view word = words[at].text;
        if (word == "\\" || word == "inet6") // -o joins lines so; a next hop of the other family
            continue;
        std::string text(word);
        if (before == "dev") {
            if (const auto mapped = device_map.find(text); mapped != device_map.end())
                text = mapped->second;
            route.devices.push_back(text);
        }
        route.rest += (route.rest.empty() ? "" : " ") + text;
        before = word;
    }
    route.event = deleted ? Route::Event::gone : Route::Event::added;
    return route;
}

class Importer {
public:
    Importer(Shelf &shelf, const Parsed &parsed)
        : shelf_(shelf), port_(std::to_string(parsed.number("--port", 1))),
          reachable_(parsed.has("--reachable")) {
        for (const std::string_view map : parsed.values("--dev-map")) {
            const std::size_t equals = map.find('=');
            devices_[std::string(map.substr(0, equals))] = map.substr(equals + 1);
        }
    }

    // False when no card takes it.  A line that may go on is kept until it is whole.
    bool take(std::string_view line) {
        if (!line.empty() && (line.front() == ' ' || line.front() == '\t') && !begun_.empty()) {
            begun_ += line;
            return true;
        }
        if (!flush())
            return false;
        if (split_words(line).empty())
            return true;
        lines_++;
        begun_ = line;
        return goes_on(line) || flush();
    }

    // Nothing follows for now: what was kept is whole.
    bool flush() {
        const std::string line = std::move(begun_);
        begun_.clear();
        return line.empty() || take_whole(line);
    }

    unsigned long lines() const { return lines_; }

    bool finish() const {
        std::printf("%lu lines: %lu added, %lu removed, %lu skipped, %lu refused\n", lines_, added_,
                    removed_, skipped_, refused_);
        return refused_ == 0;
    }

private:
    // A destination without a next hop: those follow.
    static bool goes_on(std::string_view line) {
        const Route route = read_route(line, {});
        return route.devices.empty() && (route.event == Route::Event::added ||
                                         route.event == Route::Event::gone);
    }

    bool take_whole(const std::string &line) {
        const Neighbour neighbour = read_neighbour(line);
        if (neighbour.event == Neighbour::Event::learnt || neighbour.event == Neighbour::Event::lost)
            return apply(neighbour);
        const Route route = neighbour.event == Neighbour::Event::none ? Route{}
                                                                     : read_route(line, devices_);
        if (route.event == Route::Event::added || route.event == Route::Event::gone)
            return apply(route);
        if (route.event == Route::Event::skipped)
            note_once(route.why_skipped + " are skipped");
        else if (neighbour.event == Neighbour::Event::not_understood)
            note("neither neighbour nor route: " + line.substr(0, 100));
        return skipped_++, true;
    }

    bool apply(const Route &route) {
        const bool added = route.event == Route::Event::added;
        const auto reply = ask_master((added ? "route add " : "route del ") + route.rest);
        if (!reply)
            return nobody();
        if (reply->status == Status::no_interface)
            for (const std::string &device : route.devices)
                note_device(device);
        count(*reply, added, route.rest);
        return true;
    }

    void count(const Reply &reply, bool added, const std::string &what) {
        if (reply.status == Status::ok)
            (added ? added_ : removed_)++;
        else if (reply.status == Status::no_interface)
            skipped_++;
        else
            refused_++, note(what + ": " + reply.text);
    }

    bool nobody() const {
        std::fprintf(stderr, "import: no card is master in %s\n", shelf_.directory().c_str());
        return false;
    }

    bool apply(const Neighbour &neighbour) {
        const bool learnt = neighbour.event == Neighbour::Event::learnt;
        const auto mapped = devices_.find(neighbour.device);
        const std::string device = mapped == devices_.end() ? neighbour.device : mapped->second;
        const std::string tail = neighbour.address + " dev " + device;
        const std::string described = tail + " lladdr " + neighbour.mac + " port " + port_;
        const auto reply = ask_master(learnt ? "neigh add " + described : "neigh del " + tail);
        if (!reply)
            return nobody();
        if (reply->status == Status::no_interface)
            note_device(device);
        else if (reply->status == Status::ok && learnt && reachable_)
            for (const unsigned slot : shelf_.present())
                shelf_.ask(slot, "neigh reachable " + described);
        count(*reply, learnt, neighbour.address);
        return true;
    }

    std::optional<Reply> ask_master(const std::string &line) {
        for (unsigned i = 0; i < master_tries && !interrupted; i++) {
            if (!master_)
                master_ = shelf_.master();
            const auto reply = master_ ? shelf_.ask(*master_, line) : std::nullopt;
            if (reply && shelf_.role(*master_) == "master")
                return reply;
            master_.reset();
            std::this_thread::sleep_for(master_retry);
        }
        return std::nullopt;
    }

    // A route over several interfaces may know some of them.
    void note_device(const std::string &device) {
        note_once("lines of '" + device + "' are skipped: the cards have no such interface");
    }

    void note_once(const std::string &text) {
        if (noted_.insert(text).second)
            note(text);
    }

    static void note(const std::string &text) {
        std::fprintf(stderr, "import: %s\n", text.c_str());
    }

    Shelf &shelf_;
    const std::string port_;
    const bool reachable_;
    std::map<std::string, std::string> devices_;
    std::set<std::string> noted_;
    std::string begun_; // a line that may go on
    std::optional<unsigned> master_;
    unsigned long lines_ = 0, added_ = 0, removed_ = 0, skipped_ = 0, refused_ = 0;
};

// Shown when the input's end is known and somebody looks: how far, how fast, how long yet.
class Progress {
public:
    explicit Progress(int input) {
        struct stat about {};
        if (fstat(input, &about) == 0 && S_ISREG(about.st_mode) && isatty(STDERR_FILENO))
            total_ = about.st_size;
    }
    ~Progress() {
        if (total_ > 0)
            std::fputs("\n", stderr);
    }

    void advance(std::size_t bytes, unsigned long lines) {
        done_ += off_t(bytes);
        if (total_ <= 0)
            return;
        const double part = std::min(1.0, double(done_) / double(total_));
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start_;
        const double seconds = std::max(taken.count(), 0.001);
        const int filled = int(part * bar_width);
        std::fprintf(stderr, "\r[%.*s%*s] %3d%%  %.0f lines/s  %.0f s left ", filled,
                     "########################################", int(bar_width) - filled, "",
                     int(100 * part), double(lines) / seconds, seconds / part - seconds);
    }

private:
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    off_t total_ = 0, done_ = 0;
};

// Whether more comes at once: a route's further next hops do.
bool is_quiet(int input) {
    pollfd waiting{input, POLLIN, 0};
    return poll(&waiting, 1, quiet_msec) == 0;
}

// Hands every whole line to the importer as soon as it is there.
bool read_lines(int input, Importer &importer) {
    Progress progress(input);
    std::string pending;
    char bytes[16384];
    while (!interrupted) {
        if (is_quiet(input) && !importer.flush())
            return false;
        const ssize_t count = read(input, bytes, sizeof bytes);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        pending.append(bytes, std::size_t(count));
        std::size_t start = 0;
        for (std::size_t end; (end = pending.find('\n', start)) != pending.npos; start = end + 1)
            if (!importer.take(std::string_view(pending).substr(start, end - start)))
                return false;
        pending.erase(0, start);
        if (pending.size() > max_line_bytes)
            pending.resize(max_line_bytes); // nothing that matters is that long
        progress.advance(std::size_t(count), importer.lines());
    }
    return importer.take(pending) && importer.flush();
}

} // namespace

bool import_neighbours(Shelf &shelf, const Parsed &parsed) {
    Descriptor file;
    int input = STDIN_FILENO;
    if (parsed.has("file")) {
        const std::string path(parsed.value("file"));
        file = Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        if (!file)
            return std::perror(path.c_str()), false;
        input = file.get();
    }
    catch_interrupts();
    Importer importer(shelf, parsed);
    const bool read_all = read_lines(input, importer);
    return importer.finish() && read_all;
}

} // namespace ctl
