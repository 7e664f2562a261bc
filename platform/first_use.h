// What is made once per process, when it is first asked for.
//
// A function's static would do, were it not for fork(): a child that is forked while another thread makes the object
// waits for that thread for ever. Everything here is made under one lock, which the fork waits for.
#pragma once

#include <atomic>

namespace vell {

/// Takes the lock of all first uses, which its own thread may take again, and releases it.
class FirstUseLock {
public:
    FirstUseLock() noexcept;
    ~FirstUseLock();
    FirstUseLock(const FirstUseLock&) = delete;
    FirstUseLock& operator=(const FirstUseLock&) = delete;

private:
    bool is_nested_;
};

/// One object that is made at its first use. For static storage:
///
///     constinit FirstUse curl_is_ready;
///     curl_is_ready.run([] { is_usable = load_curl(); });
///
/// Not to be run under another of the library's locks: those may be taken in here.
class FirstUse {
public:
    template <class Make>
    void run(Make make) noexcept {
        if (is_made_.load(std::memory_order_acquire)) return;
        const FirstUseLock lock;
        if (is_made_.load(std::memory_order_relaxed)) return;
        make();
        is_made_.store(true, std::memory_order_release);
    }

private:
    std::atomic<bool> is_made_{false};
};

}  // namespace vell
