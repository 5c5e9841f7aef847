// What client and card say to each other on the card's control socket.
//
// The client sends a command as one line; the card answers "STATUS LENGTH\n" and LENGTH bytes of
// text.  A line longer than max_line_bytes is answered with an error and the connection is closed.
// What a client asked for last before it hung up is carried out only if its turn had come.
#pragma once

#include "chassis/ctl/words.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ctl {

inline constexpr unsigned slots[] = {9, 10};
inline constexpr std::size_t max_reply_bytes = 256u << 20;
inline constexpr std::chrono::milliseconds connect_limit{1000};

enum class Status : unsigned {
    ok = 0,
    failed = 1,
    no_interface = 2, // the command names an interface that the card does not have
};

struct Reply {
    Status status = Status::ok;
    std::string text;
};

struct ReplyHead {
    Status status;
    std::size_t length; // bytes of text that follow
};

std::string encode_reply(const Reply &reply);
std::optional<ReplyHead> decode_reply_head(std::string_view line); // without its line end

// $DPM_DIR, or a directory of the user's own under /tmp.
std::string default_directory();
std::string control_path(const std::string &directory, unsigned slot);
std::string shelf_path(const std::string &directory);

// A file descriptor that closes itself.
class Descriptor {
public:
    explicit Descriptor(int number = -1) : number_(number) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor &&other) noexcept : number_(other.release()) {}
    Descriptor &operator=(Descriptor &&other) noexcept;
    explicit operator bool() const { return number_ >= 0; }
    int get() const { return number_; }
    void reset();

private:
    int release() {
        const int number = number_;
        number_ = -1;
        return number;
    }
    int number_;
};

// Opens what stands for standard descriptors that are closed, so that no socket or file gets their
// numbers and with them what is printed.  To be called first; printing fails then.
void fill_standard_descriptors();

// A connection to a socket at a path; none with errno: nobody listens there (ENOENT, ECONNREFUSED),
// or who listens does not take it in time (EAGAIN), or another.  Sending over it has the same limit.
Descriptor connect_to(const std::string &path, std::chrono::milliseconds limit = connect_limit);
// A listener at a path that only its owner can reach.  What stands at the path is removed first.
Descriptor listen_at(const std::string &path);

} // namespace ctl
