// Tasks of the host process that the library starts: its own worker and the suite's protocols.
#pragma once

#include "platform/rqzt.h"

#include <cstdint>

namespace dpm {

// What a task is told: its index, its port number and its instance name, which must live for ever.
struct task_arguments {
    std::uint32_t index;
    int port;
    const char *instance;
};

// Starts a task of the library's priority and stack; the platform's answer.
int spawn_task(const char *name, rqzt_task_entry entry, const task_arguments &arguments);

// Tells the platform when the module was built; its answer.
int tell_build_time(std::uint32_t module_id);

} // namespace dpm
