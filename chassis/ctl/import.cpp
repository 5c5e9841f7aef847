// import: the lines of `ip neigh`, `ip route` and `ip monitor`, as they stand, become neighbours and
// routes.
//
// A route over several next hops stands on one line (ip -o) or goes on in lines that begin with a
// blank (ip monitor).  A line is applied as soon as it is known to be whole, on the card that is
// master then; while there is none, it waits.
//
// The kernel tells of a route that takes another's place, and not of the other's end; and it keeps
// several to one prefix, of which it uses the one with the lowest metric.  So the import remembers
// what the kernel has (KnownRoutes) and what it installed of it.

#include "chassis/ctl/client.h"
#include "chassis/ctl/import_lines.h"
#include "chassis/ctl/lines.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace ctl {

namespace {

constexpr std::size_t noted_bytes = 100; // of a line that is not understood
constexpr std::size_t bar_width = 40;
constexpr int quiet_msec = 20;

// What a card is asked for because of a route.
struct Entry {
    std::string about; // two of one destination that are about the same take each other's place
    std::string command, text;
};

class Importer {
public:
    Importer(Shelf &shelf, const Parsed &parsed)
        : shelf_(shelf), port_(std::to_string(parsed.number("--port", 1))),
          device_(parsed.value("--dev")), reachable_(parsed.has("--reachable")) {
        for (const std::string_view map : parsed.values("--dev-map")) {
            const std::size_t equals = map.find('=');
            devices_[std::string(map.substr(0, equals))] = map.substr(equals + 1);
        }
    }

    // False when no card takes it.  A line that may go on is kept until it is whole.
    bool take(std::string_view line) {
        if (continues(line)) {
            if (begun_.size() < max_line_bytes)
                begun_ += line;
            return true;
        }
        if (!flush())
            return false;
        if (split_words(line).empty())
            return true;
        lines_++;
        begun_ = line;
        return read_route(line).goes_on() || flush();
    }

    // Nothing follows for now: what was kept is whole.
    bool flush() {
        const std::string line = std::move(begun_);
        begun_.clear();
        return line.empty() || take_whole(line);
    }

    // A line that was cut short may say something else than it was to say; so does the route that
    // it goes on with.
    bool refuse_cut(std::string_view line) {
        const bool goes_on = continues(line);
        if (!goes_on && !flush())
            return false;
        lines_ += !goes_on;
        refused_++;
        const std::string cut = std::exchange(begun_, {}).append(line);
        note("cut short, and left out: " + cut.substr(0, noted_bytes));
        return true;
    }

    unsigned long lines() const { return lines_; }

    bool finish() const {
        std::printf("%lu lines: %lu added, %lu removed, %lu skipped, %lu refused\n", lines_, added_,
                    removed_, skipped_, refused_);
        return refused_ == 0;
    }

private:
    bool continues(std::string_view line) const {
        const bool is_more = !line.empty() && (line.front() == ' ' || line.front() == '\t');
        return is_more && !begun_.empty();
    }

    bool take_whole(const std::string &line) {
        using Neighbour = NeighbourLine::Event;
        using Route = RouteLine::Event;
        const NeighbourLine neighbour = read_neighbour(line, device_);
        if (neighbour.event == Neighbour::learnt || neighbour.event == Neighbour::lost)
            return apply(neighbour);
        const RouteLine route =
            neighbour.event == Neighbour::none ? RouteLine{} : read_route(line, device_);
        if (route.event == Route::gone || (route.event == Route::added && !route.goes_on()))
            return apply(route);
        if (neighbour.event == Neighbour::not_understood)
            note("neither neighbour nor route: " + line.substr(0, noted_bytes));
        return skipped_++, true;
    }

    std::string mapped(const std::string &device) const {
        const auto found = devices_.find(device);
        return found == devices_.end() ? device : found->second;
    }

