// Memory wrappers: the platform's allocator with the caller's source place, by which it accounts.
#include "dpm_memory.h"

void *dpm_malloc(std::size_t size_bytes, const char *file, int line) {
    return bep_mallocEx(size_bytes, file, line);
}

void *dpm_calloc(std::size_t count, std::size_t size_bytes, const char *file, int line) {
    return bep_callocEx(count, size_bytes, file, line);
}

void *dpm_realloc(void *block, std::size_t size_bytes, const char *file, int line) {
    return bep_reallocEx(block, size_bytes, file, line);
}

void dpm_free(void *block, const char *file, int line) {
    bep_freeEx(block, file, line);
}
