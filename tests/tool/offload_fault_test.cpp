// Disks that fail: every call is refused once, data is damaged between writing and reading back, and the process dies
// at any call. The engine runs in this process, on a table of calls that the test bends.

#include <fcntl.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <functional>

#include "commands/offload.h"
#include "offload/disk_calls.h"
#include "offload_card.h"
#include "ui/failure.h"
#include "ui/interrupt.h"

namespace {

using namespace tool;

/// Which call fails next, of those that are bent.
std::atomic<int> calls_until_fault{0};
std::atomic<int> calls_made{0};
int fault_error = 0;   // 0: the process dies instead
std::string only_for;  // a part of the path that the descriptor must have; empty: any

std::string path_behind(int descriptor) {
    char path[4096];
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const ssize_t length = readlink(link.c_str(), path, sizeof path);
    return {path, length > 0 ? static_cast<size_t>(length) : 0};
}

bool is_refused(int descriptor) {
    if (!only_for.empty() && path_behind(descriptor).find(only_for) == std::string::npos) return false;
    ++calls_made;
    if (--calls_until_fault != 0) return false;
    if (fault_error == 0) kill(getpid(), SIGKILL);
    errno = fault_error;
    return true;
}

// One bent version of each entry.
template <auto Entry>
struct Bent;
template <typename Result, typename... Rest, Result (*DiskCalls::*Entry)(int, Rest...)>
struct Bent<Entry> {
    static Result call(int descriptor, Rest... rest) {
        return is_refused(descriptor) ? Result{-1} : (system_disk_calls.*Entry)(descriptor, rest...);
    }
};
template <auto Entry>
void bend() {
    disk_calls.*Entry = Bent<Entry>::call;
}

struct BentCall {
    const char* name;
    void (*bend)();
    bool is_always_told;  ///< not so of times, permissions, space, and what is asked again later
};
constexpr BentCall k_calls[] = {{"open", bend<&DiskCalls::open>, false},
                                {"read", bend<&DiskCalls::read>, true},
                                {"write", bend<&DiskCalls::write>, true},
                                {"append", bend<&DiskCalls::append>, true},
                                {"reserve", bend<&DiskCalls::reserve>, false},
                                {"cut", bend<&DiskCalls::cut>, true},
                                {"sync_data", bend<&DiskCalls::sync_data>, true},
                                {"sync", bend<&DiskCalls::sync>, true},
                                {"set_times", bend<&DiskCalls::set_times>, false},
                                {"set_mode", bend<&DiskCalls::set_mode>, false},
                                {"facts", bend<&DiskCalls::facts>, false},
                                {"file_facts", bend<&DiskCalls::file_facts>, false},
                                {"rename", bend<&DiskCalls::rename>, true},
                                {"remove", bend<&DiskCalls::remove>, false},
                                {"make_folder", bend<&DiskCalls::make_folder>, false},
                                {"space", bend<&DiskCalls::space>, false}};

void PrintTo(const BentCall& call, std::ostream* stream) {
    *stream << call.name;
}

class OffloadFault : public testing::Test {
protected:
    void SetUp() override {
        // The whole card would make thousands of calls; this clip is the smallest that goes in blocks.
        folder.write("card/clip", card::noise((size_t{2} << 20) + 5, 1));
        folder.write("card/sub/a", card::noise(5000, 2));
        folder.write("card/sub/b", "");
        whole = card::contents(folder / "card");
    }
    void TearDown() override {
        disk_calls = system_disk_calls;
        only_for.clear();
        set_interrupted(false);
    }
    int run(const std::vector<std::string>& names, const std::function<void(OffloadOptions&)>& change = nullptr) {
        OffloadCommand command;
        OffloadOptions& options = command.options;
        options.source = folder / "card";
        for (const std::string& name : names)
            options.destinations.push_back(folder / name);
        command.is_quiet = true;
        if (change) change(options);
        testing::internal::CaptureStderr();
        int code = -1;
        try {
            code = offload(command);
        } catch (const Failure& failure) {
            code = failure.code;
            errors = failure.message;
        }
        errors += testing::internal::GetCapturedStderr();
        return code;
    }
    void expect_whole(const std::string& name) {
        EXPECT_TRUE(card::contents(folder / name) == whole) << name << errors;
    }
    /// What is there under a final name is whole; unfinished copies may be there only where that is said.
    void expect_nothing_unfinished(const std::string& name, bool may_have_leftovers = false) {
        for (const auto& [path, content] : card::contents(folder / name)) {
            const bool is_leftover = path.find(".vell-") != std::string::npos;
            if (is_leftover) {
                EXPECT_TRUE(may_have_leftovers) << name << " " << path;
            } else {
                EXPECT_TRUE(whole.contains(path) && whole.at(path) == content) << name << " " << path;
            }
        }
    }
    void forget(const std::string& name) { std::filesystem::remove_all(folder / name); }
    int count_calls(const BentCall& call) {
        call.bend();
        calls_made = 0;
        calls_until_fault = -1;
        EXPECT_EQ(run({"count", "count2"}), 0) << errors;
        disk_calls = system_disk_calls;
        forget("count");
        forget("count2");
        return calls_made;
    }

