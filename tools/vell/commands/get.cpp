// The download runs on the main thread; the screen's thread reads the counters.

#include "commands/get.h"

#include <fcntl.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "commands/part_file.h"
#include "offload/file_digests.h"
#include "ui/byte_size.h"
#include "ui/error_text.h"
#include "ui/file_names.h"
#include "ui/interrupt.h"
#include "ui/problem_text.h"
#include "ui/screen.h"
#include "ui/translation.h"
#include "vellcore/http_client.h"

namespace tool {
namespace {

constexpr int k_repeats = 5;  // after a cut, each time that not much came in between
constexpr uint64_t k_much_bytes = uint64_t{64} << 20;
constexpr auto k_first_pause = std::chrono::milliseconds(500);
constexpr auto k_look_up = std::chrono::milliseconds(50);

Screen::Style style_of(const GetOptions& options) {
    if (options.is_json) return Screen::Style::repeated;
    return options.is_quiet ? Screen::Style::none : Screen::style_for_terminal();
}

DigestSet wanted_kinds(const Digests& digests) {
    DigestSet kinds;
    for (const DigestKind kind : k_digest_kinds) {
        if (!digest_of(digests, kind).empty()) kinds.add(kind);
    }
    return kinds;
}

/// For messages: without the name and password that may stand before the host.
std::string shown_url(const std::string& url) {
    const size_t host = url.find("://");
    const size_t end = host == std::string::npos ? 0 : std::min(url.find_first_of("/?#", host + 3), url.size());
    const size_t at = end > 0 ? url.rfind('@', end - 1) : std::string::npos;
    return printable_name(at == std::string::npos ? url : url.substr(0, host + 3) + url.substr(at + 1));
}

class Get {
public:
    explicit Get(const GetOptions& options)
        : options_(options),
          part_(options.path, options.url),
          start_(std::chrono::steady_clock::now()),
          screen_(style_of(options), [this] { return picture(); }) {}

    int run();

private:
    // What the download tells. False ends it; `failure_` says why unless it was a signal.
    bool begin(vl_http_transfer& transfer);
    bool take(const void* data, size_t bytes);

    [[nodiscard]] vl_http_transfer transfer_from_part();
    void download();
    void pause(int repeats) const;
    void check_digests();
    void keep();
    int finish(const Failure& end);

    [[nodiscard]] double seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }
    [[nodiscard]] std::vector<std::string> picture();
    void note(const std::string& text);
    [[nodiscard]] Failure failure_of(int error) const;

    const GetOptions& options_;
    PartFile part_;
    const std::chrono::steady_clock::time_point start_;
    Failure failure_{k_exit_done, ""};
    Digests digests_;

