// import: the lines of `ip neigh show` and `ip monitor neigh`, as they stand, become neighbours.
//
//   10.1.1.2 dev vlanif100 lladdr 02:00:00:00:01:02 REACHABLE
//   Deleted 10.1.1.3 dev vlanif100 lladdr 02:00:00:00:01:03 STALE
//   10.1.1.4 dev vlanif100 FAILED
//
// Each line is applied as it arrives, on the card that is master then; while there is none, the
// line waits.

#include "chassis/ctl/client.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace ctl {

namespace {

constexpr std::chrono::milliseconds master_retry{50};
constexpr unsigned master_tries = 300;
constexpr std::size_t bar_width = 40;

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
    if (!neighbour.device.empty())
        neighbour.event = event_of(deleted, state, neighbour.mac);
    return neighbour;
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

    // False when no card takes it.
    bool take(std::string_view line) {
        if (split_words(line).empty())
            return true;
        lines_++;
        const Neighbour neighbour = read_neighbour(line);
        if (neighbour.event == Neighbour::Event::not_understood)
            note("not a neighbour: " + std::string(line.substr(0, 100)));
        if (neighbour.event == Neighbour::Event::not_understood ||
            neighbour.event == Neighbour::Event::none)
            return skipped_++, true;
        return apply(neighbour);
    }

    bool finish() const {
        std::printf("%lu lines: %lu added, %lu removed, %lu skipped, %lu refused\n", lines_, added_,
                    removed_, skipped_, refused_);
        return refused_ == 0;
    }

private:
    bool apply(const Neighbour &neighbour) {
        const bool learnt = neighbour.event == Neighbour::Event::learnt;
        const auto mapped = devices_.find(neighbour.device);
        const std::string device = mapped == devices_.end() ? neighbour.device : mapped->second;
        const std::string tail = neighbour.address + " dev " + device;
        const std::string described = tail + " lladdr " + neighbour.mac + " port " + port_;
        const auto reply = ask_master(learnt ? "neigh add " + described : "neigh del " + tail);
        if (!reply) {
            std::fprintf(stderr, "import: no card is master in %s\n", shelf_.directory().c_str());
            return false;
        }
        if (reply->status == Status::no_interface)
            skip_device(device);
        else if (reply->status != Status::ok)
            refused_++, note(neighbour.address + ": " + reply->text);
        else if (learnt && reachable_)
            for (const unsigned slot : shelf_.present())
                shelf_.ask(slot, "neigh reachable " + described);
        if (reply->status == Status::ok)
            (learnt ? added_ : removed_)++;
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

    void skip_device(const std::string &device) {
        skipped_++;
        if (noted_devices_.insert(device).second)
            note("lines of '" + device + "' are skipped: the cards have no such interface");
    }

    static void note(const std::string &text) {
        std::fprintf(stderr, "import: %s\n", text.c_str());
    }

    Shelf &shelf_;
    const std::string port_;
    const bool reachable_;
    std::map<std::string, std::string> devices_;
    std::set<std::string> noted_devices_;
    std::optional<unsigned> master_;
    unsigned long lines_ = 0, added_ = 0, removed_ = 0, skipped_ = 0, refused_ = 0;
};

// Shown when the input's end is known and somebody looks.
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

    void advance(std::size_t bytes) {
        done_ += off_t(bytes);
        if (total_ <= 0)
            return;
        const int percent = int(std::min<off_t>(100, 100 * done_ / total_));
        const int filled = percent * int(bar_width) / 100;
        std::fprintf(stderr, "\r[%.*s%*s] %3d%%", filled,
                     "########################################", int(bar_width) - filled, "",
                     percent);
    }

private:
    off_t total_ = 0, done_ = 0;
};

// Hands every whole line to the importer as soon as it is there.
bool read_lines(int input, Importer &importer) {
    Progress progress(input);
    std::string pending;
    char bytes[16384];
    while (!interrupted) {
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
            pending.resize(max_line_bytes); // no neighbour is that long
        progress.advance(std::size_t(count));
    }
    return importer.take(pending);
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
