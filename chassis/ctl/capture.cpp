// rx: the frames of a capture (pcap or pcapng), or those that a device of this machine hears, are
// received by a port.
//
// A frame goes to the card as soon as it is read, or with the time between it and the one before.
// The card shows it to its hooks on a thread of its own.  libpcap is there for the machine's own ABI
// alone, so other builds know frames in digits only.

#include "chassis/ctl/client.h"

#include <algorithm>
#include <cstdio>
#include <span>

#ifdef DPM_PCAP
#include <pcap/pcap.h>
#include <poll.h>
#endif

namespace ctl {

namespace {

bool fail(const std::string &text) {
    std::fprintf(stderr, "rx: %s\n", printable(text).c_str());
    return false;
}

} // namespace

#ifdef DPM_PCAP

namespace {

constexpr int hear_msec = 100;

class Capture {
public:
    Capture() = default;
    Capture(const Capture &) = delete;
    Capture &operator=(const Capture &) = delete;
    ~Capture() {
        if (copy_)
            pcap_dump_close(copy_);
        if (source_)
            pcap_close(source_);
    }

    // False when it cannot be read, which is told.
    bool open(const std::string &path) {
        char why[PCAP_ERRBUF_SIZE] = "";
        source_ = pcap_open_offline(path.c_str(), why);
        return source_ ? is_ethernet(path) : fail(why);
    }
    // What comes in to a device, not what leaves it.
    bool listen(const std::string &device) {
        char why[PCAP_ERRBUF_SIZE] = "";
        source_ = pcap_create(device.c_str(), why);
        if (!source_)
            return fail(why);
        pcap_set_immediate_mode(source_, 1);
        pcap_set_snaplen(source_, max_frame_bytes);
        pcap_set_timeout(source_, hear_msec);
        if (pcap_activate(source_) < 0 || pcap_setdirection(source_, PCAP_D_IN) != 0 ||
            pcap_setnonblock(source_, 1, why) != 0)
            return fail(device + ": " + pcap_geterr(source_));
        return is_ethernet(device);
    }
    bool copy_to(const std::string &path) {
        copy_ = pcap_dump_open(source_, path.c_str());
        return copy_ || fail(pcap_geterr(source_));
    }

    // The next frame, from its destination MAC on; false at the end, or when somebody interrupts.
    bool next(std::span<const std::uint8_t> &frame, std::chrono::microseconds &at) {
        pcap_pkthdr *head = nullptr;
        const std::uint8_t *bytes = nullptr;
        int found = 0;
        while (!interrupted && (found = pcap_next_ex(source_, &head, &bytes)) == 0) {
            pollfd polled{pcap_get_selectable_fd(source_), POLLIN, 0};
            poll(&polled, 1, hear_msec);
        }
        if (interrupted || found == PCAP_ERROR_BREAK)
            return false;
        if (found < 0)
            return is_whole_ = fail(pcap_geterr(source_));
        if (copy_)
            pcap_dump(reinterpret_cast<std::uint8_t *>(copy_), head, bytes);
        frame = {bytes, head->caplen};
        at = std::chrono::seconds(head->ts.tv_sec) + std::chrono::microseconds(head->ts.tv_usec);
        return true;
    }
    bool is_whole() const { return is_whole_; } // read to its end

private:
    bool is_ethernet(const std::string &name) {
        return pcap_datalink(source_) == DLT_EN10MB || fail(name + ": its frames are no Ethernet");
    }

    pcap_t *source_ = nullptr;
    pcap_dumper_t *copy_ = nullptr;
    bool is_whole_ = true;
};

std::string digits_of(std::span<const std::uint8_t> bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const std::uint8_t byte : bytes)
        text += {digits[byte >> 4], digits[byte & 15]};
    return text;
}

// Holds back each frame until as much time has passed as between its own time and the first one's.
class Pace {
public:
    void wait_for(std::chrono::microseconds at) {
        if (!has_begun_)
            first_ = at;
        has_begun_ = true;
        const Clock::time_point due = start_ + (at - first_);
        while (!interrupted && Clock::now() < due) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now());
            poll(nullptr, 0, int(std::min<std::int64_t>(left.count(), 1000)));
        }
    }

private:
    const Clock::time_point start_ = Clock::now();
    std::chrono::microseconds first_{};
    bool has_begun_ = false;
};

bool open_capture(Capture &capture, const Parsed &parsed) {
    const std::string path(parsed.value("PATH")), device(parsed.value("live"));
    const std::string copy(parsed.value("save"));
    if (path.empty() == device.empty())
        return fail("a port receives a file, what is heard live, or hex digits");
    return (device.empty() ? capture.open(path) : capture.listen(device)) &&
           (copy.empty() || capture.copy_to(copy));
}

} // namespace

bool receive_capture(Shelf &shelf, Target target, const Parsed &parsed) {
    Capture capture;
    if (!open_capture(capture, parsed))
        return false;
    catch_interrupts();
    if (parsed.has("live"))
        std::printf("listens to %s\n", printable(parsed.value("live")).c_str());
    std::fflush(stdout);
    const std::string head = "rx " + std::string(parsed.value("PORT")) + " hex ";
    const std::string tail = parsed.has("vlan") ? " vlan " + std::string(parsed.value("vlan")) : "";
    const bool is_timed = parsed.has("timed");
    Pace pace;
    std::span<const std::uint8_t> frame;
    std::chrono::microseconds at{};
    unsigned long received = 0, left_out = 0;
    while (capture.next(frame, at)) {
        if (is_timed)
            pace.wait_for(at);
        if (frame.empty() || frame.size() > max_frame_bytes) {
            left_out++;
            continue;
        }
        const std::string line = head + digits_of(frame) + tail;
        const auto reply = target.slot ? shelf.ask(*target.slot, line) : shelf.ask_master(line);
        if (interrupted)
            break;
        if (!reply)
            return fail("no card takes it in " + shelf.directory());
        if (reply->status != Status::ok)
            return fail(reply->text);
        received++;
    }
    std::printf("%lu frames received, %lu left out\n", received, left_out);
    return capture.is_whole();
}

#else

bool receive_capture(Shelf &, Target, const Parsed &) {
    return fail("this build knows no captures; the one of preset tools does");
}

#endif

} // namespace ctl
