// What client and card say to each other on the card's control socket.
//
// The client sends a command as one line; the card answers "STATUS LENGTH\n" and LENGTH bytes of
// text.  A line longer than max_line_bytes is answered with an error and the connection is closed.
#pragma once

#include "chassis/ctl/words.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ctl {

inline constexpr unsigned slots[] = {9, 10};
inline constexpr std::size_t max_reply_bytes = 256u << 20;

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

// A connection to a socket at a path; none when nobody listens there, or the path is too long.
Descriptor connect_to(const std::string &path);
// A listener at a path that only its owner can reach.  What stands at the path is removed first.
Descriptor listen_at(const std::string &path);

} // namespace ctl
