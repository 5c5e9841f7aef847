// Behaviour as rows: a command, and what leaves the library because of it, in order.
//
//   ROWS(Hosts, AnotherMacDeletesTheOldHostFirst){
//       {"neigh add {a}"},
//       {"neigh add {a} lladdr {m2}", "notice {a} goes; entry- {a} n1; nexthop- n1; ..."},
//   };
//
// A table of rows is a test.  It runs over both families and in three roles: a master alone, one
// that mirrors, and one that has taken over and mirrors to another standby.  Every law is checked
// behind every row.
//
// A command is one of dpmctl (Shelf::run), one of the rig (below), or a verb that a test file adds.
// Effects are events of the journal (chassis/journal/journal.h) with "; " in between; those of the
// other card begin with "standby: ".  A command that is refused has the effect "refused", or
// "error" and its text; each line of an answer has the effect "= " and the line.  An effect that
// ends in "..." is compared as far as there.  A command or effect that begins with "4: " or "6: "
// is of that family alone.  A row without effects makes ready what others need: whatever leaves the
// library then.
//
//   {a} to {i}          neighbours on vlanif100, whose own address is {gw}; their MACs end alike
//   {m1} to {m9}        MACs: {a} has {m1}       {l1} to {l9}    the link-local addresses of those
//   {M1} to {M9}        the same as the log writes them
//   {net} {in}          a network and an address in it           {net1} to {net9}  longer ones
//   {any} {ip} {bits}   the default prefix, the family, and the bits of an address
//   {mac} {linklocal}   the master's own
//
// Commands of the rig: see CHANNEL..., switch-over, standby comes, standby starts, standby goes,
// standby COMMAND, hold, go, forwards IP [VRF], best IP [VRF], allow EXCEPTION [NUMBER], shown
// FUNCTION (of the library, that prints), call FUNCTION [NUMBER|IP|TEXT]... (exported; 0 is a null
// pointer too), many COUNT COMMAND (each with another number for #), each WORD... do
// COMMAND (with every word for *).
//
// A row that fails is printed with what it did, as it would be written here.  With DPM_ROWS=print
// in the environment every row is.
#pragma once

#include "support/shelf.h"

#include <functional>
#include <initializer_list>

namespace rig {

struct Row {
    std::string command;
    const char *effects = nullptr; // null: not compared
};

enum class Role { alone, mirroring, taken_over };

struct Rows {
    Rows(std::initializer_list<Row> list) : all(list) {}
    std::vector<Row> all;
};

struct RowOptions {
    std::vector<unsigned> families = {4, 6};
    std::vector<Role> roles = {Role::alone, Role::mirroring, Role::taken_over};
    // Channels; log/NAME: of these functions.  What is told behind "but" is left out, by first words.
    std::string see = "chip mirror stack notice";
    bool bare = false;                            // without the interfaces
};

inline const std::vector<Role> mirroring = {Role::mirroring}, alone = {Role::alone},
                               with_standby = {Role::mirroring, Role::taken_over};

// Once, for what neither family nor role makes a difference to.
inline RowOptions once(const std::string &see = RowOptions().see, bool bare = false) {
    return {.families = {4}, .roles = alone, .see = see, .bare = bare};
}

// A shelf of one family and role, to which rows are done.
class RowShelf : public Shelf {
public:
    RowShelf(unsigned family, Role role, const RowOptions &options);
    void take(const Row &row, bool print);
    bool act(const std::string &command); // false when it is refused

    std::string expanded(std::string text) const; // with the values of the placeholders
    std::string written(std::string text) const;  // and back
    // An effect of the row that runs: a line of an answer; "; " in it separates effects too.
    void answer(const std::string &line);

private:
    void TestBody() override {}
    void perform(const std::string &command);
    bool perform_verb(const std::string &command);
    void repeat(const Words &words, const std::string &command);
    void each(const std::string &command);
    std::string called(const Words &words) const;
    void see(const std::string &channels);
    std::vector<std::string> wanted(const Row &row) const;
    std::vector<std::string> effects() const;

    unsigned family_;
    Role role_;
    std::vector<std::pair<std::string, std::string>> values_; // of placeholders
    std::vector<Channel> seen_;
    std::string seen_log_; // functions whose lines are seen begin with it
    Words unseen_;         // effects that begin with one of them
    std::vector<std::string> answers_;
};

// A command that a test file adds, by its first word.
struct Verb {
    Verb(const char *word, std::function<void(RowShelf &, const Words &)> act);
};

struct RowTest {
    RowTest(const char *suite, const char *name, const Rows &rows, const char *file, int line,
            RowOptions options);
};

#define ROWS(suite, name, ...)                                                                     \
    extern const rig::Rows suite##_##name;                                                         \
    static const rig::RowTest suite##_##name##_test(#suite, #name, suite##_##name, __FILE__,       \
                                                    __LINE__, rig::RowOptions{__VA_ARGS__});       \
    const rig::Rows suite##_##name

} // namespace rig
