// One source to up to sixteen destinations: what is checked before, and the result codes.

#include <cstring>

#include "files/copy_engine.h"
#include "files/path_checks.h"
#include "vellcore/file_operations.h"
#include "vellcore/message_log.h"

namespace vell {
namespace {

// The reason in file_operations.h's table.
constexpr int k_copied = 0;
constexpr int k_no_source_open = -1;
constexpr int k_not_created = -2;
constexpr int k_not_read = -3;
constexpr int k_bad_path = -4;
constexpr int k_no_folder = -5;
constexpr int k_no_source = -6;
constexpr int k_exists = -7;
constexpr int k_not_written = -8;
constexpr int k_same_file = -9;
constexpr int k_bad_writer_list = -12;
constexpr int k_too_many = -13;

size_t count_destinations(const char* const* destinations) noexcept {
    size_t count = 0;
    while (destinations != nullptr && destinations[count] != nullptr && *destinations[count] != '\0')
        ++count;
    return count;
}

size_t count_writers(fWriteBuffer* const* writers) noexcept {
    size_t count = 0;
    while (writers[count] != nullptr)
        ++count;
    return count;
}

int report_existing(bool log) noexcept {
    if (log) msgerror("File Copy: destination file already exists!");
    return k_exists;
}

int check_destination(const char* source, const char* destination, bool overwrite, bool log) noexcept {
    if (strcmp(source, destination) == 0) {
        if (log) msgerror("File Copy: source and destination are the same!");
        return k_same_file;
    }
    if (end_of_folder(destination) == nullptr) return k_bad_path;
    if (!ensure_folder_of(destination)) return k_no_folder;
    return !overwrite && file_exists(destination) ? report_existing(log) : k_copied;
}

int report(const CopyJob& job, const CopyResult& result, bool log) noexcept {
    switch (result.fault) {
        case CopyFault::none:
            return k_copied;
        case CopyFault::write:
            return k_not_written;
        case CopyFault::source_open:
            if (log) msgerror("File Copy: failed to open '%s'\n", job.source);
            return k_no_source_open;
        case CopyFault::source_read:
            if (log) msgerror("File Copy: failed to read '%s'\n", job.source);
            return k_not_read;
        case CopyFault::destination_exists:  // it has appeared since the check
            return report_existing(log);
        case CopyFault::destination_open:
            break;
    }
    if (log) msgerror("File Copy: failed to create '%s'\n", job.destinations[result.destination]);
    return k_not_created;
}

}  // namespace
}  // namespace vell

int32_t file_copy(const char* source, const char** destinations, bool overwrite, unsigned long long& bytes_copied,
                  fReadBuffer* reader, fWriteBuffer** writers, file_copy_callback callback, void* context,
                  bool log) noexcept {
    if (source == nullptr) {
        msgerror("File Copy: no source file specified!");
        return vell::k_no_source;
    }
    const size_t count = vell::count_destinations(destinations);
    if (writers != nullptr && count >= 2 && vell::count_writers(writers) != count) return vell::k_bad_writer_list;
    if (count > vell::k_most_destinations) return vell::k_too_many;
    if (count == 0) return vell::k_bad_path;
    for (size_t i = 0; i < count; ++i) {
        const int problem = vell::check_destination(source, destinations[i], overwrite, log);
        if (problem != vell::k_copied) return problem;
    }
    vell::CopyTools tools(reader, nullptr);
    for (size_t i = 0; writers != nullptr && i < count; ++i)
        tools.use_writer(i, writers[i]);
    const vell::CopyJob job{.source = source,
                            .destinations = destinations,
                            .destination_count = count,
                            .on_block = callback,
                            .context = context,
                            .bytes_copied = &bytes_copied,
                            .overwrites = overwrite};
    return vell::report(job, vell::run_copy(job, tools), log);
}

int32_t file_copy(const char* source, const char* destination, bool overwrite, unsigned long long& bytes_copied,
                  fReadBuffer* reader, fWriteBuffer* writer, file_copy_callback callback, void* context,
                  bool log) noexcept {
    const char* destinations[] = {destination, nullptr};
    fWriteBuffer* writers[] = {writer, nullptr};
    return file_copy(source, destinations, overwrite, bytes_copied, reader, writers, callback, context, log);
}