    const TemporaryFolder folder;
    std::map<std::string, std::string> whole;
    std::string errors;
};

class OffloadCall : public OffloadFault, public testing::WithParamInterface<BentCall> {};

// The n-th call fails, now with an error of one file's, now with one of the whole disk's. Nothing unfinished stands
// under a final name, what was not done is told, and the next run finishes the job.
TEST_P(OffloadCall, MayFail) {
    const BentCall& call = GetParam();
    const int calls = count_calls(call);
    EXPECT_TRUE(calls > 0 || !call.is_always_told);
    // The first and the last of many, and some between.
    const int step = std::max(1, calls / 5);
    for (int n = 1; n <= calls && !HasFailure(); n += n < 3 || n + 3 > calls ? 1 : step) {
        call.bend();
        fault_error = n % 2 == 0 ? EACCES : EIO;
        calls_until_fault = n;
        SCOPED_TRACE(std::to_string(n) + " " + strerror(fault_error));
        const int code = run({"a", "b"});
        disk_calls = system_disk_calls;
        // Copies are finished in batches, so a run may make fewer calls than the one that was counted.
        const bool has_failed = calls_until_fault <= 0;
        EXPECT_TRUE(code != 0 || !has_failed || !call.is_always_told) << errors;
        for (const std::string name : {"a", "b"}) {
            if (code == 0) expect_whole(name);
            expect_nothing_unfinished(name, /*may_have_leftovers*/ std::string(call.name) == "remove");
        }
        EXPECT_EQ(run({"a", "b"}), 0) << errors;
        for (const std::string name : {"a", "b"}) {
            expect_whole(name);
            forget(name);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Every, OffloadCall, testing::ValuesIn(k_calls),
                         [](const auto& information) { return std::string(information.param.name); });

TEST_F(OffloadFault, AFailingDestinationIsDroppedAndTheOthersGoOn) {
    for (const auto& [error, code] : {std::pair{ENOSPC, 5}, {EROFS, 1}, {EIO, 1}, {ENODEV, 1}}) {
        fault_error = error;
        only_for = "/b/";
        bend<&DiskCalls::write>();
        calls_until_fault = 2;
        EXPECT_EQ(run({"a", "b", "c"}), code) << errors;
        disk_calls = system_disk_calls;
        EXPECT_NE(errors.find("/b: "), std::string::npos) << errors;
        EXPECT_NE(errors.find(strerror(error)), std::string::npos) << errors;
        expect_whole("a");
        expect_whole("c");
        expect_nothing_unfinished("b");
        EXPECT_EQ(run({"a", "b", "c"}), 0) << errors;
        expect_whole("b");
        for (const char* name : {"a", "b", "c"})
            forget(name);
    }
}

TEST_F(OffloadFault, WhatWasThereBeforeIsProvenOnTheDiskToo) {
    folder.write("a/clip", whole.at("clip"));
    fault_error = EACCES;
    only_for = "/a/clip";
    bend<&DiskCalls::sync_data>();
    calls_until_fault = 1;
    EXPECT_EQ(run({"a"}), 1) << errors;
    disk_calls = system_disk_calls;
    EXPECT_EQ(run({"a"}), 0) << errors;
    expect_whole("a");
}

TEST_F(OffloadFault, AReadErrorFailsItsFileAlone) {
    fault_error = EIO;
    only_for = "card/clip";
    bend<&DiskCalls::read>();
    calls_until_fault = 2;
    EXPECT_EQ(run({"a", "b"}), 1);
    EXPECT_NE(errors.find("clip: cannot be read at byte 2097152: Input/output error"), std::string::npos) << errors;
    for (const std::string name : {"a", "b"}) {
        EXPECT_FALSE(std::filesystem::exists(folder / (name + "/clip")));
        EXPECT_EQ(read_whole_file(folder / (name + "/sub/a")), whole.at("sub/a"));
        expect_nothing_unfinished(name);
    }
}

// The byte goes bad on its way to the disk's surface: after it was flushed, before it is read.
std::string damaged_path;
off_t damaged_byte;

int sync_and_damage(int file) {
    const int result = system_disk_calls.sync_data(file);
    const std::string path = path_behind(file);
    struct stat facts {};
    const bool is_there = fstat(file, &facts) == 0 && facts.st_size > damaged_byte;
    if (is_there && path.find(damaged_path) != std::string::npos && path.ends_with(".part")) {
        const int other = open(path.c_str(), O_RDWR);
        char byte = 0;
        if (pread(other, &byte, 1, damaged_byte) == 1) {
            byte = static_cast<char>(byte ^ 0x10);
            if (pwrite(other, &byte, 1, damaged_byte) == 1) fdatasync(other);
        }
        close(other);
    }
    return result;
}

TEST_F(OffloadFault, DamageIsFoundAtEveryDestination) {
    const std::vector<std::string> names = {"a", "b", "c"};
    for (const std::string& damaged : names) {
        for (const off_t byte : {0, 4999, (2 << 20) + 4}) {
            damaged_path = "/" + damaged + "/";
            damaged_byte = byte;
            disk_calls.sync_data = sync_and_damage;
            EXPECT_EQ(run(names), 4) << damaged << " " << byte << errors;
            disk_calls = system_disk_calls;
            EXPECT_NE(errors.find("the disk gives back something else than was written"), std::string::npos) << errors;
            expect_nothing_unfinished(damaged);
            EXPECT_FALSE(std::filesystem::exists(folder / (damaged + "/clip"))) << byte;
            for (const std::string& name : names) {
                if (name != damaged) expect_whole(name);
            }
            EXPECT_EQ(run(names), 0) << errors;
            expect_whole(damaged);
            for (const std::string& name : names)
                forget(name);
        }
    }
}

TEST_F(OffloadFault, WithoutReadingBackDamageStaysAndIsNotCalledVerified) {
    damaged_path = "/a/";
    damaged_byte = 0;
    disk_calls.sync_data = sync_and_damage;
    EXPECT_EQ(run({"a"}, [](OffloadOptions& options) { options.verifies = false; }), 0) << errors;
    disk_calls = system_disk_calls;
    EXPECT_EQ(read_whole_file(folder / "a/.vell-offload").find("verified\t"), std::string::npos);
}

// What happens to the source while it is read.
std::string changing_path;
std::function<void()> change_source;

ssize_t read_and_change(int file, void* buffer, size_t bytes, off_t offset) {
    const ssize_t result = system_disk_calls.read(file, buffer, bytes, offset);
    if (offset == 0 && path_behind(file) == changing_path) change_source();
    return result;
}

TEST_F(OffloadFault, ASourceThatChangesIsAFailedFile) {
    changing_path = folder / "card/clip";
    const auto write_times = [](time_t seconds) {
        const timespec times[2] = {{seconds, 0}, {seconds, 0}};
        utimensat(AT_FDCWD, changing_path.c_str(), times, 0);
    };
    const struct {
        std::function<void()> change;
        const char* text;
    } cases[] = {{[] { EXPECT_EQ(truncate(changing_path.c_str(), 2'097'153), 0); }, "clip: ends at byte 2097153"},
                 {[] { EXPECT_EQ(truncate(changing_path.c_str(), 5'000'000), 0); }, "clip: grew while it was copied"},
                 {[&] { write_times(1'000); }, "clip: changed while it was copied"}};
    for (const auto& c : cases) {
        folder.write("card/clip", whole.at("clip"));
        change_source = c.change;
        disk_calls.read = read_and_change;
        EXPECT_EQ(run({"a", "b"}), 1);
        disk_calls = system_disk_calls;
        EXPECT_NE(errors.find(c.text), std::string::npos) << errors;
        for (const std::string name : {"a", "b"}) {
            EXPECT_FALSE(std::filesystem::exists(folder / (name + "/clip"))) << c.text;
            expect_nothing_unfinished(name);
            forget(name);
        }
    }
}

TEST_F(OffloadFault, StopsWithinABlockWhenInterrupted) {
    folder.write("card/clip", card::noise(size_t{12} << 20, 1));
    changing_path = folder / "card/clip";
    change_source = [] { set_interrupted(true); };
    disk_calls.read = read_and_change;
    EXPECT_EQ(run({"a", "b"}), 3) << errors;
    disk_calls = system_disk_calls;
    whole = card::contents(folder / "card");
    for (const std::string name : {"a", "b"}) {
        EXPECT_FALSE(std::filesystem::exists(folder / (name + "/clip")));
        expect_nothing_unfinished(name);
    }
    set_interrupted(false);
    EXPECT_EQ(run({"a", "b"}), 0) << errors;
    expect_whole("a");
    expect_whole("b");
}

int little_space(int file, struct statvfs* space) {
    const int result = system_disk_calls.space(file, space);
    space->f_bavail = (size_t{5} << 20) / space->f_frsize;
    return result;
}

TEST_F(OffloadFault, SpaceIsCheckedFirstForAllDestinationsOfAVolumeTogether) {
    disk_calls.space = little_space;
    EXPECT_EQ(run({"a", "b", "c"}), 5);  // three times 2 MiB
    EXPECT_NE(errors.find("are needed on this volume"), std::string::npos) << errors;
    EXPECT_TRUE(card::contents(folder / "a").empty());
    EXPECT_EQ(run({"a", "b"}), 0) << errors;
    EXPECT_EQ(run({"a", "b", "c"}), 0) << "what is there already needs no space";
    expect_whole("c");
}

/// Dies at the n-th call, whichever it is.
void die_at_call(int n) {
    for (const BentCall& call : k_calls)
        call.bend();
    fault_error = 0;
    calls_until_fault = n;
}

TEST_F(OffloadFault, AKilledRunIsFinishedByTheNext) {
    for (const BentCall& call : k_calls)
        call.bend();
    calls_made = 0;
    calls_until_fault = -1;
    ASSERT_EQ(run({"a", "b"}), 0) << errors;
    disk_calls = system_disk_calls;
    const int calls = calls_made;
    constexpr int k_kills = 20;
    for (int kill_index = 0; kill_index < k_kills; ++kill_index) {
        const int n = 1 + calls * kill_index / k_kills;
        SCOPED_TRACE(n);
        forget("a");
        forget("b");
        const pid_t child = fork();
        if (child == 0) {
            die_at_call(n);
            _exit(run({"a", "b"}));
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        for (const std::string name : {"a", "b"})
            expect_nothing_unfinished(name, /*may_have_leftovers*/ true);
        EXPECT_EQ(run({"a", "b"}), 0) << errors;
        expect_whole("a");
        expect_whole("b");
    }
}

TEST_F(OffloadFault, AVanishedDestinationIsDropped) {
    std::filesystem::create_directory(folder / "b");
    changing_path = folder / "card/clip";
    change_source = [this] { forget("b"); };
    disk_calls.read = read_and_change;
    const int code = run({"a", "b"});
    disk_calls = system_disk_calls;
    EXPECT_EQ(code, 1) << errors;
    expect_whole("a");
    EXPECT_FALSE(std::filesystem::exists(folder / "b"));
}

TEST_F(OffloadFault, ATornJournalIsGoneOnWith) {
    ASSERT_EQ(run({"a"}), 0) << errors;
    const std::string journal = read_whole_file(folder / "a/.vell-offload");
    for (const size_t cut : {size_t{1}, size_t{2}, size_t{40}, journal.size() - 3, journal.size() - 1}) {
        folder.write("a/.vell-offload", journal.substr(0, journal.size() - cut));
        EXPECT_EQ(run({"a"}), 0) << errors;
        EXPECT_EQ(run({"a"}), 0) << errors;
        expect_whole("a");
    }
    folder.write("a/.vell-offload", "something else\n\n\x01\x02");
    EXPECT_EQ(run({"a"}), 0) << errors;
    EXPECT_NE(errors.find("2 damaged or foreign lines do not count"), std::string::npos) << errors;
}

}  // namespace
