#include <pthread.h>

#include <atomic>
#include <string>
#include <thread>

#include "support/log_capture.h"

namespace {

void* note_name(void* text) {
    *static_cast<std::string*>(text) = mp_get_thread_name();
    return nullptr;
}

void* nothing(void*) {
    return nullptr;
}

/// A thread that runs until it is told to stop.
struct Held {
    std::atomic<bool> stops{false};
    static void* run(void* self) {
        while (!static_cast<Held*>(self)->stops)
            std::this_thread::yield();
        return nullptr;
    }
};

class ThreadTable : public testing::Test {
protected:
    void SetUp() override { mp_init_threads(); }
    void TearDown() override { mp_close_threads(); }
};

// First, because the system hands ended threads' stacks on, whatever their size.
TEST(ThreadStack, OnlyTheMainThreadHasItsOwnSize) {
    mp_init_threads();
    const auto note_stack = [](void* size) -> void* {
        pthread_attr_t attributes;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstacksize(&attributes, static_cast<size_t*>(size));
        pthread_attr_destroy(&attributes);
        return nullptr;
    };
    size_t main_bytes = 0, other_bytes = 0, default_bytes = 0;
    mp_join_thread(mp_start_thread("VL-Main", note_stack, &main_bytes));
    mp_join_thread(mp_start_thread("VL-Mai", note_stack, &other_bytes));
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_getstacksize(&attributes, &default_bytes);
    mp_close_threads();
    EXPECT_EQ(main_bytes, 2097152u);
    EXPECT_EQ(other_bytes, default_bytes);
}

TEST(ThreadTableClosed, StartsNothing) {
    EXPECT_EQ(mp_start_thread("early", nothing, nullptr), -1);
    EXPECT_FALSE(mp_join_thread(0));
    EXPECT_FALSE(mp_detach_thread(0));
    EXPECT_STREQ(mp_get_thread_name(), "Unknown");
    mp_close_threads();
}

TEST_F(ThreadTable, ThreadsKnowTheirNames) {
    const struct {
        const char* given;
        const char* kept;
    } rows[] = {{"reader", "reader"},
                {nullptr, "Unknown"},
                {"", "Unknown"},
                {"VL-Main", "VL-Main"},
                {"0123456789012345678901234567890123456789", "0123456789012345678901234567890"}};
    for (const auto& row : rows) {
        std::string name;
        ASSERT_TRUE(mp_join_thread(mp_start_thread(row.given, note_name, &name)));
        EXPECT_EQ(name, row.kept);
    }
    EXPECT_STREQ(mp_get_thread_name(), "Unknown");
}

TEST_F(ThreadTable, LowestFreeIndexIsReused) {
    Held held;
    EXPECT_EQ(mp_start_thread("a", Held::run, &held), 0);
    EXPECT_EQ(mp_start_thread("b", nothing, nullptr), 1);
    EXPECT_EQ(mp_start_thread("c", Held::run, &held), 2);
    EXPECT_TRUE(mp_join_thread(1));
    EXPECT_FALSE(mp_join_thread(1)) << "not in use any more";
    EXPECT_EQ(mp_start_thread("d", nothing, nullptr), 1);
    EXPECT_TRUE(mp_detach_thread(1));
    EXPECT_EQ(mp_start_thread("e", nothing, nullptr), 1);
    held.stops = true;
    for (const int index : {0, 1, 2})
        EXPECT_TRUE(mp_join_thread(index));
    for (const int index : {-1, 3, 1 << 30})
        EXPECT_FALSE(mp_join_thread(index));
}

TEST_F(ThreadTable, OfTwoJoinersOneSucceeds) {
    Held held;
    const int index = mp_start_thread("joined", Held::run, &held);
    std::atomic<int> joined{0}, refused{0};
    {
        std::jthread joiners[2];
        for (std::jthread& joiner : joiners)
            joiner = std::jthread([&] { mp_join_thread(index) ? ++joined : ++refused; });
        while (refused == 0)
            std::this_thread::yield();
        held.stops = true;
    }
    EXPECT_EQ(joined, 1);
    EXPECT_EQ(refused, 1);
}

TEST_F(ThreadTable, ReusedRowsNeverSwapWork) {
    std::atomic<int> runs[200]{};
    for (std::atomic<int>& run : runs) {
        const auto count = [](void* counter) -> void* {
            ++*static_cast<std::atomic<int>*>(counter);
            return nullptr;
        };
        const int index = mp_start_thread("quick", count, &run);
        ASSERT_GE(index, 0);
        mp_detach_thread(index);
    }
    for (std::atomic<int>& run : runs)
        while (run == 0)
            std::this_thread::yield();
    for (std::atomic<int>& run : runs)
        EXPECT_EQ(run, 1);
}

TEST_F(ThreadTable, ClosingCancelsWhatStillRuns) {
    const LogCapture log;
    std::atomic<bool> has_started{false};
    const auto log_for_ever = [](void* started) -> void* {
        for (int i = 0;; ++i) {
            msginfo("%d", i);
            *static_cast<std::atomic<bool>*>(started) = true;
            mp_timedwait(1000);
        }
    };
    ASSERT_GE(mp_start_thread("logger", log_for_ever, &has_started), 0);
    while (!has_started)
        std::this_thread::yield();
    mp_close_threads();
    EXPECT_EQ(msgerror("the log's lock is free"), 1);
    EXPECT_EQ(mp_start_thread("late", nothing, nullptr), -1);
}

}  // namespace
