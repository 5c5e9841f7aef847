#include "chassis/ctl/lines.h"

#include <cerrno>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace ctl {

bool LineReader::next(std::string &line) {
    std::size_t searched = start_, end;
    while ((end = pending_.find('\n', searched)) == pending_.npos) {
        pending_.erase(0, std::exchange(start_, 0));
        if (pending_.size() > max_input_line_bytes)
            pending_.resize(max_input_line_bytes), was_cut_ = true;
        searched = pending_.size();
        if (fill())
            continue;
        is_whole_ = false;
        line = std::exchange(pending_, {});
        return !line.empty();
    }
    is_whole_ = !std::exchange(was_cut_, false);
    line = pending_.substr(start_, end - start_);
    start_ = end + 1;
    return true;
}

// False at the end, whatever it is.
bool LineReader::fill() {
    char bytes[16384];
    ssize_t count;
    do {
        if (interrupted_ && *interrupted_)
            return false;
        count = read(input_, bytes, sizeof bytes);
    } while (count < 0 && errno == EINTR);
    if (count < 0)
        error_ = errno;
    if (count <= 0)
        return false;
    pending_.append(bytes, std::size_t(count));
    read_ += std::size_t(count);
    return true;
}

bool LineReader::is_quiet(int msec) const {
    pollfd waiting{input_, POLLIN, 0};
    return pending_.find('\n', start_) == pending_.npos && poll(&waiting, 1, msec) == 0;
}

} // namespace ctl
