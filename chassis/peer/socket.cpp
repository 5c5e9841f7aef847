#include "chassis/peer/socket.h"

#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace chassis::peer {

namespace {

constexpr int waiting_connections = 16;

struct Address {
    explicit Address(const std::string &path) {
        is_good = path.size() <= max_socket_path_bytes;
        if (is_good)
            std::memcpy(address.sun_path, path.data(), path.size());
    }
    const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&address); }

    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    bool is_good;
};

Descriptor new_socket(int kind) {
    return Descriptor(socket(AF_UNIX, kind | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

// A socket has its mode from the moment it stands there.
Descriptor bind_at(const std::string &path, int kind) {
    const Address address(path);
    Descriptor socket = new_socket(kind);
    unlink(path.c_str());
    const mode_t mask = umask(0177);
    const bool is_bound =
        address.is_good && socket && bind(socket.get(), address.get(), sizeof address.address) == 0;
    umask(mask);
    return is_bound ? std::move(socket) : Descriptor();
}

struct flock whole_file(short kind) {
    struct flock lock {};
    lock.l_type = kind;
    lock.l_whence = SEEK_SET;
    return lock;
}

} // namespace

Descriptor &Descriptor::operator=(Descriptor &&other) noexcept {
    reset();
    number_ = std::exchange(other.number_, -1);
    return *this;
}

void Descriptor::reset() {
    if (number_ >= 0)
        close(std::exchange(number_, -1));
}

Descriptor connect_stream(const std::string &path) {
    const Address address(path);
    Descriptor socket = new_socket(SOCK_STREAM);
    if (!address.is_good || !socket ||
        connect(socket.get(), address.get(), sizeof address.address) != 0)
        return Descriptor();
    return socket;
}

Descriptor listen_stream(const std::string &path) {
    Descriptor socket = bind_at(path, SOCK_STREAM);
    if (socket && listen(socket.get(), waiting_connections) != 0)
        socket.reset();
    return socket;
}

Descriptor bind_datagram(const std::string &path) {
    return bind_at(path, SOCK_DGRAM);
}

void send_datagram(int socket, const std::string &path, const void *bytes, std::size_t count) {
    const Address address(path);
    if (address.is_good) // whoever is not there, or has enough of them to read, misses it
        static_cast<void>(sendto(socket, bytes, count, MSG_NOSIGNAL | MSG_DONTWAIT, address.get(),
                                 sizeof address.address));
}

std::uint64_t inode_of(const std::string &path) {
    struct stat about {};
    return stat(path.c_str(), &about) == 0 ? about.st_ino : 0;
}

// The file may have been removed by a holder that released it while this one waited: the lock
// counts only while the file still stands under its name.
LockFile LockFile::take(const std::string &path) {
    LockFile lock;
    Descriptor file(open(path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC | O_NOFOLLOW, 0600));
    struct flock wanted = whole_file(F_WRLCK);
    struct stat mine {};
    if (file && fcntl(file.get(), F_OFD_SETLK, &wanted) == 0 && fstat(file.get(), &mine) == 0 &&
        mine.st_ino == inode_of(path)) {
        lock.path_ = path;
        lock.file_ = std::move(file);
    }
    return lock;
}

bool LockFile::is_held(const std::string &path) {
    const Descriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
    struct flock asked = whole_file(F_WRLCK);
    return file && fcntl(file.get(), F_OFD_GETLK, &asked) == 0 && asked.l_type != F_UNLCK;
}

LockFile &LockFile::operator=(LockFile &&other) noexcept {
    release();
    path_ = std::move(other.path_);
    file_ = std::move(other.file_);
    return *this;
}

void LockFile::release() {
    if (file_)
        unlink(path_.c_str());
    file_.reset();
}

} // namespace chassis::peer
