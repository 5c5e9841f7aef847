// The tasks of the routing suite, and how every task was started.

#include "chassis/ctl/server/command.h"

#include <algorithm>

namespace ctl::server {

namespace {

struct Protocol {
    std::string_view name;
    int (*launch)(std::uint32_t *counter);
};

constexpr Protocol protocols[] = {
#define CTL_PROTOCOL(name, port) {#name, norix_##name##_init},
    NORIX_TASKS(CTL_PROTOCOL)
#undef CTL_PROTOCOL
};

} // namespace

Reply suite_start(Command &command) {
    std::uint32_t counter = std::uint32_t(command.line.number("index", 1));
    const auto protocol =
        std::ranges::find(protocols, command.line.value("PROTOCOL"), &Protocol::name);
    // The answers are handles of tasks, or about versions.
    if (protocol != std::end(protocols))
        (void)protocol->launch(&counter);
    else
        (void)norix_imi_cli_init(), (void)norix_protocol_init();
    return done();
}

Reply show_tasks(Command &command) {
    Table table({"task", "priority", "options", "stack", "index", "port", "instance"});
    for (const chassis::os::Task &task : command.card.os.tasks()) {
        const auto *instance = reinterpret_cast<const char *>(std::intptr_t(task.arguments[4]));
        table.row({task.name, std::int64_t(task.priority), std::int64_t(task.options),
                   std::int64_t(task.stack_bytes), std::int64_t(task.arguments[0]),
                   std::int64_t(task.arguments[3]), std::string(instance ? instance : "-")});
    }
    return done(command.line.has("--json") ? table.json() : table.text());
}

} // namespace ctl::server
