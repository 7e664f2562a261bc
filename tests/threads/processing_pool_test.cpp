#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <set>
#include <thread>
#include <vector>

#include "platform/monotonic_clock.h"
#include "platform/processor.h"
#include "support/log_capture.h"
#include "threads/bounded_spin.h"
#include "vellcore/block_memory.h"
#include "vellcore/processing_pool.h"

namespace {

/// Notes which shares ran, how often, and what the pool told them.
struct Shares {
    std::atomic<int> runs[130]{};
    std::atomic<int> wrong{0};

    static void note(void* self, void* second, void*, void*, void*, void* sixth) {
        auto& shares = *static_cast<Shares*>(self);
        const int id = smp_id();
        if (id < 0 || id >= smp_numprocs() || second != &shares.runs || sixth != &shares.wrong)
            ++shares.wrong;
        else
            ++shares.runs[id];
    }
    void exec() { smp_exec(note, this, &runs, nullptr, nullptr, nullptr, &wrong); }
    /// True when shares 0 to count - 1 ran `times` each, and no other.
    bool each_ran(int count, int times) const {
        for (int i = 0; i < 130; ++i)
            if (runs[i] != (i < count ? times : 0)) return false;
        return wrong == 0;
    }
};

// First, because an ended pool leaves its number of shares behind.
TEST(PoolOfOne, RunsOnTheCaller) {
    EXPECT_EQ(smp_initialize(1), 1);
    Shares shares;
    shares.exec();
    EXPECT_TRUE(shares.each_ran(1, 1));
    const auto where = [](void* id, void*, void*, void*, void*, void*) {
        *static_cast<std::thread::id*>(id) = std::this_thread::get_id();
    };
    std::thread::id thread;
    smp_exec(where, &thread);
    EXPECT_EQ(thread, std::this_thread::get_id());
}

class Pool : public testing::Test {
protected:
    void SetUp() override { mp_init_threads(); }
    void TearDown() override {
        smp_closedown();
        mp_close_threads();
    }
};

TEST_F(Pool, RunsEveryShareOnceWhateverTheNumberOfThreads) {
    for (const int threads : {2, 3, 8, 128}) {
        ASSERT_EQ(smp_initialize(threads), threads);
        EXPECT_EQ(smp_initialize(5), threads) << "a second start changes nothing";
        EXPECT_EQ(smp_numprocs(), threads);
        Shares shares;
        for (int i = 0; i < 50; ++i)
            shares.exec();
        EXPECT_TRUE(shares.each_ran(threads, 50)) << threads;
        EXPECT_EQ(smp_id(), 0);
        EXPECT_FALSE(smp_is_spawned());
        smp_exec(nullptr);
        smp_closedown();
    }
    EXPECT_EQ(smp_initialize(500), 128);
}

TEST_F(Pool, SharesKnowWhereTheyRun) {
    ASSERT_EQ(smp_initialize(4), 4);
    std::atomic<int> wrong{0};
    smp_exec(
        [](void* counter, void*, void*, void*, void*, void*) {
            const bool is_right = smp_is_spawned() && std::strncmp(mp_get_thread_name(), "SMP-", 4) == 0;
            if (!is_right) ++*static_cast<std::atomic<int>*>(counter);
        },
        &wrong);
    EXPECT_EQ(wrong, 0);
}

TEST_F(Pool, JobsInsideJobsRunOnTheirOwnThread) {
    ASSERT_EQ(smp_initialize(3), 3);
    static Shares inner;
    std::atomic<int> wrong{0};
    smp_exec(
        [](void* counter, void*, void*, void*, void*, void*) {
            const int id = smp_id();
            inner.exec();
            if (smp_id() != id) ++*static_cast<std::atomic<int>*>(counter);
        },
        &wrong);
    EXPECT_EQ(wrong, 0);
    EXPECT_TRUE(inner.each_ran(3, 3));
}

TEST_F(Pool, ManyCallersAtOnceEachGetTheirShares) {
    ASSERT_EQ(smp_initialize(4), 4);
    Shares shares[6];
    {
        std::vector<std::jthread> callers;
        for (Shares& own : shares)
            callers.emplace_back([&own] {
                for (int i = 0; i < 200; ++i)
                    own.exec();
            });
    }
    for (const Shares& own : shares)
        EXPECT_TRUE(own.each_ran(4, 200));
}

TEST_F(Pool, LongJobsAndPausesBetweenThem) {
    ASSERT_EQ(smp_initialize(2), 2);
    Shares shares;
    for (int i = 0; i < 5; ++i) {
        smp_exec([](void*, void*, void*, void*, void*, void*) { mp_timedwait(3'000'000); });
        mp_timedwait(2'000'000);
        shares.exec();
    }
    EXPECT_TRUE(shares.each_ran(2, 5));
}

TEST_F(Pool, AfterItsEndTheCallerRunsAllShares) {
    ASSERT_EQ(smp_initialize(4), 4);
    smp_closedown();
    smp_closedown();
    EXPECT_EQ(smp_numprocs(), 4);
    Shares shares;
    shares.exec();
    EXPECT_TRUE(shares.each_ran(4, 1));
    EXPECT_EQ(smp_id(), 0);
    EXPECT_EQ(smp_initialize(1), 1);
    shares.exec();
    EXPECT_TRUE(shares.each_ran(4, 2));
}

TEST_F(Pool, InAForkedChildTheCallerRunsAllShares) {
    ASSERT_EQ(smp_initialize(3), 3);
    const pid_t child = fork();
    if (child == 0) {
        Shares shares;
        shares.exec();
        smp_closedown();
        _exit(shares.each_ran(3, 1) ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    Shares shares;
    shares.exec();
    EXPECT_TRUE(shares.each_ran(3, 1)) << "the parent's pool is as it was";
}

TEST(PoolStart, WithoutAThreadTableFallsBackToSingleProcessing) {
    const LogCapture log;
    EXPECT_EQ(smp_initialize(4), 1);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"ERROR: SMP: Can't create MP thread: 0"});
    Shares shares;
    shares.exec();
    EXPECT_TRUE(shares.each_ran(1, 1));
    smp_closedown();
}

TEST(UsableProcessors, AreThoseOfTheMaskAndTheWholeOnesOfTheQuota) {
    const struct {
        const char* label;
        uint32_t affinity;
        uint64_t quota;
        uint32_t usable;
    } rows[] = {{"no quota", 8, 0, 8},          {"quota below", 8, 2000, 2}, {"quota above", 2, 8000, 2},
                {"one and a half", 8, 1500, 1}, {"half of one", 8, 500, 1},  {"mask not told", 0, 0, 1}};
    for (const auto& row : rows)
        EXPECT_EQ(vell::whole_processors(row.affinity, row.quota), row.usable) << row.label;
}

/// Gives all threads of the process a mask.
void set_masks(const cpu_set_t& mask) {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
        ASSERT_EQ(sched_setaffinity(std::stoi(task.path().filename()), sizeof mask, &mask), 0);
}

// Polling is what takes a single processor from the thread that is waited for.
TEST_F(Pool, PollsOnlyWhereSeveralProcessorsMayBeUsed) {
    cpu_set_t all, one;
    ASSERT_EQ(sched_getaffinity(0, sizeof all, &all), 0);
    if (vell::allowed_processors() < 2) GTEST_SKIP() << "there is one processor";
    CPU_ZERO(&one);
    for (size_t i = 0; CPU_COUNT(&one) == 0; ++i)
        if (CPU_ISSET(i, &all)) CPU_SET(i, &one);
    const auto polls = [] { return vell::BoundedSpin(1'000'000'000).again(); };
    set_masks(one);
    ASSERT_EQ(smp_initialize(4), 4) << "the number of threads stays";
    EXPECT_FALSE(polls());
    Shares shares;
    shares.exec();
    EXPECT_TRUE(shares.each_ran(4, 1));
    // The mask changes while the pool runs; its threads look again when a second has passed.
    const auto look_later = [](void*, void*, void*, void*, void*, void*) {
        static std::atomic<int64_t> later_ns{0};
        if (smp_id() == 0) vell::refresh_usable_processors(vell::monotonic_ns() + (later_ns += 3'600'000'000'000));
    };
    set_masks(all);
    smp_exec(look_later);
    EXPECT_TRUE(polls());
    set_masks(one);
    smp_exec(look_later);
    EXPECT_FALSE(polls());
    set_masks(all);
}

TEST_F(Pool, WithoutThreadLocalStorageFallsBackToSingleProcessing) {
    std::vector<__tls_key_str*> keys;
    const LogCapture log(MSG_ERROR);
    for (__tls_key_str* key = nullptr; (key = mp_key_create()) != nullptr;)
        keys.push_back(key);
    EXPECT_EQ(smp_initialize(4), 1);
    EXPECT_EQ(log.lines().back(), "ERROR: SMP: Can't allocate thread local storage..");
    for (__tls_key_str* key : keys)
        mp_key_delete(key);
    EXPECT_EQ(smp_initialize(4), 4);
}

TEST(PoolCopy, SlicesCoverTheWholeRangeOnce) {
    mp_init_threads();
    for (const int threads : {1, 4}) {
        smp_initialize(threads);
        for (const size_t length : {size_t{0}, size_t{1}, size_t{10}, size_t{4097}, size_t{9'000'001}}) {
            std::vector<unsigned char> source(length + 3), destination(length + 3, 0xEE);
            for (size_t i = 0; i < source.size(); ++i)
                source[i] = static_cast<unsigned char>(i * 31 + i / 251);
            EXPECT_EQ(memcpy_mt(destination.data() + 1, source.data() + 2, length), destination.data() + 1);
            EXPECT_EQ(std::memcmp(destination.data() + 1, source.data() + 2, length), 0) << length;
            EXPECT_EQ(destination[0], 0xEE);
            EXPECT_EQ(destination[length + 1], 0xEE);
        }
    }
    smp_closedown();
    mp_close_threads();
}

}  // namespace
