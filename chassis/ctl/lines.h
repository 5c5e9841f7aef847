// The lines of a file, a pipe or a terminal.
#pragma once

#include <csignal>
#include <cstddef>
#include <string>

namespace ctl {

inline constexpr std::size_t max_input_line_bytes = 65536;

// Hands out each line as soon as it is there.  A line of more than max_input_line_bytes loses what
// is past them.
class LineReader {
public:
    // A read that waits ends when a signal comes and `interrupted` is not 0 then.
    explicit LineReader(int input, const volatile std::sig_atomic_t *interrupted = nullptr)
        : input_(input), interrupted_(interrupted) {}

    int input() const { return input_; }
    // The next line without its end; false when there is none, and error() tells whether that is
    // for another reason than the end of the input.
    bool next(std::string &line);
    // Of the last line: neither cut short nor at the end of an input that ends without a line end.
    bool is_whole() const { return is_whole_; }
    int error() const { return error_; } // of the system; 0: none

    bool is_quiet(int msec) const;              // no line is here, and nothing comes in that time
    std::size_t bytes() const { return read_; } // so far

private:
    bool fill();

    const int input_;
    const volatile std::sig_atomic_t *const interrupted_;
    std::string pending_; // behind start_: what follows the last line
    std::size_t start_ = 0, read_ = 0;
    int error_ = 0;
    bool is_whole_ = true, was_cut_ = false;
};

} // namespace ctl
