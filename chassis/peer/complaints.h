// What is wrong with the other card, on stderr.  Whoever sends nonsense may send much of it: a few
// lines in ten seconds are printed, the others are counted.
#pragma once

#include <cstdint>

namespace chassis::peer {

class Complaints { // of one thread
public:
    explicit Complaints(unsigned slot) : slot_(slot) {}
    ~Complaints() { tell_rest(); }
    Complaints(const Complaints &) = delete;
    Complaints &operator=(const Complaints &) = delete;

    void say(const char *format, ...) __attribute__((format(printf, 2, 3)));

private:
    void tell_rest();

    const unsigned slot_;
    std::int64_t since_nsec_ = 0;
    unsigned said_ = 0; // since then
};

} // namespace chassis::peer
