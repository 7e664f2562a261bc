// `links_lock` guards the list; it is held while a turn's lock is taken, never the other way.

#include "platform/posix/open_links.h"

#include <cstdlib>
#include <new>

#include "platform/fork_handlers.h"
#include "platform/immortal.h"
#include "platform/monotonic_clock.h"

namespace vell {

/// The list of the process.
class OpenLinks {
public:
    constexpr OpenLinks() noexcept = default;
    [[nodiscard]] bool add(OpenLink& link) noexcept;
    void remove(OpenLink& link) noexcept;
    void end_all() noexcept;

    void lock_before_fork() noexcept VELL_NO_LOCK_CHECK { lock_.lock(); }
    void unlock_after_fork() noexcept VELL_NO_LOCK_CHECK { lock_.unlock(); }
    /// What is on the list stays, unused: it is the parent's.
    void renew_in_child() noexcept VELL_NO_LOCK_CHECK {
        lock_.unlock();
        new (&one_left_) Condition;
    }

private:
    [[nodiscard]] bool has_goodbyes() const noexcept VELL_REQUIRES(lock_);

    Mutex lock_;
    Condition one_left_;
    OpenLink* first_ VELL_GUARDED_BY(lock_) = nullptr;
    bool has_hook_ VELL_GUARDED_BY(lock_) = false;
    bool is_exiting_ VELL_GUARDED_BY(lock_) = false;
};

namespace {

constexpr int64_t k_goodbye_ns = 1'000'000'000;
constexpr int64_t k_step_ns = 500'000'000;  // of a thread that is in the middle of something

constinit Immortal<OpenLinks> open_links;

const ForkEntry fork_entry(ForkOrder::websocket_links, {[]() noexcept { open_links.value.lock_before_fork(); },
                                                        []() noexcept { open_links.value.unlock_after_fork(); },
                                                        []() noexcept { open_links.value.renew_in_child(); }});

void end_all_at_exit() {
    open_links.value.end_all();
}

}  // namespace

bool OpenLinks::add(OpenLink& link) noexcept {
    const ScopedLock lock(lock_);
    if (!has_hook_) has_hook_ = std::atexit(end_all_at_exit) == 0;
    if (is_exiting_ || !has_hook_) return false;
    link.next_ = first_;
    if (first_ != nullptr) first_->previous_ = &link;
    first_ = &link;
    return true;
}

void OpenLinks::remove(OpenLink& link) noexcept {
    const ScopedLock lock(lock_);
    (link.previous_ != nullptr ? link.previous_->next_ : first_) = link.next_;
    if (link.next_ != nullptr) link.next_->previous_ = link.previous_;
    one_left_.broadcast();
}

bool OpenLinks::has_goodbyes() const noexcept {
    for (const OpenLink* link = first_; link != nullptr; link = link->next_)
        if (link->is_left.load(std::memory_order_relaxed) && link->is_of_this_process()) return true;
    return false;
}

void OpenLinks::end_all() noexcept {
    const ScopedLock lock(lock_);
    is_exiting_ = true;
    const int64_t end_ns = monotonic_ns() + k_goodbye_ns;
    for (int64_t rest_ns = k_goodbye_ns; rest_ns > 0 && has_goodbyes(); rest_ns = end_ns - monotonic_ns())
        one_left_.wait_for(lock_, rest_ns);
    for (OpenLink* link = first_; link != nullptr; link = link->next_)
        if (link->is_of_this_process() && link->turn.freeze(k_step_ns)) link->abandon();
}

OpenLink::OpenLink() noexcept : turn(*this), generation_(process_generation()) {}

bool OpenLink::is_of_this_process() const noexcept {
    return generation_ == process_generation();
}

bool OpenLink::enlist() noexcept {
    return open_links.value.add(*this);
}

void OpenLink::delist() noexcept {
    open_links.value.remove(*this);
}

}  // namespace vell
