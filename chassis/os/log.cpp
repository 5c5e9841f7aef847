// The module log: one line a call, "time level module text", to stderr, to a file or to a sink.
//
// Threaded cards stamp wall-clock time, pumped ones their own clock in seconds.

#include "chassis/chassis.h"
#include "chassis/os/state.h"
#include "platform/rqzt.h"

#include <cstdarg>
#include <cstdio>
#include <time.h>

namespace chassis::os {

namespace {

constexpr std::size_t max_line_bytes = 2048;

std::string time_text(const Os &os) {
    char text[40];
    if (os.mode() == Mode::pumped) {
        std::snprintf(text, sizeof text, "%.3f", double(os.now_nsec()) / nsec_per_sec);
        return text;
    }
    const std::int64_t now = raw_nsec(CLOCK_REALTIME);
    const time_t second = time_t(now / nsec_per_sec);
    tm local{};
    localtime_r(&second, &local);
    const std::size_t length = strftime(text, sizeof text, "%F %T", &local);
    std::snprintf(text + length, sizeof text - length, ".%03d", int(now / 1'000'000 % 1000));
    return text;
}

std::string module_name(const Os::State &state, std::uint32_t id) {
    return id >= 1 && id <= state.modules.size() ? state.modules[id - 1] : "-";
}

void write_line(Os &os, std::FILE *file, const LogLine &line) {
    std::fprintf(file, "%s %d %s %s\n", time_text(os).c_str(), line.level,
                 module_name(os.state(), line.module_id).c_str(), line.text.c_str());
    std::fflush(file);
}

// The text without its line end; control characters inside it become blanks, so that a line stays
// one.
std::string one_line(const char *text, std::size_t length) {
    while (length && (text[length - 1] == '\n' || text[length - 1] == '\r'))
        --length;
    std::string line(text, length);
    for (char &character : line)
        if (static_cast<unsigned char>(character) < ' ' && character != '\t')
            character = ' ';
    return line;
}

} // namespace

void Os::log_to(std::function<void(const LogLine &)> sink) {
    std::lock_guard lock(state_->log_mutex);
    state_->sink = std::move(sink);
}

void Os::log_to_file(const std::string &path) {
    std::shared_ptr<std::FILE> file(std::fopen(path.c_str(), "ae"), [](std::FILE *opened) {
        if (opened)
            std::fclose(opened);
    });
    if (!file)
        return std::perror(path.c_str());
    log_to([this, file](const LogLine &line) { write_line(*this, file.get(), line); });
}

void Os::log_level(int level) {
    state_->log_level = level;
}

} // namespace chassis::os

using namespace chassis;

extern "C" int ulogPrintf(uint32_t module_id, int level, const char *format, ...) {
    os::Os &os = card().os;
    os::Os::State &state = os.state();
    if (level < state.log_level.load(std::memory_order_relaxed))
        return 0;
    char text[os::max_line_bytes];
    va_list arguments;
    va_start(arguments, format);
    const int wanted = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (wanted < 0)
        return -1;
    const std::size_t length = std::min<std::size_t>(wanted, sizeof text - 1);
    const os::LogLine line{module_id, level, os::one_line(text, length), {text, length}};
    std::lock_guard lock(state.log_mutex);
    state.sink ? state.sink(line) : os::write_line(os, stderr, line);
    return 0;
}