    // Carries out what the line makes of its destination: another route than the line's may count.
    bool apply(const RouteLine &line) {
        if (!line.why_skipped.empty())
            note_once(line.why_skipped + " are skipped");
        if (line.destination.empty())
            return skipped_++, true;
        const auto route = known_.after(line);
        if (!route) {
            note_once("routes wait behind others to the same prefix whose metric is lower");
            return skipped_++, true;
        }
        if (route->event == RouteLine::Event::gone)
            return withdraw(line);
        if (route->why_skipped.empty())
            return install(*route, line.event == RouteLine::Event::added);
        return skipped_++, withdraw_replaced(line.destination);
    }

    bool install(const RouteLine &route, bool adds) {
        if (!withdraw_others(route))
            return nobody();
        const auto reply = ask_for("add", entries_of(route));
        if (!reply)
            return nobody();
        count(*reply, adds, route.destination);
        if (reply->status != Status::ok)
            return withdraw_replaced(route.destination);
        installed_[route.destination] = route;
        return true;
    }

    // As it was installed, if it was by this import: its interfaces tell the VRF.
    bool withdraw(const RouteLine &line) {
        const auto found = installed_.find(line.destination);
        if (found == installed_.end() && !line.why_skipped.empty())
            return skipped_++, true;
        const auto reply =
            ask_for("del", entries_of(found == installed_.end() ? line : found->second));
        if (!reply)
            return nobody();
        count(*reply, false, line.destination);
        installed_.erase(line.destination);
        return true;
    }

    // What this import installed is not to outlive what took its place and is not for the chip.
    bool withdraw_replaced(const std::string &destination) {
        const auto found = installed_.find(destination);
        if (found == installed_.end())
            return true;
        const auto reply = ask_for("del", entries_of(found->second));
        if (!reply)
            return nobody();
        note(destination + " is withdrawn: what took its place is not installed");
        installed_.erase(found);
        return true;
    }

    // Of the entries for the destination, those that the route's own do not replace.
    bool withdraw_others(const RouteLine &route) {
        const auto found = installed_.find(route.destination);
        std::vector<Entry> others;
        if (found != installed_.end())
            others = entries_of(found->second);
        for (const Entry &entry : entries_of(route))
            std::erase_if(others, [&](const Entry &other) { return other.about == entry.about; });
        return ask_for("del", others).has_value();
    }

    // A label path over each next hop; else one route over all of them.
    std::vector<Entry> entries_of(const RouteLine &route) const {
        const std::string swap = route.swap.empty() ? "" : " as " + route.swap;
        std::vector<Entry> entries;
        Entry all{"route " + route.destination, "route", route.destination};
        for (const RouteLine::Gateway &gateway : route.gateways) {
            const bool is_own = route.is_of_label() && gateway.device == "lo";
            const std::string device =
                gateway.device.empty() || is_own ? "" : " dev " + mapped(gateway.device);
            const std::string via = gateway.address.empty() ? "" : " via " + gateway.address;
            if (route.is_of_label())
                all = {"ilm", "mpls ilm", route.destination + swap + family_of(via) + device};
            else if (!gateway.labels.empty())
                entries.push_back(
                    {"ftn" + via, "mpls ftn",
                     route.destination + " encap mpls " + gateway.labels + via + device});
            else
                all.text += via + device;
        }
        if (all.command == "route")
            all.text += " type " + std::to_string(route.type);
        return entries.empty() ? std::vector{all} : entries;
    }

    // The next hop of a label, with its family in front.
    static std::string family_of(std::string via) {
        const bool is_ipv6 = via.find(':') != via.npos;
        return via.empty() ? via : via.insert(5, is_ipv6 ? "inet6 " : "inet ");
    }

    // The first reply that is not good, or the last; nothing when no card is master.
    std::optional<Reply> ask_for(const std::string &verb, const std::vector<Entry> &entries) {
        Reply reply;
        for (const Entry &entry : entries) {
            const auto one = shelf_.ask_master(entry.command + " " + verb + " " + entry.text);
            if (!one)
                return std::nullopt;
            if (reply.status == Status::ok)
                reply = *one;
        }
        return reply;
    }

