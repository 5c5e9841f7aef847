#include "chassis/peer/complaints.h"

#include "chassis/os/state.h"

#include <cstdarg>
#include <cstdio>

namespace chassis::peer {

namespace {

constexpr std::int64_t window_nsec = 10 * os::nsec_per_sec;
constexpr unsigned lines_of_a_window = 5;

} // namespace

void Complaints::say(const char *format, ...) {
    if (os::raw_nsec() - since_nsec_ >= window_nsec) {
        tell_rest();
        since_nsec_ = os::raw_nsec();
    }
    if (++said_ > lines_of_a_window)
        return;
    char text[200];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    std::fprintf(stderr, "chassis: slot %u %s\n", slot_, text);
}

void Complaints::tell_rest() {
    if (said_ > lines_of_a_window)
        std::fprintf(stderr, "chassis: slot %u has %u more complaints of its peer\n", slot_,
                     said_ - lines_of_a_window);
    said_ = 0;
}

} // namespace chassis::peer
