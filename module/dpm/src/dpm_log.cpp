// Log files of the routing suite that keep one old generation.
//
// A file that cannot be had again after it was shifted is tried for at each line; lines are dropped
// meanwhile.  A record without path is closed.
#include "dpm_api.h"
#include "dpm_trace.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t directory_mode = 0750;
constexpr std::size_t old_name_bytes = 256; // of the old generation's path, with its end

// The directories that lead to the path; false: one cannot be made.
bool make_directories(const char *path) {
    char way[PATH_MAX];
    const std::size_t length = strnlen(path, sizeof way);
    if (length == sizeof way)
        return false;
    std::memcpy(way, path, length + 1);
    for (char *at = way; *at != '\0' && (at = std::strchr(at + 1, '/')) != nullptr;) {
        *at = '\0';
        if (mkdir(way, directory_mode) != 0 && errno != EEXIST)
            return false;
        *at = '/';
    }
    return true;
}

FILE *open_to_append(const char *path) {
    return std::fopen(path, "a+");
}

std::uint32_t length_of(FILE *file) {
    (void)std::fseek(file, 0, SEEK_END);
    return std::uint32_t(std::ftell(file));
}

void close_stream(norix_vlog_file *record) {
    if (record->file != nullptr)
        (void)std::fclose(record->file);
    record->file = nullptr;
}

// The file becomes the old generation; one whose old name would be too long is emptied instead.
void put_aside(const char *path) {
    char old_name[old_name_bytes];
    if (std::snprintf(old_name, sizeof old_name, "%s.1", path) >= int(sizeof old_name)) {
        (void)truncate(path, 0);
        return;
    }
    (void)std::remove(old_name);
    (void)std::rename(path, old_name);
}

bool is_open_again(norix_vlog_file *record) {
    if (record->file == nullptr && record->path != nullptr) {
        record->file = open_to_append(record->path);
        record->size = record->file != nullptr ? length_of(record->file) : 0;
    }
    return record->file != nullptr;
}

} // namespace

int norix_vlog_open_file(norix_vlog_file *record, const char *path, std::uint32_t max_size) {
    if (record == nullptr || path == nullptr)
        return dpm::null_parameter();
    (void)norix_vlog_close_file(record);
    if (!make_directories(path))
        return -1;
    FILE *const file = open_to_append(path);
    if (file == nullptr)
        return -1;
    *record = {file, path, record->reserved, max_size, length_of(file)};
    return 0;
}

int norix_vlog_write_file(norix_vlog_file *record, const char *line, std::uint32_t length) {
    if (record == nullptr || line == nullptr)
        return dpm::null_parameter();
    if (!is_open_again(record))
        return 0;
    (void)std::fwrite(line, 1, length, record->file);
    (void)std::fputc('\n', record->file);
    (void)std::fflush(record->file);
    record->size += length; // deliberate: without the line's end
    if (record->size >= record->max_size)
        (void)norix_vlog_shift_files(record);
    return 0;
}

int norix_vlog_shift_files(norix_vlog_file *record) {
    if (record == nullptr)
        return dpm::null_parameter();
    if (record->path == nullptr)
        return 0;
    close_stream(record);
    put_aside(record->path);
    record->file = open_to_append(record->path);
    record->size = 0;
    return 0;
}

int norix_vlog_close_file(norix_vlog_file *record) {
    if (record == nullptr)
        return dpm::null_parameter();
    close_stream(record);
    record->path = nullptr;
    return 0;
}
