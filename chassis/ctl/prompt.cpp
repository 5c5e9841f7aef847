// The prompt: history and completion where readline was built in, plain lines elsewhere.

#include "chassis/ctl/client.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

#ifdef DPM_READLINE
#include <readline/history.h>
#include <readline/readline.h>
#endif

namespace ctl {

namespace {
constexpr const char *prompt = "dpm> ";
}

#ifdef DPM_READLINE

namespace {

constexpr int history_lines = 1000;

Session *completing = nullptr; // readline's hooks take no argument
std::vector<std::string> candidates;

char *next_candidate(const char *, int state) {
    static_cast<void>(state); // 0 for the first; the list shrinks from its head
    if (candidates.empty())
        return nullptr;
    char *const word = strdup(candidates.front().c_str());
    candidates.erase(candidates.begin());
    return word;
}

char **complete_word(const char *text, int, int end) {
    rl_attempted_completion_over = 1; // no file names
    candidates = complete(std::string_view(rl_line_buffer, std::size_t(end)),
                          [](std::string_view type) { return completing->values_of(type); });
    return rl_completion_matches(text, next_candidate);
}

std::string history_path() {
    const char *const home = std::getenv("HOME");
    return home ? std::string(home) + "/.dpmctl_history" : std::string();
}

void begin(Session &session) {
    if (completing)
        return;
    completing = &session;
    rl_readline_name = "dpmctl";
    rl_attempted_completion_function = complete_word;
    rl_completer_word_break_characters = " \t";
    read_history(history_path().c_str());
    stifle_history(history_lines);
}

void remember(const std::string &line) {
    const HIST_ENTRY *const last = history_get(history_length);
    if (line.empty() || (last && line == last->line))
        return;
    add_history(line.c_str());
    if (const std::string path = history_path(); !path.empty())
        write_history(path.c_str());
}

} // namespace

bool read_prompt(Session &session, std::string &line) {
    begin(session);
    char *const typed = readline(prompt);
    if (!typed)
        return std::puts(""), false;
    line = typed;
    std::free(typed);
    remember(line);
    return true;
}

#else

bool read_prompt(Session &, std::string &line) {
    std::fputs(prompt, stdout);
    std::fflush(stdout);
    if (std::getline(std::cin, line))
        return true;
    std::puts("");
    return false;
}

#endif

} // namespace ctl