    void count(const Reply &reply, bool added, const std::string &what) {
        if (reply.status == Status::ok)
            (added ? added_ : removed_)++;
        else if (reply.status == Status::no_interface)
            skipped_++, note_once("lines are skipped: " + reply.text);
        else
            refused_++, note(what + ": " + reply.text);
    }

    bool nobody() const {
        note("no card is master in " + shelf_.directory());
        return false;
    }

    bool apply(const NeighbourLine &neighbour) {
        const bool learnt = neighbour.event == NeighbourLine::Event::learnt;
        const std::string tail = neighbour.address + " dev " + mapped(neighbour.device);
        const std::string described = tail + " lladdr " + neighbour.mac + " port " + port_;
        const auto reply =
            shelf_.ask_master(learnt ? "neigh add " + described : "neigh del " + tail);
        if (!reply)
            return nobody();
        if (reply->status == Status::ok && learnt && reachable_)
            for (const Seen &card : shelf_.look())
                if (!card.role.empty())
                    shelf_.ask(card.slot, "neigh reachable " + described, change_limit);
        count(*reply, learnt, neighbour.address);
        return true;
    }

    void note_once(const std::string &text) {
        if (noted_.insert(text).second)
            note(text);
    }

    static void note(const std::string &text) {
        std::fprintf(stderr, "import: %s\n", printable(text).c_str());
    }

    Shelf &shelf_;
    const std::string port_, device_;
    const bool reachable_;
    std::map<std::string, std::string> devices_;
    KnownRoutes known_;
    std::map<std::string, RouteLine> installed_; // by this import, by destination
    std::set<std::string> noted_;
    std::string begun_; // a line that may go on
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

    void show(std::size_t bytes, unsigned long lines) {
        if (total_ <= 0 || std::exchange(shown_, bytes) == bytes)
            return;
        const double part = std::min(1.0, double(bytes) / double(total_));
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start_;
        const double seconds = std::max(taken.count(), 0.001);
        const int filled = int(part * bar_width);
        std::fprintf(stderr, "\r[%.*s%*s] %3d%%  %.0f lines/s  %.0f s left ", filled,
                     "########################################", int(bar_width) - filled, "",
                     int(100 * part), double(lines) / seconds, seconds / part - seconds);
    }

private:
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    off_t total_ = 0;
    std::size_t shown_ = 0;
};

// Hands every line to the importer as soon as it is there.  A route's further next hops come at
// once: when nothing does, what was begun is whole.
bool import_all(LineReader &lines, Importer &importer) {
    Progress progress(lines.input());
    std::string line;
    while (!interrupted) {
        progress.show(lines.bytes(), importer.lines());
        if (lines.is_quiet(quiet_msec) && !importer.flush())
            return false;
        if (!lines.next(line) || interrupted)
            break;
        if (!(lines.is_whole() ? importer.take(line) : importer.refuse_cut(line)))
            return false;
    }
    return interrupted || importer.flush();
}

bool fail(const std::string &name, int error) {
    std::fprintf(stderr, "import: %s: %s\n", printable(name).c_str(), std::strerror(error));
    return false;
}

} // namespace

bool import_lines(Shelf &shelf, const Parsed &parsed) {
    const std::string path(parsed.value("file"));
    const Descriptor file(path.empty() ? -1 : open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!path.empty() && !file)
        return fail(path, errno);
    catch_interrupts();
    Importer importer(shelf, parsed);
    LineReader lines(file ? file.get() : STDIN_FILENO, &interrupted);
    bool good = import_all(lines, importer);
    if (lines.error() != 0)
        good = fail(path.empty() ? "stdin" : path, lines.error());
    return importer.finish() && good;
}

} // namespace ctl
