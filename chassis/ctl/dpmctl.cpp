// dpmctl: commands to the cards of a shelf, from the arguments, a file, a pipe or a prompt.

#include "chassis/ctl/client.h"
#include "chassis/ctl/lines.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <getopt.h>
#include <unistd.h>

namespace {

constexpr const char *usage = R"(usage: dpmctl [OPTION]... [COMMAND WORD...]
Without a command: reads commands from standard input, with a prompt on a terminal.

  -d, --dir DIR     where the cards' sockets are ($DPM_DIR, else /tmp/libdpm-UID)
  -c, --card CARD   9, 10 or both (else: settings go to both cards, the rest to the master)
  -f, --file FILE   commands from a file, a line each; # begins a comment
  -k, --keep-going  go on behind a command that failed
  -h, --help        this text and the commands
)";

struct Options {
    std::string directory = ctl::default_directory();
    ctl::Target target;
    std::string file;
    bool keep_going = false;
};

bool read_target(std::string_view text, ctl::Target &target) {
    target = {};
    if (text == "both")
        return target.both = true;
    for (const unsigned slot : ctl::slots)
        if (text == std::to_string(slot))
            return target.slot = slot, true;
    return false;
}

// 0 to go on, else the exit status plus one.
int read_options(int argc, char **argv, Options &options) {
    static constexpr option names[] = {
        {"dir", required_argument, nullptr, 'd'},  {"card", required_argument, nullptr, 'c'},
        {"file", required_argument, nullptr, 'f'}, {"keep-going", no_argument, nullptr, 'k'},
        {"help", no_argument, nullptr, 'h'},       {}};
    for (int letter; (letter = getopt_long(argc, argv, "+d:c:f:kh", names, nullptr)) != -1;) {
        switch (letter) {
        case 'd':
            options.directory = optarg;
            break;
        case 'f':
            options.file = optarg;
            break;
        case 'k':
            options.keep_going = true;
            break;
        case 'c':
            if (read_target(optarg, options.target))
                break;
            std::fprintf(stderr, "dpmctl: --card takes 9, 10 or both\n");
            return 2;
        case 'h':
            std::printf("%s\n%s", usage, ctl::help().c_str());
            return ctl::flush_output() ? 1 : 2;
        default:
            std::fputs(usage, stderr);
            return 2;
        }
    }
    return 0;
}

bool fail(const std::string &name, int error) {
    std::fprintf(stderr, "dpmctl: %s: %s\n", ctl::printable(name).c_str(), std::strerror(error));
    return false;
}

// Every line of an input, up to the first that fails.
bool run_lines(ctl::Session &session, int input, const std::string &name, bool keep_going) {
    ctl::LineReader lines(input);
    bool good = true;
    std::string line;
    for (unsigned number = 1; !session.wants_to_quit() && lines.next(line); number++) {
        good = session.run(line, name + ":" + std::to_string(number)) && good;
        if (!good && !keep_going)
            return false;
    }
    return lines.error() == 0 ? good : fail(name, lines.error());
}

bool run_prompt(ctl::Session &session) {
    std::string line;
    while (!session.wants_to_quit() && ctl::read_prompt(session, line))
        session.run(line);
    return true;
}

bool run_file(ctl::Session &session, const std::string &path, bool keep_going) {
    const ctl::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return file ? run_lines(session, file.get(), path, keep_going) : fail(path, errno);
}

} // namespace

int main(int argc, char **argv) {
    ctl::fill_standard_descriptors();
    Options options;
    if (const int status = read_options(argc, argv, options))
        return status - 1;
    ctl::Session session(options.directory, options.target);
    std::string command;
    for (int i = optind; i < argc; i++)
        command += (command.empty() ? "" : " ") + std::string(argv[i]);
    bool good;
    if (!options.file.empty())
        good = run_file(session, options.file, options.keep_going);
    else if (!command.empty())
        good = session.run(command);
    else if (isatty(STDIN_FILENO))
        good = run_prompt(session);
    else
        good = run_lines(session, STDIN_FILENO, "stdin", options.keep_going);
    return good ? 0 : 1;
}
