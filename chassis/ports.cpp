// Frames that a port receives, and the hooks that see them.
#include "chassis/chassis.h"

#include <optional>
#include <vector>

namespace chassis::ports {

namespace {

constexpr std::size_t max_waiting = 256; // frames

struct Tags {
    std::uint32_t ethertype;
    std::vector<std::uint16_t> vlans; // the outermost first
};

std::optional<Tags> tags_of(std::span<const std::uint8_t> frame) {
    Tags tags{};
    for (std::size_t at = 12; at + 2 <= frame.size(); at += 4) {
        tags.ethertype = frame[at] << 8 | frame[at + 1];
        const bool is_tag =
            tags.ethertype == 0x8100 || tags.ethertype == 0x88A8 || tags.ethertype == 0x9100;
        if (!is_tag)
            return tags;
        if (at + 4 > frame.size())
            break;
        tags.vlans.push_back(std::uint16_t((frame[at + 2] << 8 | frame[at + 3]) & 0x0FFF));
    }
    return std::nullopt;
}

} // namespace

unsigned Ports::receive(std::uint32_t port, std::span<const std::uint8_t> frame,
                        std::uint16_t port_vlan) const {
    const auto tags = tags_of(frame);
    const auto found = tags ? bindings_.find({port, tags->ethertype}) : bindings_.end();
    if (found == bindings_.end())
        return 0;
    uv_rx_descriptor descriptor{};
    descriptor.vlan = tags->vlans.empty() ? port_vlan : tags->vlans[0];
    descriptor.inner_vlan = tags->vlans.size() > 1 ? tags->vlans[1] : std::uint16_t(0);
    descriptor.port = port;
    (void)found->second.hook(frame.data(), std::uint32_t(frame.size()), &descriptor);
    return 1;
}

void Ports::feed(Frame frame) {
    if (card_.os.mode() == os::Mode::pumped)
        return see(frame);
    std::unique_lock lock(mutex_);
    if (!thread_.joinable() && !stopping_)
        thread_ = std::thread([this] { run(); });
    changed_.wait(lock, [this] { return waiting_.size() < max_waiting || stopping_; });
    waiting_.push_back(std::move(frame));
    changed_.notify_all();
}

bool Ports::is_idle() const {
    const std::lock_guard guard(mutex_);
    return waiting_.empty() && !sees_;
}

Counts Ports::counts() const {
    const std::lock_guard guard(mutex_);
    return counts_;
}

void Ports::stop() {
    {
        const std::lock_guard guard(mutex_);
        stopping_ = true;
        changed_.notify_all();
    }
    if (thread_.joinable())
        thread_.join();
}

void Ports::see(const Frame &frame) {
    const unsigned hooks = receive(frame.port, frame.bytes, frame.port_vlan);
    const std::lock_guard guard(mutex_);
    counts_.received++;
    counts_.seen += hooks > 0;
}

// The hooks are called without the lock: they may ask the card anything.
void Ports::run() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        if (waiting_.empty()) {
            changed_.wait(lock);
            continue;
        }
        const Frame frame = std::move(waiting_.front());
        waiting_.pop_front();
        sees_ = true;
        lock.unlock();
        see(frame);
        lock.lock();
        sees_ = false;
        changed_.notify_all();
    }
}

struct Contract {
    static int bind(std::uint32_t port, std::uint32_t ethertype, uv_receive_hook hook,
                    const char *name) {
        card().ports.bindings_[{port, ethertype}] = {hook, name};
        return 0;
    }
};

} // namespace chassis::ports

extern "C" int uv_portBindStack(uint32_t port, uint32_t ethertype, uint32_t, uint32_t,
                                uv_receive_hook hook, uint32_t, const char *name) {
    return chassis::ports::Contract::bind(port, ethertype, hook, name);
}
