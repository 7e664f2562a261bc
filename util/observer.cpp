// Observers and what they observe. The list may change while a notification is being sent, so every step reads it anew.

#include "vellcore/observer.h"

#include <string_view>

Observer::Notification::~Notification() = default;
Observer::~Observer() = default;

char* Observer::Notification::type_name(char* buffer) const noexcept {
    char* end = buffer;
    const auto append = [&end](bool is_wanted, std::string_view name) {
        if (is_wanted) end += name.copy(end, name.size());
    };
    append((type & k_attach) != 0, "Attach");
    append((type & k_detach) != 0, "Detach");
    append((type & k_dying) != 0, "Dying");
    append(end == buffer, "Unknown");
    *end = '\0';
    return buffer;
}

Observable::~Observable() {
    update_observers(Observer::Notification::k_dying);
}

void Observable::register_observer(Observer* observer) noexcept {
    if (observer == nullptr) return;
    Observer** hole = nullptr;
    for (uint32_t i = observers.count(); i-- > 0;) {
        if (observers[i] == observer) return;
        if (observers[i] == nullptr && hole == nullptr) hole = &observers[i];
    }
    if (hole != nullptr) {
        *hole = observer;
    } else {
        observers.append(observer);
    }
}

void Observable::deregister_observer(Observer* observer) noexcept {
    if (observer == nullptr) return;
    for (uint32_t i = observers.count(); i-- > 0;) {
        if (observers[i] != observer) continue;
        observers[i] = nullptr;
        if (i + 1 == observers.count()) observers.remove(i);
        return;
    }
}

void Observable::trim_observer_list() noexcept {
    while (observers.count() > 0 && observers[observers.count() - 1] == nullptr)
        observers.remove(observers.count() - 1);
    if (observers.count() == 0) observers.release();
}

int Observable::update_observers(unsigned int type) {
    if (suspended != 0 && type != Observer::Notification::k_dying) return 0;
    Observer::Notification notification(type);
    return send(notification, Muted::skipped);
}

int Observable::update_observers(Observer::Notification& notification) {
    return suspended == 0 ? send(notification, Muted::included) : 0;
}

int Observable::send(Observer::Notification& notification, Muted muted) {
    if (depth > 0) return 0;
    /// Lowers the depth also when an observer's thread is cancelled or its host throws.
    struct Nesting {
        explicit Nesting(int& level) noexcept : level_(level) { ++level_; }
        ~Nesting() { --level_; }
        Nesting(const Nesting&) = delete;
        Nesting& operator=(const Nesting&) = delete;
        int& level_;
    } const nesting(depth);
    notification.source = this;
    int handled = 0;
    for (uint32_t i = observers.count(); i-- > 0;) {
        Observer* const observer = i < observers.count() ? observers[i] : nullptr;
        if (observer == nullptr || (muted == Muted::skipped && observer->mute != 0)) continue;
        if (observer->notify(notification)) ++handled;
    }
    return handled;
}
