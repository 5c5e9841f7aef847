// Bringing a standby card up to date: a full host table over a Unix socket to another process.
//
// The time runs from the slot-up message to the standby's confirmation that it applied everything;
// it is compared with a plain copy of the same bytes, in pieces of the same size, through the same
// kind of socket.
#include "bench/hosts.h"
#include "chassis/peer/state.h"

#include "dpm_bridge.h"

#include <csignal>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char **environ;

namespace bench {

namespace {

constexpr unsigned hosts = 18432; // a full table
constexpr unsigned batch = 100;   // entries of a message

void wait_for(const std::function<bool()> &condition) {
    while (!condition())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

pid_t start_standby(const std::string &path, bool paced) {
    std::string words[] = {"bench", "--standby", path, "--paced", paced ? "1" : "0"};
    char *pointers[] = {words[0].data(), words[1].data(), words[2].data(),
                        words[3].data(), words[4].data(), nullptr};
    pid_t process = 0;
    if (posix_spawn(&process, "/proc/self/exe", nullptr, nullptr, pointers, environ) != 0)
        fail("the standby card does not start");
    return process;
}

// A master with a full table, and its standby in a process of its own.
class Shelf {
public:
    explicit Shelf(bool paced)
        : path_("/tmp/dpm-bench-" + std::to_string(getpid())),
          master_(chassis::os::Mode::threaded) {
        master_.card.os.skip_delays(true);
        for (unsigned i = 0; i < hosts; i++)
            request_host(i, DPM_OPER_ADD);
        wait_for_hosts(hosts);
        master_.card.os.skip_delays(!paced);
        process_ = start_standby(path_, paced);
        chassis::peer::Peer &peer = master_.card.peer;
        peer.open(path_);
        wait_for([&] { return peer.exists(); });
        wait_for([&] { return peer.state().connected_running == 0 && dpm_get_slave_up() == 1; });
        (void)synchronize();
    }
    ~Shelf() {
        master_.card.peer.close();
        int status = 0;
        waitpid(process_, &status, 0);
        if (status != 0)
            fail("the standby card does not hold the master's hosts");
    }

    double synchronize() {
        return time_of([] { dpm_bridge_slave_up(); });
    }

private:
    const std::string path_;
    MasterCard master_;
    pid_t process_ = 0;
};

void write_all(int socket, const char *bytes, std::size_t count) {
    while (count > 0) {
        const ssize_t written = send(socket, bytes, count, MSG_NOSIGNAL);
        if (written <= 0)
            fail("a socket does not take bytes");
        bytes += written;
        count -= std::size_t(written);
    }
}

void write_in_pieces(int socket, std::size_t total, std::size_t piece) {
    static const std::vector<char> bytes(batch * sizeof(dpm_host_entry));
    for (std::size_t done = 0; done < total; done += piece)
        write_all(socket, bytes.data(), std::min(piece, total - done));
}

// The same bytes to a thread that reads them, until it confirms.
double copy_plainly() {
    constexpr std::size_t nexthop_bytes = hosts * sizeof(dpm_nexthop_entry),
                          host_bytes = hosts * sizeof(dpm_host_entry);
    int sockets[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) != 0)
        fail("no sockets");
    std::thread reader([&] {
        std::vector<char> buffer(65536);
        for (std::size_t left = nexthop_bytes + host_bytes; left > 0;) {
            const ssize_t count = recv(sockets[1], buffer.data(), buffer.size(), 0);
            if (count <= 0)
                fail("a socket does not give bytes");
            left -= std::size_t(count);
        }
        write_all(sockets[1], buffer.data(), 1);
    });
    const double nsec = time_of([&] {
        write_in_pieces(sockets[0], nexthop_bytes, batch * sizeof(dpm_nexthop_entry));
        write_in_pieces(sockets[0], host_bytes, batch * sizeof(dpm_host_entry));
        char confirmed;
        if (recv(sockets[0], &confirmed, 1, 0) != 1)
            fail("a copy is not confirmed");
    });
    reader.join();
    close(sockets[0]), close(sockets[1]);
    return nsec;
}

void measure_shelf(const Options &options, const Report &report, bool paced) {
    Shelf shelf(paced);
    Comparison comparison;
    for (unsigned round = 0; round < options.rounds; round++)
        comparison.round([&] { return shelf.synchronize(); }, copy_plainly);
    report({std::string("mirroring 18432 hosts ") + (paced ? "with" : "without") +
                " pacing / plain copy",
            median(comparison.ours) / 1e6, "ms", comparison.ratio()});
}

} // namespace

int run_standby(const Options &options) {
    chassis::Card card(
        {.slot = 10, .mode = chassis::os::Mode::threaded, .mac = {2, 0, 0, 0, 0, 10}});
    card.peer.set_role(chassis::peer::Role::standby);
    prepare(card);
    card.os.skip_delays(!options.standby_paced);
    card.peer.open(options.standby_path);
    wait_for([&] { return card.peer.exists(); });
    wait_for([&] { return !card.peer.exists(); });
    check_hosts(hosts);
    card.peer.close();
    return 0;
}

void measure_mirroring(const Options &options, const Report &report) {
    measure_shelf(options, report, true);
    measure_shelf(options, report, false);
}

} // namespace bench
