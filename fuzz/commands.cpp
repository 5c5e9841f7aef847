// A hostile user: lines of commands, carried out one after the other on a card that has nothing yet.
//
// Whatever they ask for (requests, refusals of the chip, failing allocations, a clock that jumps), the card answers each
// line, gives back blocks once, and still answers at the end.
#include "chassis/chassis.h"
#include "chassis/ctl/server/server.h"
#include "fuzz/input.h"
#include "fuzz/words.h"

#include "dpm.h"
#include "dpm_ipmc_global.h"
#include "dpm_timer.h"

namespace {

constexpr unsigned max_lines = 64;

void execute_lines(ctl::Server &server, std::string_view lines) {
    for (unsigned count = 0; count < max_lines && !lines.empty(); count++) {
        const std::size_t end = std::min(lines.find('\n'), lines.size());
        const fuzz::Block line = fuzz::exact_block(end);
        std::copy_n(lines.data(), end, line.get());
        const ctl::Reply reply = server.execute({reinterpret_cast<const char *>(line.get()), end});
        fuzz::require(reply.status == ctl::Status::ok || !reply.text.empty(),
                      "an error says what it is");
        lines.remove_prefix(std::min(end + 1, lines.size()));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    chassis::Card card({.slot = 9, .mode = chassis::os::Mode::pumped});
    card.os.log_to([](const chassis::os::LogLine &) {}); // formatted, not written
    card.peer.set_role(chassis::peer::Role::master);
    fuzz::require(card.start() == 0, "a card starts");
    chassis::journal::Journal journal;
    journal.watch(card);
    ctl::Server server(card, journal);
    execute_lines(server, fuzz::expand({reinterpret_cast<const char *>(data), size}));
    fuzz::require(server.execute("card role").status == ctl::Status::ok, "the card still answers");
    (void)card.pump();
    fuzz::require(card.os.bad_frees() == 0, "blocks are given back once");
    fuzz::require(card.os.handle_errors() == 0, "handles are good");
    (void)dpm_timer_list_delete(g_ipmc_global.timer_list);
    (void)dpm_timer_list_delete(g_dpm_global.timer_list); // taken from elsewhere than the card
    return 0;
}
