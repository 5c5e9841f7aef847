// The launchers of the routing suite's protocol tasks: one table, one function.
//
// A protocol that is launched again is spawned again, but registered as a module only once; the
// counter counts the modules.
#include "dpm_main_launch.h"

#include "dpm_api.h"
#include "dpm_state.h"
#include "dpm_trace.h"

#include <cstdio>

namespace {

constexpr int task_priority = 55;
constexpr int task_options = 8; // floating-point context is saved
constexpr int task_stack_bytes = 204800;

constexpr int version_built_at = 1;

// The index of the first protocol task; the command line stands before it.
constexpr std::uint32_t first_protocol = 2;
constexpr std::uint32_t command_line = 1;

struct protocol {
    const char *task, *instance, *module;
    rqzt_task_entry entry;
    int port;
    std::uint32_t *module_id;
};

int launch(const protocol &launched, std::uint32_t *counter, const char *function, int line) {
    if (counter == nullptr)
        return dpm::null_parameter(function, line);
    const int spawned =
        dpm::spawn_task(launched.task, launched.entry,
                        {.index = *counter, .port = launched.port, .instance = launched.instance});
    if (*launched.module_id != 0)
        return spawned;
    *launched.module_id = modInitRegister(launched.module, nullptr, nullptr, nullptr);
    const int told = dpm::tell_build_time(*launched.module_id);
    ++*counter;
    return told;
}

} // namespace

namespace dpm {

int spawn_task(const char *name, rqzt_task_entry entry, const task_arguments &arguments) {
    const auto instance = int(reinterpret_cast<std::intptr_t>(arguments.instance));
    return rqzt_task_spawn(name, task_priority, task_options, task_stack_bytes, entry,
                           int(arguments.index), 0, 0, arguments.port, instance, 0, 0, 0, 0, 0);
}

int tell_build_time(std::uint32_t module_id) {
    char built_at[21];
    std::snprintf(built_at, sizeof built_at, "%s %s", __DATE__, __TIME__);
    return setModVersion(module_id, version_built_at, built_at);
}

} // namespace dpm

#define DPM_ROW(name, port)                                                                        \
    DPM_STATE std::uint32_t g_##name##_mod_id;                                                     \
    int norix_##name##_init(std::uint32_t *counter) {                                              \
        static constexpr protocol own{"tNorix_" #name, #name "_norix", "norix_" #name,             \
                                      name##_start,    port,           &g_##name##_mod_id};        \
        return launch(own, counter, __func__, __LINE__);                                           \
    }
NORIX_TASKS(DPM_ROW)
#undef DPM_ROW

int norix_protocol_init() {
    std::uint32_t counter = first_protocol;
#define DPM_ROW(name, port) (void)norix_##name##_init(&counter);
    NORIX_PROTOCOLS(DPM_ROW)
#undef DPM_ROW
    return 0;
}

int norix_imi_cli_init() {
    std::uint32_t counter = command_line;
    return norix_imi_init(&counter);
}
