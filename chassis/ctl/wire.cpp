// Framing of replies, and Unix sockets.

#include "chassis/ctl/wire.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace ctl {

namespace {

constexpr int waiting_connections = 16;

bool make_address(const std::string &path, sockaddr_un &address) {
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return errno = ENAMETOOLONG, false;
    std::memcpy(address.sun_path, path.data(), path.size());
    return true;
}

const sockaddr *generic(const sockaddr_un &address) {
    return reinterpret_cast<const sockaddr *>(&address);
}

} // namespace

std::string encode_reply(const Reply &reply) {
    return std::to_string(unsigned(reply.status)) + " " + std::to_string(reply.text.size()) + "\n" +
           reply.text;
}

std::optional<ReplyHead> decode_reply_head(std::string_view line) {
    const std::size_t blank = line.find(' ');
    if (blank == line.npos)
        return std::nullopt;
    const auto status = parse_number(line.substr(0, blank));
    const auto length = parse_number(line.substr(blank + 1));
    if (!status || !length || *status > unsigned(Status::no_interface) || *length > max_reply_bytes)
        return std::nullopt;
    return ReplyHead{Status(*status), std::size_t(*length)};
}

std::string default_directory() {
    if (const char *const directory = std::getenv("DPM_DIR"); directory && *directory)
        return directory;
    return "/tmp/libdpm-" + std::to_string(getuid());
}

std::string control_path(const std::string &directory, unsigned slot) {
    return directory + "/card-" + std::to_string(slot) + ".sock";
}

std::string shelf_path(const std::string &directory) {
    return directory + "/shelf.sock";
}

Descriptor &Descriptor::operator=(Descriptor &&other) noexcept {
    if (this != &other) {
        reset();
        number_ = other.release();
    }
    return *this;
}

void Descriptor::reset() {
    if (number_ >= 0)
        close(release());
}

void fill_standard_descriptors() {
    int number;
    while ((number = open("/dev/null", O_RDONLY)) >= 0 && number <= STDERR_FILENO) {
    }
    Descriptor last(number); // is not needed
}

Descriptor connect_to(const std::string &path, std::chrono::milliseconds limit) {
    sockaddr_un address;
    if (!make_address(path, address))
        return Descriptor();
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const timeval wait{.tv_sec = time_t(limit.count() / 1000),
                       .tv_usec = suseconds_t(limit.count() % 1000 * 1000)};
    if (!socket || setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof wait) != 0 ||
        connect(socket.get(), generic(address), sizeof address) != 0)
        return Descriptor();
    return socket;
}

Descriptor listen_at(const std::string &path) {
    sockaddr_un address;
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!make_address(path, address) || !socket)
        return Descriptor();
    unlink(path.c_str());
    const mode_t mask = umask(0177);
    const int bound = bind(socket.get(), generic(address), sizeof address);
    umask(mask);
    if (bound != 0 || listen(socket.get(), waiting_connections) != 0)
        return Descriptor();
    return socket;
}

} // namespace ctl
