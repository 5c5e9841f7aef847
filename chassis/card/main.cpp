// dpm-card: one control card of a shelf as a process.
//
// It supplies the library with everything that its contracts ask for, starts it, joins the other
// card through DIR/shelf.sock and listens for commands on DIR/card-SLOT.sock until it is told to
// end.  DIR/card-SLOT.lock is held from start to end: the slot's, so that each runs once.  What a
// killed card leaves behind is replaced by the next that starts in its place.

#include "chassis/card/control.h"
#include "chassis/card/line_cards.h"
#include "chassis/ctl/lines.h"
#include "chassis/peer/link.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <getopt.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace peer = chassis::peer;

constexpr std::string_view longest_socket = "/shelf.sock.10";
constexpr std::size_t max_descriptors = 80; // clients 32, guests of the link 16, and the card's own

constexpr const char *usage = R"(usage: dpm-card --slot 9|10 [OPTION]...
  -s, --slot SLOT        this card's slot, 9 or 10
  -d, --dir DIR          where the sockets are ($DPM_DIR, else /tmp/libdpm-UID)
  -l, --log FILE         log to a file instead of stderr
  -L, --log-level LEVEL  log lines of this level and above only
  -m, --mac MAC          the device's MAC address on this card
  -c, --config FILE      commands, a line each, carried out before the card joins the other
)";

struct Options {
    chassis::CardOptions card;
    bool has_slot = false;
    std::string directory = ctl::default_directory();
    std::string log, config;
    int log_level = 0;
};

bool take_option(int letter, std::string_view value, Options &options) {
    const auto number = ctl::parse_number(value);
    switch (letter) {
    case 's':
        options.has_slot = number == 9 || number == 10;
        options.card.slot = options.has_slot ? unsigned(*number) : 0;
        options.card.mac[5] = std::uint8_t(options.card.slot);
        return options.has_slot;
    case 'd':
        options.directory = value;
        return !value.empty();
    case 'l':
        options.log = value;
        return !value.empty();
    case 'c':
        options.config = value;
        return !value.empty();
    case 'L':
        options.log_level = number ? int(*number) : 0;
        return number.has_value();
    case 'm':
        if (const auto mac = ctl::parse_mac(value))
            return options.card.mac = *mac, true;
        return false;
    default:
        return false;
    }
}

bool read_options(int argc, char **argv, Options &options) {
    static constexpr option names[] = {{"slot", required_argument, nullptr, 's'},
                                       {"dir", required_argument, nullptr, 'd'},
                                       {"log", required_argument, nullptr, 'l'},
                                       {"log-level", required_argument, nullptr, 'L'},
                                       {"mac", required_argument, nullptr, 'm'},
                                       {"config", required_argument, nullptr, 'c'},
                                       {}};
    for (int letter; (letter = getopt_long(argc, argv, "s:d:l:L:m:c:", names, nullptr)) != -1;)
        if (letter == '?' || !take_option(letter, optarg, options))
            return false;
    return options.has_slot && optind == argc;
}

int fail(const std::string &what) {
    std::fprintf(stderr, "dpm-card: %s\n", ctl::printable(what).c_str());
    return 1;
}

// The directory is this user's alone: whoever can write there can stand in for a card.
bool make_directory(const std::string &path) {
    constexpr std::size_t max_bytes = peer::max_socket_path_bytes - longest_socket.size();
    struct stat about {};
    if (path.size() > max_bytes)
        return fail(path + " is too long for sockets in it: " + std::to_string(max_bytes) +
                    " bytes at most"),
               false;
    if ((mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) || lstat(path.c_str(), &about) != 0)
        return fail(path + ": " + std::strerror(errno)), false;
    if (S_ISLNK(about.st_mode))
        return fail(path + " is a link: name the directory that it leads to"), false;
    if (!S_ISDIR(about.st_mode) || about.st_uid != getuid() || (about.st_mode & 077) != 0)
        return fail(path + " is not a directory of this user's own (mode 0700)"), false;
    return true;
}

// A card that ran out of descriptors could not meet its peer, and a shelf would have two masters:
// so it sees first whether it can have all that it may need.
bool has_descriptors() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < max_descriptors) {
        limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, max_descriptors);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    std::vector<peer::Descriptor> taken;
    while (taken.size() < max_descriptors) {
        taken.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
        if (!taken.back())
            return fail("a card needs " + std::to_string(max_descriptors) +
                        " file descriptors and can have " + std::to_string(taken.size() - 1) +
                        " (ulimit -n)"),
                   false;
    }
    return true;
}

