#include <atomic>
#include <cerrno>
#include <thread>

#include "support/log_capture.h"
#include "vellcore/auto_lock.h"
#include "vellcore/queue.h"

namespace {

TEST(Primitives, NullHandlesAreAnsweredAndNotTouched) {
    const LogCapture log(MSG_ERROR);
    mp_delete_mutex(nullptr);
    mp_delete_cond_block(nullptr);
    mp_key_delete(nullptr);
    EXPECT_EQ(mp_get_mutex(nullptr), EINVAL);
    EXPECT_EQ(mp_release_mutex(nullptr), EINVAL);
    EXPECT_FALSE(mp_test_mutex(nullptr));
    EXPECT_EQ(mp_cond_signal(nullptr), EINVAL);
    EXPECT_EQ(mp_cond_wait(nullptr, nullptr), EINVAL);
    EXPECT_FALSE(mp_cond_timedwait(nullptr, nullptr, 1000));
    EXPECT_EQ(mp_setspecific(nullptr, &log), EINVAL);
    EXPECT_EQ(mp_getspecific(nullptr), nullptr);
    const std::vector<std::string> expected{"ERROR: Mutex lock error (22)", "ERROR: Mutex ulock error (22)",
                                            "ERROR: Failed to set thread local storage: 22"};
    EXPECT_EQ(log.lines(), expected);
}

TEST(Primitives, MutexStartsLockedOnRequestAndExcludes) {
    __mutex_str* mutex = mp_new_mutex(1);
    std::thread([mutex] { EXPECT_FALSE(mp_test_mutex(mutex)); }).join();
    EXPECT_EQ(mp_release_mutex(mutex), 0);
    { const AutoLock lock(mutex), nothing(nullptr); }
    EXPECT_TRUE(mp_test_mutex(mutex));
    mp_release_mutex(mutex);
    mp_delete_mutex(mutex);
}

TEST(Primitives, TimedWaitTellsAWakeFromATimeOut) {
    __mutex_str* mutex = mp_new_mutex(1);
    __cond_str* condition = mp_new_cond_block();
    for (const int64_t wait_ns : {int64_t{0}, int64_t{-5'000'000'000}, int64_t{1'500'000}})
        EXPECT_FALSE(mp_cond_timedwait(condition, mutex, wait_ns)) << wait_ns;
    bool is_set = false;
    std::thread setter([&] {
        const AutoLock lock(mutex);
        is_set = true;
        mp_cond_broadcast(condition);
    });
    bool was_woken = true;
    while (!is_set && was_woken)
        was_woken = mp_cond_timedwait(condition, mutex, 60'000'000'000);
    EXPECT_TRUE(was_woken);
    mp_release_mutex(mutex);
    setter.join();
    mp_delete_cond_block(condition);
    mp_delete_mutex(mutex);
}

TEST(Primitives, KeysHoldAValuePerThread) {
    __tls_key_str* key = mp_key_create();
    int mine = 0;
    EXPECT_EQ(mp_getspecific(key), nullptr);
    EXPECT_EQ(mp_setspecific(key, &mine), 0);
    std::thread([key] { EXPECT_EQ(mp_getspecific(key), nullptr); }).join();
    EXPECT_EQ(mp_getspecific(key), &mine);
    mp_key_delete(key);
}

TEST(Clock, CountsFromItsOrigin) {
    EXPECT_GT(mp_getclock(), 1.6e9) << "seconds since 1970 before it was set";
    EXPECT_EQ(mp_init_clock(), 0);
    const double first = mp_getclock();
    EXPECT_LT(first, 60);
    mp_timedwait(2'000'000);
    EXPECT_GT(mp_getclock(), first);
    EXPECT_EQ(mp_timedwait(999), 0);
    EXPECT_EQ(mp_timedwait(INT64_MIN), 0);
    EXPECT_EQ(mp_getclockfrequency(), 1000.0);
}

TEST(Queue, KeepsOrderAcrossTheWrapAndDropsWhatDoesNotFit) {
    vl_queue<int> queue(3);
    int out = 0;
    for (int round = 0; round < 5; ++round) {
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(queue.put(round * 10 + i), i < 3);
        EXPECT_EQ(queue.count(), 3);
        for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(queue.take(out));
            EXPECT_EQ(out, round * 10 + i);
        }
        EXPECT_FALSE(queue.take(out));
    }
    for (const int64_t impossible : {int64_t{-4}, int64_t{0}, INT64_MAX})
        EXPECT_FALSE(vl_queue<int>(impossible).put(1));
}

TEST(Queue, LosesAndDoublesNothingBetweenThreads) {
    constexpr int k_items = 20000;
    vl_queue<int> queue(16);
    std::atomic<int64_t> sum{0};
    std::atomic<int> taken{0};
    {
        std::vector<std::jthread> threads;
        for (int t = 0; t < 2; ++t) {
            threads.emplace_back([&, t] {
                for (int i = t; i < k_items; i += 2)
                    while (!queue.put(i))
                        std::this_thread::yield();
            });
            threads.emplace_back([&] {
                for (int item = 0; taken < k_items;)
                    if (queue.take(item)) {
                        sum += item;
                        ++taken;
                    } else {
                        std::this_thread::yield();
                    }
            });
        }
    }
    EXPECT_EQ(taken, k_items);
    EXPECT_EQ(sum, int64_t{k_items} * (k_items - 1) / 2);
}

}  // namespace
