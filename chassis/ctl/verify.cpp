// verify: are the standby's tables the master's, and does the master's chip hold what its tables
// say?
//
// Each card answers with a digest of every mirrored table, taken when its queue is empty.  What the
// master has mirrored may still be on its way, so cards that differ are asked again for a while
// before it counts as a difference; then the records' own digests tell which differ.

#include "chassis/ctl/client.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <sstream>
#include <thread>

namespace ctl {

namespace {

constexpr unsigned tries = 30;
constexpr std::chrono::milliseconds between_tries{100};

// "TABLE COUNT DIGEST" lines, by table.
std::map<std::string, std::string> by_table(const std::string &digests) {
    std::map<std::string, std::string> tables;
    std::istringstream lines(digests);
    for (std::string table, rest; lines >> table && std::getline(lines, rest);)
        tables[table] = rest;
    return tables;
}

// "DIGEST KEY" lines, by key.
std::map<std::string, std::string> by_key(const std::string &records) {
    std::map<std::string, std::string> digests;
    std::istringstream lines(records);
    for (std::string digest, key; lines >> digest && std::getline(lines >> std::ws, key);)
        digests[key] = digest;
    return digests;
}

std::string ask_text(Shelf &shelf, unsigned slot, const std::string &line) {
    const auto reply = shelf.ask(slot, line);
    return reply && reply->status == Status::ok ? reply->text : "";
}

bool no_answer(Shelf &shelf, unsigned slot) {
    const std::string &trouble = shelf.trouble(slot);
    std::fprintf(stderr, "verify: the card in slot %u %s\n", slot,
                 trouble.empty() ? "gives no digest" : printable(trouble).c_str());
    return false;
}

void print_differences(Shelf &shelf, unsigned master, unsigned standby, const std::string &table) {
    const auto here = by_key(ask_text(shelf, master, "digest " + table));
    const auto there = by_key(ask_text(shelf, standby, "digest " + table));
    const auto print = [&](const std::string &key, const std::string &what) {
        std::fprintf(stderr, "verify: %s: %s: %s\n", table.c_str(), printable(key).c_str(),
                     what.c_str());
    };
    for (const auto &[key, digest] : here) {
        const auto found = there.find(key);
        if (found == there.end())
            print(key, "on slot " + std::to_string(master) + " only");
        else if (found->second != digest)
            print(key, "the records differ");
    }
    for (const auto &[key, digest] : there)
        if (!here.contains(key))
            print(key, "on slot " + std::to_string(standby) + " only");
}

bool compare_cards(Shelf &shelf, unsigned master, unsigned standby) {
    std::string here, there;
    for (unsigned i = 0; i < tries; i++) {
        if (i > 0)
            std::this_thread::sleep_for(between_tries);
        here = ask_text(shelf, master, "digest");
        there = ask_text(shelf, standby, "digest");
        if (here.empty() || there.empty() || here == there)
            break;
    }
    if (here.empty() || there.empty())
        return no_answer(shelf, here.empty() ? master : standby);
    const auto mine = by_table(here), other = by_table(there);
    std::string summary;
    bool equal = true;
    for (const auto &[table, digest] : mine) {
        summary += (summary.empty() ? " " : ", ") + table + digest.substr(0, digest.rfind(' '));
        if (const auto found = other.find(table); found != other.end() && found->second == digest)
            continue;
        std::fprintf(stderr, "verify: %s differs between slot %u and slot %u\n", table.c_str(),
                     master, standby);
        print_differences(shelf, master, standby, table);
        equal = false;
    }
    if (equal)
        std::printf("slot %u and slot %u agree:%s\n", master, standby, summary.c_str());
    return equal;
}

bool check_chip(Shelf &shelf, unsigned master) {
    const auto reply = shelf.ask(master, "chip check");
    if (reply && reply->status == Status::ok)
        return std::printf("slot %u: %s", master, reply->text.c_str()) > 0;
    std::istringstream lines(reply ? reply->text : "the card does not answer");
    for (std::string line; std::getline(lines, line);)
        std::fprintf(stderr, "verify: slot %u: %s\n", master, printable(line).c_str());
    return false;
}

} // namespace

bool verify_shelf(Shelf &shelf) {
    const std::vector<Seen> cards = shelf.look();
    const auto master = std::ranges::find(cards, "master", &Seen::role);
    bool good = true;
    for (const Seen &card : cards)
        if (card.role.empty())
            good = no_answer(shelf, card.slot);
    if (master == cards.end()) {
        std::fprintf(stderr, "verify: no card is master in %s\n", shelf.directory().c_str());
        return false;
    }
    if (cards.size() == 1)
        std::printf("slot %u is alone: no other card to compare with\n", master->slot);
    for (const Seen &card : cards)
        if (card.slot != master->slot && !card.role.empty())
            good = compare_cards(shelf, master->slot, card.slot) && good;
    return check_chip(shelf, master->slot) && good;
}

} // namespace ctl