    // Written by the main thread.
    std::atomic<uint64_t> bytes_done_{0};
    std::atomic<uint64_t> bytes_wanted_{vl_http_transfer::k_unknown_size};
    std::atomic<uint64_t> bytes_before_{0};  // of an earlier call; they do not count for the rate
    std::atomic<bool> is_checking_{false};
    Screen screen_;
};

Failure Get::failure_of(int error) const {
    const bool is_full = error == ENOSPC || error == EDQUOT;
    return {is_full ? k_exit_get_no_space : k_exit_other, printable_name(part_.path()) + ": " + error_text(error)};
}

std::vector<std::string> Get::picture() {
    const uint64_t done = bytes_done_, wanted = bytes_wanted_, before = bytes_before_;
    if (options_.is_json) {
        std::string line = R"({"event":"progress","bytes_done":)" + std::to_string(done);
        if (wanted != vl_http_transfer::k_unknown_size) line += ",\"bytes_wanted\":" + std::to_string(wanted);
        return {line + (is_checking_ ? R"(,"step":"check"})" : R"(,"step":"download"})")};
    }
    const size_t columns = Screen::columns();
    std::string line =
        wanted == vl_http_transfer::k_unknown_size
            ? format_byte_size(done)
            : bar_text(done - std::min(done, before), wanted - std::min(wanted, before), seconds(), columns);
    if (is_checking_) line = std::string(tr("progress", "checking")) + "  " + format_byte_size(done);
    line += "  ";
    if (line.size() >= columns) return {line};
    return {line + fitted(printable_name(options_.path), columns - line.size())};
}

void Get::note(const std::string& text) {
    if (options_.is_json) {
        screen_.print(stdout, R"({"event":"note","text":)" + json_string(text) + "}");
    } else if (!options_.is_quiet) {
        screen_.print(stderr, "vell: " + text);
    }
}

bool Get::begin(vl_http_transfer& transfer) {
    const uint64_t there = part_.bytes();
    if (transfer.offset == 0) {
        if (there > 0) note(tr("problem", "what was there cannot be gone on with; the download begins anew"));
        const int error = part_.begin_anew({transfer.size, transfer.version});
        if (error != 0) {
            failure_ = failure_of(error);
            return false;
        }
    }
    bytes_done_ = bytes_before_ = transfer.offset;
    bytes_wanted_ = transfer.size;
    const uint64_t missing = transfer.size - transfer.offset, free = part_.free_bytes();
    if (transfer.size == vl_http_transfer::k_unknown_size || missing <= free) return true;
    failure_ = {k_exit_get_no_space, printable_name(options_.path) + ": " +
                                         formatted(tr("problem", "%s are needed on this volume, %s are free"),
                                                   format_byte_size(missing).c_str(), format_byte_size(free).c_str())};
    return false;
}

bool Get::take(const void* data, size_t bytes) {
    const int error = part_.add(data, bytes);
    if (error != 0) failure_ = failure_of(error);
    bytes_done_ += bytes;
    return error == 0;
}

/// A transfer that goes on where the part ends.
vl_http_transfer Get::transfer_from_part() {
    vl_http_transfer transfer;
    transfer.url = options_.url.c_str();
    transfer.timeout = options_.timeout_seconds;
    transfer.context = this;
    transfer.begin = [](vl_http_transfer& now) { return static_cast<Get*>(now.context)->begin(now); };
    transfer.data = [](vl_http_transfer& now, const void* data, size_t bytes) {
        return static_cast<Get*>(now.context)->take(data, bytes);
    };
    transfer.wait = [](vl_http_transfer&) { return !is_interrupted(); };
    const std::string& version = part_.origin().version;
    if (!version.empty() && version.size() < sizeof transfer.version) {
        transfer.offset = part_.bytes();
        transfer.size = part_.origin().size;
        std::memcpy(transfer.version, version.c_str(), version.size() + 1);
    }
    return transfer;
}

void Get::pause(int repeats) const {
    const auto end = std::chrono::steady_clock::now() + k_first_pause * (1 << repeats);
    while (!is_interrupted() && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(k_look_up);
}

/// Until everything is there; throws Failure when it cannot be had.
void Get::download() {
    bool was_cut = false;
    for (int repeats = 0;;) {
        vl_http_transfer transfer = transfer_from_part();
        const uint64_t before = transfer.offset;
        const int32_t result = vl_http_download(transfer);
        const int error = part_.flush(/*sync*/ true);
        if (error != 0 && failure_.code == k_exit_done) failure_ = failure_of(error);
        if (failure_.code != k_exit_done) throw Failure(failure_);
        if (result == VL_HTTP_DONE) return;
        if (is_interrupted()) throw Failure{k_exit_get_interrupted, ""};
        was_cut |= result == VL_HTTP_CUT;
        if (part_.bytes() > before + k_much_bytes) repeats = 0;
        if (result == VL_HTTP_REFUSED) {
            throw Failure{k_exit_other,
                          shown_url(options_.url) + ": " +
                              formatted(tr("problem", "the server answers with status %d"), transfer.status)};
        }
        // The reason is the transport's, which knows no language but English.
        const std::string problem =
            shown_url(options_.url) + ": " + formatted(tr("problem", "the download failed: %s"), transfer.error_text);
        if (!was_cut || repeats == k_repeats) throw Failure{k_exit_other, problem};
        note(problem + "; " + tr("problem", "trying again"));
        pause(repeats++);
    }
}

/// Reads back from the disk what was written.
void Get::check_digests() {
    const DigestSet kinds = wanted_kinds(options_.digests);
    if (kinds.is_empty()) return;
    bytes_done_ = 0;
    is_checking_ = true;
    const FileDigests found = digests_of_file(AT_FDCWD, part_.path(), kinds, /*follows_link*/ false, interrupt_flag(),
                                              [this](uint64_t bytes) { bytes_done_ += bytes; });
    if (is_interrupted()) throw Failure{k_exit_get_interrupted, ""};
    if (found.problem) throw Failure{k_exit_other, printable_name(part_.path()) + ": " + problem_text(found.problem)};
    digests_ = found.digests;
    for (const DigestKind kind : kinds.kinds()) {
        if (digest_of(digests_, kind) == digest_of(options_.digests, kind)) continue;
        part_.distrust();
        throw Failure{k_exit_get_mismatch,
                      printable_name(part_.path()) + ": " +
                          formatted(tr("problem", "%s is %s instead of %s"), names_of(kind).tag,
                                    digest_of(digests_, kind).c_str(), digest_of(options_.digests, kind).c_str())};
    }
}

void Get::keep() {
    const int error = part_.keep(options_.overwrites);
    if (error != 0) throw Failure{k_exit_other, printable_name(options_.path) + ": " + error_text(error)};
}

int Get::finish(const Failure& end) {
    screen_.stop();
    const uint64_t bytes = part_.bytes();
    const double time = seconds();
    if (end.code != k_exit_done && bytes == 0) part_.remove();
    if (options_.is_json) {
        std::string line =
            R"({"event":"end","exit_code":)" + std::to_string(end.code) + ",\"bytes\":" + std::to_string(bytes);
        for (const DigestKind kind : wanted_kinds(digests_).kinds())
            line += std::string(",\"") + names_of(kind).option + "\":\"" + digest_of(digests_, kind) + "\"";
        if (!end.message.empty()) line += ",\"error\":" + json_string(end.message);
        screen_.print(stdout, line + "}");
    } else if (end.code == k_exit_get_interrupted) {
        screen_.print(stderr, std::string("vell: ") + tr("report", "interrupted; the same command goes on from here"));
    } else if (end.code != k_exit_done) {
        screen_.print(stderr, "vell: " + end.message);
    } else if (!options_.is_quiet) {
        constexpr double k_megabyte = 1e6;
        const double rate = static_cast<double>(bytes - bytes_before_) / std::max(time, 1e-3) / k_megabyte;
        screen_.print(stdout, printable_name(options_.path) + ": " +
                                  formatted(tr("report", "%s in %.1f s, %.1f MB/s"), format_byte_size(bytes).c_str(),
                                            time, rate));
    }
    return end.code == k_exit_done && !has_printed_all() ? k_exit_other : end.code;
}

int Get::run() {
    screen_.start();
    try {
        download();
        check_digests();
        keep();
    } catch (const Failure& failure) {
        return finish(failure);
    }
    return finish({k_exit_done, ""});
}

}  // namespace

int get(const GetOptions& options) {
    catch_interrupts();
    struct stat facts {};
    const bool is_there = disk_calls.facts(AT_FDCWD, options.path.c_str(), &facts) == 0;
    if (options.path.empty() || options.path == "-" || options.path.back() == '/' ||
        (is_there && S_ISDIR(facts.st_mode)))
        throw Failure{k_exit_command_line, "'" + printable_name(options.path) +
                                               "': " + tr("problem", "the download needs the name of a file")};
    if (is_there && !options.overwrites)
        throw Failure{k_exit_command_line,
                      printable_name(options.path) + ": " + tr("problem", "is there already; --overwrite replaces it")};
    return Get(options).run();
}

}  // namespace tool
