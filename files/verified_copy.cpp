// Copies with digests, over the copy engine. The last failure's text is one for the process, under `last_text_lock`.

#include "vellcore/verified_copy.h"

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "files/copy_engine.h"
#include "files/path_checks.h"
#include "platform/fork_handlers.h"
#include "platform/lock.h"
#include "platform/posix/durable_file.h"
#include "vellcore/message_log.h"

namespace vell {
namespace {

constexpr int k_done = 0;
constexpr int k_same_path = -1;
constexpr int k_not_opened = -2;
constexpr int k_not_read = -3;
constexpr int k_not_written = -4;
constexpr int k_bad_path = -5;
constexpr int k_no_folder = -6;
constexpr int k_mismatch = -7;

constexpr unsigned k_with_digest = 1;
constexpr unsigned k_with_read_back = 2;

constexpr size_t k_text_bytes = 512;

Mutex last_text_lock;
const ForkEntry fork_entry(ForkOrder::copy_text, last_text_lock);
char last_text[k_text_bytes] VELL_GUARDED_BY(last_text_lock);

/// Keeps the text of a failure and returns its code.
[[gnu::format(printf, 2, 3)]] int fail(int code, const char* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    const ScopedLock lock(last_text_lock);
    std::vsnprintf(last_text, sizeof last_text, format, arguments);
    va_end(arguments);
    return code;
}

void take_into_digest(const void* data, unsigned long long length, void* state) noexcept {
    vl_md5_append(static_cast<md5_state_s*>(state), static_cast<const unsigned char*>(data), static_cast<int>(length));
}

/// A digest that is being computed by an engine's callback.
struct Digest {
    Digest() noexcept { vl_md5_init(&state); }
    void finish() noexcept {
        unsigned char bytes[16];
        vl_md5_finish(&state, bytes);
    }
    md5_state_s state;
};

bool is_same_digest(const md5_state_s& a, const md5_state_s& b) noexcept {
    return std::equal(std::begin(a.abcd), std::end(a.abcd), b.abcd);
}

/// The folders above a file that do not exist yet. `path` has passed end_of_folder.
int count_missing_folders(const char* path) noexcept {
    char folder[k_folder_bytes];
    const auto length = static_cast<size_t>(end_of_folder(path) - path);
    memcpy(folder, path, length);
    folder[length] = '\0';
    int missing = 0;
    while (*folder != '\0' && !is_folder(folder)) {
        ++missing;
        char* slash = strrchr(folder, '/');
        while (slash != nullptr && slash > folder && slash[-1] == '/')
            --slash;
        *(slash != nullptr ? slash : folder) = '\0';
    }
    return missing;
}

/// Flushes the names of a file and of the `made_folders` nearest folders above it.
bool flush_names(const char* path, int made_folders) noexcept {
    char folder[PATH_MAX];  // a link may lead elsewhere
    if (realpath(path, folder) == nullptr) return false;
    for (int i = 0; i <= made_folders; ++i) {
        char* slash = strrchr(folder, '/');
        const bool is_root = slash == folder;
        slash[is_root ? 1 : 0] = '\0';
        if (sync_folder(folder) != 0) return false;
        if (is_root) break;
    }
    return true;
}

int report(const CopyResult& result, const char* source, unsigned long long bytes_copied) noexcept {
    switch (result.fault) {
        case CopyFault::none:
            return k_done;
        case CopyFault::source_open:
        case CopyFault::destination_exists:
        case CopyFault::destination_open:  // Kept: the text names the source.
            return fail(k_not_opened, "File Copy: failed to open '%s'\n", source);
        case CopyFault::source_read:
            return fail(k_not_read, "File Copy: failed to read '%s'\n", source);
        case CopyFault::write:
            break;
    }
    return fail(k_not_written, "File Copy: write error of %s between %llu and %llu \n", source, bytes_copied,
                bytes_copied + result.last_block);
}

}  // namespace
}  // namespace vell

int32_t file_copy_secure(const char* source, const char* destination, bool, unsigned long long& bytes_copied,
                         md5_state_s& md5, unsigned int flags, fReadBuffer* reader, fWriteBuffer* writer) noexcept {
    using namespace vell;
    if (source == nullptr) return fail(k_not_opened, "File Copy: failed to open '%s'\n", "");
    if (destination == nullptr) return fail(k_bad_path, "File Copy: pathname %s is not allowed", "");
    if (strcmp(source, destination) == 0) return fail(k_same_path, "File Copy: source and destination are the same!");
    if (end_of_folder(destination) == nullptr)
        return fail(k_bad_path, "File Copy: pathname %s is not allowed", destination);
    const int made_folders = count_missing_folders(destination);
    if (!ensure_folder_of(destination)) return k_no_folder;

    Digest digest;
    const bool has_digest = (flags & k_with_digest) != 0;
    CopyTools tools(reader, writer);
    const CopyJob job{.source = source,
                      .destinations = &destination,
                      .destination_count = 1,
                      .on_block = has_digest ? take_into_digest : nullptr,
                      .context = &digest.state,
                      .bytes_copied = &bytes_copied,
                      .is_flushed = true};
    CopyResult copied = run_copy(job, tools);
    if (copied.fault == CopyFault::none && !flush_names(destination, made_folders)) copied.fault = CopyFault::write;
    const int result = report(copied, source, bytes_copied);
    if (result != k_done) return result;
    if (has_digest) {
        digest.finish();
        md5 = digest.state;
    }
    if ((flags & k_with_read_back) == 0) return k_done;

    md5_state_s read_back;
    const int difference = file_read_secure(destination, read_back, nullptr, &md5);
    if (difference == k_done) return k_done;
    return fail(difference, "File Copy: hash values of '%s' and '%s' do not match\n", source, destination);
}

int32_t file_read_secure(const char* path, md5_state_s& md5, fReadBuffer* reader,
                         const md5_state_s* expected) noexcept {
    using namespace vell;
    if (path == nullptr) return fail(k_not_opened, "File Copy: failed to open '%s'\n", "");
    Digest digest;
    unsigned long long bytes_read = 0;
    CopyTools tools(reader, nullptr);
    const CopyJob job{.source = path,
                      .destinations = nullptr,
                      .destination_count = 0,
                      .on_block = take_into_digest,
                      .context = &digest.state,
                      .bytes_copied = &bytes_read};
    switch (run_copy(job, tools).fault) {
        case CopyFault::none:
            break;
        case CopyFault::source_open:
            return fail(k_not_opened, "File Copy: failed to open '%s'\n", path);
        default:
            return fail(k_not_read, "File Copy: unable to read '%s'\n", path);
    }
    digest.finish();
    const bool is_expected = expected == nullptr || is_same_digest(digest.state, *expected);
    md5 = digest.state;
    return is_expected ? k_done : k_mismatch;
}

const char* get_error_file_copy_secure(int32_t code, bool log) noexcept {
    thread_local char answer[vell::k_text_bytes];
    const bool is_failure = code >= vell::k_mismatch && code <= vell::k_same_path;
    {
        const vell::ScopedLock lock(vell::last_text_lock);
        if (!is_failure) vell::last_text[0] = '\0';
        memcpy(answer, vell::last_text, sizeof answer);
    }
    if (is_failure && log) msgerror("%s", answer);
    return answer;
}
