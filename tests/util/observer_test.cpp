#include "vellcore/observer.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr unsigned k_changed = 1;
constexpr unsigned k_dying = Observer::Notification::k_dying;

/// Writes its name down whenever it is notified, then does what the test wants.
class Recorder : public Observer {
public:
    Recorder(std::string name, std::string& journal) : name_(std::move(name)), journal_(journal) {}
    bool notify(Notification& notification) override {
        journal_ += name_;
        last_type = notification.type;
        last_source = notification.source;
        if (on_notify) on_notify();
        return is_handled;
    }
    std::function<void()> on_notify;
    bool is_handled = true;
    unsigned last_type = 0;
    Observable* last_source = nullptr;

private:
    std::string name_;
    std::string& journal_;
};

class Subject : public Observable {
public:
    uint32_t slots() const { return observers.count(); }
    void suspend(bool is_suspended) { suspended = is_suspended ? 1 : 0; }
};

struct ObserverTest : testing::Test {
    std::string journal;
    Recorder a{"a", journal}, b{"b", journal}, c{"c", journal};
    std::unique_ptr<Subject> subject = std::make_unique<Subject>();

    void SetUp() override {
        for (Recorder* observer : {&a, &b, &c})
            subject->register_observer(observer);
    }
    /// Who is notified, in order.
    std::string round(unsigned type = k_changed) {
        journal.clear();
        subject->update_observers(type);
        return journal;
    }
};

TEST_F(ObserverTest, IsToldFromTheLastSlotToTheFirst) {
    a.is_handled = false;
    EXPECT_EQ(subject->update_observers(k_changed | 0x100), 2);
    EXPECT_EQ(journal, "cba");
    EXPECT_EQ(a.last_type, k_changed | 0x100);
    EXPECT_EQ(a.last_source, subject.get());
}

TEST_F(ObserverTest, LeavesAHoleThatTheNextOneFills) {
    subject->register_observer(&b);
    subject->register_observer(nullptr);
    EXPECT_EQ(subject->slots(), 3U);
    subject->deregister_observer(&a);
    subject->deregister_observer(&b);
    EXPECT_EQ(subject->slots(), 3U);
    subject->register_observer(&a);
    EXPECT_EQ(round(), "ca") << "the last hole, not the first";
    subject->deregister_observer(&c);
    EXPECT_EQ(subject->slots(), 2U);
    subject->deregister_observer(&c);
    subject->deregister_observer(&a);
    EXPECT_EQ(subject->slots(), 1U) << "the hole in slot 0 stays";
    subject->trim_observer_list();
    EXPECT_EQ(subject->slots(), 0U);
    subject->register_observer(&b);
    EXPECT_EQ(round(), "b");
}

TEST_F(ObserverTest, MayChangeTheListWhileItIsTold) {
    Recorder late("l", journal);
    c.on_notify = [&] {
        subject->deregister_observer(&c);
        subject->deregister_observer(&b);
        subject->deregister_observer(&a);
        subject->trim_observer_list();
        for (int i = 0; i < 40; ++i)  // the list moves in memory
            subject->register_observer(&late), subject->deregister_observer(&late);
        subject->register_observer(&a);
    };
    EXPECT_EQ(round(), "ca");
    c.on_notify = nullptr;
    EXPECT_EQ(round(), "a");
}

TEST_F(ObserverTest, IsNotToldFromWithinANotification) {
    int inner = -1;
    b.on_notify = [&] {
        Observer::Notification notification(k_changed);
        inner = subject->update_observers(k_changed) + subject->update_observers(notification);
    };
    EXPECT_EQ(round(), "cba");
    EXPECT_EQ(inner, 0);
    EXPECT_EQ(round(), "cba") << "the depth is back";
    b.on_notify = nullptr;  // the subject outlives `inner`
}

TEST_F(ObserverTest, MutedAndSuspended) {
    b.mute = 1;
    Observer::Notification notification(k_changed);
    EXPECT_EQ(round(), "ca");
    journal.clear();
    EXPECT_EQ(subject->update_observers(notification), 3);
    EXPECT_EQ(journal, "cba");
    EXPECT_EQ(notification.source, subject.get());

    subject->suspend(true);
    const struct {
        unsigned type;
        const char* told;
    } rows[] = {{k_changed, ""}, {0, ""}, {k_dying | k_changed, ""}, {k_dying, "ca"}};
    for (const auto& row : rows)
        EXPECT_EQ(round(row.type), row.told) << row.type;
    Observer::Notification dying(k_dying);
    EXPECT_EQ(subject->update_observers(dying), 0);
    EXPECT_EQ(dying.source, nullptr);

    journal.clear();
    subject.reset();
    EXPECT_EQ(journal, "ca") << "death is announced while suspended";
    EXPECT_EQ(c.last_type, k_dying);
}

TEST_F(ObserverTest, MayLeaveWhenItsSubjectDies) {
    Subject* dying = subject.get();
    for (Recorder* observer : {&a, &b, &c})
        observer->on_notify = [dying, observer] { dying->deregister_observer(observer); };
    subject.reset();
    EXPECT_EQ(journal, "cba");
}

TEST(Notification, NamesItsType) {
    const struct {
        unsigned type;
        const char* name;
    } rows[] = {{0, "Unknown"},
                {0x1FFFFFFF, "Unknown"},
                {0x20000000, "Attach"},
                {0x40000001, "Detach"},
                {0x60000000, "AttachDetach"},
                {0x80000000, "Dying"},
                {0xE0000000, "AttachDetachDying"}};
    for (const auto& row : rows) {
        char buffer[18];
        EXPECT_STREQ(Observer::Notification(row.type).type_name(buffer), row.name);
    }
}

}  // namespace
