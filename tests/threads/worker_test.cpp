#include <atomic>
#include <thread>
#include <vector>

#include "vellcore/threads.h"

namespace {

class Note : public VL_Thread {
public:
    Note(std::vector<int>& order, int number) : order_(order), number_(number) {}
    void Run() override { order_.push_back(number_); }

private:
    std::vector<int>& order_;
    int number_;
};

/// Keeps the worker busy until it is let go.
class Gate : public VL_Thread {
public:
    std::atomic<bool> is_open{false}, is_reached{false};
    void Run() override {
        is_reached = true;
        while (!is_open)
            std::this_thread::yield();
    }
};

class Worker : public testing::Test {
protected:
    void SetUp() override { mp_init_threads(); }
    void TearDown() override { mp_close_threads(); }
};

TEST(WorkerAbsent, FlushAndDestroyReturnAtOnce) {
    VL_Thread::Flush();
    VL_Thread::Destroy();
    VL_Thread without_table;
    without_table.Start();
    VL_Thread::Flush();
    mp_init_threads();
    std::vector<int> order;
    Note note(order, 7);  // the first construction that can start the worker
    note.Start();
    VL_Thread::Flush();
    EXPECT_EQ(order, std::vector<int>{7});
    mp_close_threads();
}

TEST_F(Worker, RunsObjectsInTheirOrderUntilTheFlush) {
    std::vector<int> order;
    std::vector<std::unique_ptr<Note>> notes;
    for (int i = 0; i < 50; ++i)
        notes.push_back(std::make_unique<Note>(order, i));
    for (const auto& note : notes)
        note->Start();
    VL_Thread::Flush();
    ASSERT_EQ(order.size(), 50u);
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(order[size_t(i)], i);
}

TEST_F(Worker, FullQueueDropsObjectsButNotAFlush) {
    std::vector<int> order;
    Gate gate;
    gate.Start();
    while (!gate.is_reached)
        std::this_thread::yield();
    std::vector<std::unique_ptr<Note>> notes;
    for (int i = 0; i < 70; ++i)
        notes.push_back(std::make_unique<Note>(order, i));
    for (const auto& note : notes)
        note->Start();
    std::jthread opener([&gate] { gate.is_open = true; });
    VL_Thread::Flush();
    EXPECT_EQ(order.size(), 64u) << "what the queue holds";
}

TEST_F(Worker, DestroyWithAFullQueueStillEndsAndANewWorkerStarts) {
    std::vector<int> order;
    Gate gate;
    gate.Start();
    while (!gate.is_reached)
        std::this_thread::yield();
    std::vector<std::unique_ptr<Note>> notes;
    for (int i = 0; i < 64; ++i)
        notes.push_back(std::make_unique<Note>(order, i));
    for (const auto& note : notes)
        note->Start();
    std::jthread opener([&gate] { gate.is_open = true; });
    VL_Thread::Destroy();
    EXPECT_EQ(order.size(), 64u);
    Note next(order, 100);
    next.Start();
    VL_Thread::Flush();
    EXPECT_EQ(order.back(), 100);
}

TEST_F(Worker, EndsRightAfterItsConstruction) {
    for (int i = 0; i < 50; ++i) {
        VL_Thread object;
        VL_Thread::Destroy();
    }
}

TEST_F(Worker, CanBeEndedFromAnObjectItRuns) {
    struct Ender : VL_Thread {
        void Run() override { VL_Thread::Destroy(); }
    } ender;
    ender.Start();
    VL_Thread::Flush();
    std::vector<int> order;
    Note next(order, 1);
    next.Start();
    VL_Thread::Flush();
    SUCCEED() << "nothing hangs; whether the object ran depends on which worker it met";
}

/// With and without a thread that ends the worker all the time.
class SharedWorker : public testing::TestWithParam<bool> {
protected:
    void SetUp() override { mp_init_threads(); }
    void TearDown() override { mp_close_threads(); }
};

TEST_P(SharedWorker, RunsEveryObjectBeforeItsFlushReturns) {
    constexpr int k_threads = 4, k_rounds = 200;
    std::atomic<int> runs{0}, late{0};
    struct Count : VL_Thread {
        std::atomic<int>& runs;
        std::atomic<bool> has_run{false};
        explicit Count(std::atomic<int>& counter) : runs(counter) {}
        void Run() override {
            ++runs;
            has_run = true;
        }
    };
    std::jthread ender;
    if (GetParam())
        ender = std::jthread([](const std::stop_token& stop) {
            while (!stop.stop_requested())
                VL_Thread::Destroy();
        });
    {
        std::vector<std::jthread> threads;
        for (int t = 0; t < k_threads; ++t)
            threads.emplace_back([&] {
                for (int i = 0; i < k_rounds; ++i) {
                    Count count(runs);
                    count.Start();
                    VL_Thread::Flush();
                    late += !count.has_run;
                }
            });
    }
    EXPECT_EQ(runs, k_threads * k_rounds);
    EXPECT_EQ(late, 0);
}
INSTANTIATE_TEST_SUITE_P(Ended, SharedWorker, testing::Bool());

}  // namespace
