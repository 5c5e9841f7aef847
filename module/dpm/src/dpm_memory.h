// Memory of the library: the platform's allocator, and the owner of a heap block.
//
// Every allocation goes through here, so that the platform can account for it by source place.
#pragma once

#include "platform/bep.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

// Plain wrappers of the platform's calls.  Null when memory runs out.
void *dpm_malloc(std::size_t size_bytes, const char *file = __builtin_FILE(),
                 int line = __builtin_LINE());
void *dpm_calloc(std::size_t count, std::size_t size_bytes, const char *file = __builtin_FILE(),
                 int line = __builtin_LINE());
void *dpm_realloc(void *block, std::size_t size_bytes, const char *file = __builtin_FILE(),
                  int line = __builtin_LINE());
void dpm_free(void *block, const char *file = __builtin_FILE(), int line = __builtin_LINE());

namespace dpm {

// Zeroes a record, and what stands behind it in its block, and gives the block back.
template <class Record>
void free_zeroed(Record *record, std::size_t size_bytes = sizeof(Record),
                 const char *file = __builtin_FILE(), int line = __builtin_LINE()) {
    explicit_bzero(static_cast<void *>(record), size_bytes); // which no optimiser leaves out
    bep_freeEx(record, file, line);
}

// Owner of one zeroed record on the heap.  Empty when memory had run out.  What is not released is
// zeroed and freed.
template <class Record> class block {
public:
    explicit block(const char *file = __builtin_FILE(), int line = __builtin_LINE())
        : record_(static_cast<Record *>(bep_mallocEx(sizeof(Record), file, line))) {
        if (record_ != nullptr)
            std::memset(static_cast<void *>(record_), 0, sizeof(Record));
    }
    ~block() {
        if (record_ != nullptr)
            free_zeroed(record_);
    }
    block(const block &) = delete;
    block &operator=(const block &) = delete;

    explicit operator bool() const { return record_ != nullptr; }
    Record *operator->() const { return record_; }
    Record &operator*() const { return *record_; }
    Record *get() const { return record_; }

    // Hands the record over: to the queue or to a table.
    Record *release() {
        Record *released = record_;
        record_ = nullptr;
        return released;
    }

private:
    Record *record_;
};

} // namespace dpm
