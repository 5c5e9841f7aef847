// What the cards' sockets and lock files are made of.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace chassis::peer {

class Descriptor { // closes what it holds
public:
    explicit Descriptor(int number = -1) : number_(number) {}
    Descriptor(Descriptor &&other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept;
    ~Descriptor() { reset(); }
    int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }
    void reset();

private:
    int number_;
};

inline constexpr std::size_t max_socket_path_bytes = 107;

// None of them waits.  A listener replaces what stands at its path, and is its owner's alone.
Descriptor connect_stream(const std::string &path);
Descriptor listen_stream(const std::string &path);
Descriptor bind_datagram(const std::string &path);
void send_datagram(int socket, const std::string &path, const void *bytes, std::size_t count);
std::uint64_t inode_of(const std::string &path); // 0: there is none

// A lock that a process holds as long as it lives: however it ends, the lock goes with it.
class LockFile {
public:
    LockFile() = default;
    // An empty one when another process, or another holder in this one, has it.
    static LockFile take(const std::string &path);
    static bool is_held(const std::string &path); // by whomever

    LockFile(LockFile &&) noexcept = default;
    LockFile &operator=(LockFile &&other) noexcept;
    ~LockFile() { release(); }
    explicit operator bool() const { return static_cast<bool>(file_); }
    void release(); // and removes the file

private:
    std::string path_;
    Descriptor file_;
};

} // namespace chassis::peer
