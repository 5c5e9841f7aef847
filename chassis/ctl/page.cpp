// Answers on a terminal, a screen at a time.
//
// What does not fit on the screen goes through $PAGER (less, where none is named), as long as
// stdout is a terminal; where the pager cannot be started, the answer is printed as it is.

#include "chassis/ctl/client.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ctl {

namespace {

constexpr const char *usual_pager = "less -FRX";
constexpr unsigned usual_columns = 80, usual_rows = 24, no_terminal = 200;
constexpr int shell_found_no_command = 127;

struct Screen {
    unsigned columns = usual_columns, rows = usual_rows;
};

Screen screen() {
    winsize size{};
    Screen found;
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0)
        found = {size.ws_col, size.ws_row};
    return found;
}

// The prompt takes the last line.
bool fits(std::string_view text, const Screen &screen) {
    std::size_t rows = 1;
    for (std::size_t at = 0; at < text.size() && rows <= screen.rows;) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        rows += end == at ? 1 : (end - at + screen.columns - 1) / screen.columns;
        at = end + 1;
    }
    return rows <= screen.rows;
}

// While a pager runs, a reader who leaves it early and one who interrupts it do not end us.
class SignalsIgnored {
public:
    SignalsIgnored() {
        for (std::size_t i = 0; i < std::size(numbers); i++)
            before_[i] = std::signal(numbers[i], SIG_IGN);
    }
    ~SignalsIgnored() {
        for (std::size_t i = 0; i < std::size(numbers); i++)
            std::signal(numbers[i], before_[i]);
    }

private:
    static constexpr int numbers[] = {SIGPIPE, SIGINT, SIGQUIT};
    void (*before_[std::size(numbers)])(int);
};

// False when there is no such pager.
bool page(const std::string &text) {
    const char *const named = std::getenv("PAGER");
    std::FILE *const pager = popen(named && *named ? named : usual_pager, "w");
    if (!pager)
        return false;
    const SignalsIgnored ignored; // the pager was started before and has its own
    std::fwrite(text.data(), 1, text.size(), pager);
    const int status = pclose(pager);
    return !(WIFEXITED(status) && WEXITSTATUS(status) == shell_found_no_command);
}

} // namespace

unsigned terminal_columns() {
    return isatty(STDOUT_FILENO) ? screen().columns : no_terminal;
}

void print_paged(const std::string &text) {
    const std::string shown = printable(text);
    std::fflush(stdout);
    if (isatty(STDOUT_FILENO) && !fits(shown, screen()) && page(shown))
        return;
    std::fputs(shown.c_str(), stdout);
}

bool flush_output() {
    const char *const why = std::fflush(stdout) != 0 ? std::strerror(errno)
                            : std::ferror(stdout)    ? "not all was written"
                                                     : nullptr;
    if (!why)
        return true;
    std::fprintf(stderr, "dpmctl: stdout: %s\n", why);
    std::clearerr(stdout);
    return false;
}

} // namespace ctl
