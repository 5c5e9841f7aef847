// The entries of the suite's protocol tasks.  A protocol here does nothing and ends at once; how its
// task was asked for is kept with the card's other tasks (os.h).

#include "platform/norix.h"

extern "C" {

#define SUITE_ENTRY(name, port)                                                                    \
    int name##_start() {                                                                           \
        return 0;                                                                                  \
    }
NORIX_TASKS(SUITE_ENTRY)

} // extern "C"