std::string log_text(const chassis::os::LogLine &line) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char time[40];
    const std::size_t length = std::strftime(time, sizeof time, "%F %T", &local);
    std::snprintf(time + length, sizeof time - length, ".%03d %d ", int(now.tv_nsec / 1'000'000),
                  line.level);
    return time + line.text;
}

// Every line goes to the file and to the memory that `show log` reads.
bool start_log(chassis::Card &card, ctl::Server &server, const Options &options) {
    std::FILE *const file = options.log.empty() ? stderr : std::fopen(options.log.c_str(), "ae");
    if (!file)
        return fail(options.log + ": " + std::strerror(errno)), false;
    card.os.log_level(options.log_level);
    card.os.log_to([&card, &server, file](const chassis::os::LogLine &line) {
        server.journal().note_log(card, line);
        const std::string text = log_text(line);
        server.keep_log_line(text);
        std::fprintf(file, "%s\n", text.c_str());
        std::fflush(file);
    });
    return true;
}

// Interfaces are not mirrored, and mirrored records find theirs by name: they are to be there
// before the other card sends its tables.
bool configure(ctl::Server &server, const std::string &path) {
    if (path.empty())
        return true;
    const ctl::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file)
        return fail(path + ": " + std::strerror(errno)), false;
    ctl::LineReader lines(file.get());
    std::string line;
    for (unsigned number = 1; lines.next(line); number++)
        if (const ctl::Reply reply = server.execute(line); reply.status != ctl::Status::ok)
            return fail(path + ":" + std::to_string(number) + ": " + reply.text), false;
    if (lines.error() != 0)
        return fail(path + ": " + std::strerror(lines.error())), false;
    return true;
}

// The signals that end the card, as a descriptor.  Every thread inherits the mask.
ctl::Descriptor ending_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGHUP);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN); // a file that may not grow is a write that fails
    return ctl::Descriptor(signalfd(-1, &signals, SFD_CLOEXEC));
}

// One card at a time starts or ends in a directory, so that of two one is the first, or the last.
ctl::Descriptor take_turn(const std::string &directory) {
    ctl::Descriptor turn(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    flock(turn.get(), LOCK_EX);
    return turn;
}

// Whatever the card's threads call is still there when they end.
struct Ending {
    chassis::Card &card;
    ~Ending() { card.stop(); }
};

int run(const Options &options, int stop) {
    const unsigned slot = options.card.slot;
    const auto lock_of = [&](unsigned number) {
        return peer::slot_lock_path(options.directory, number);
    };
    ctl::Descriptor turn = take_turn(options.directory);
    peer::LockFile lock = peer::LockFile::take(lock_of(slot));
    if (!lock)
        return fail("the card in slot " + std::to_string(slot) + " runs already");
    chassis::Card card(options.card);
    chassis::journal::Journal journal;
    journal.watch(card);
    ctl::Server server(card, journal);
    if (!start_log(card, server, options))
        return 1;
    card::LineCards line_cards(card, options.directory + "/line-cards");
    const Ending ending{card};
    const std::string other = lock_of(card.peer.peer_slot());
    if (!peer::LockFile::is_held(other))
        line_cards.forget();
    turn.reset();
    if (card.start() != 0)
        return fail("the library does not start; see the log");
    if (!configure(server, options.config))
        return 1;
    const std::string path = ctl::control_path(options.directory, slot);
    ctl::Descriptor listener = ctl::listen_at(path);
    if (!listener)
        return fail(path + ": " + std::strerror(errno));
    card.peer.open(ctl::shelf_path(options.directory));
    card::Control(server, card.os, std::move(listener), [&] { line_cards.retry(); }).serve(stop);
    unlink(path.c_str());
    card.stop();
    turn = take_turn(options.directory);
    if (!peer::LockFile::is_held(other))
        line_cards.forget();
    lock.release();
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    ctl::fill_standard_descriptors();
    Options options;
    if (!read_options(argc, argv, options)) {
        std::fputs(usage, stderr);
        return 2;
    }
    if (!make_directory(options.directory) || !has_descriptors())
        return 1;
    const ctl::Descriptor stop = ending_signals();
    return run(options, stop.get());
}
