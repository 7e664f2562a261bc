// A clip that tells its views when it changes. One view leaves while it is told.

#include <vellcore/vellcore.h>

#include <cstdio>

namespace {

constexpr unsigned k_renamed = 1U << 0;  // the host's own types are the lower 29 bits
constexpr unsigned k_trimmed = 1U << 1;

class View : public Observer {
public:
    View(const char* name, Observable& clip) : name_(name), clip_(clip) { clip_.register_observer(this); }

    bool notify(Notification& notification) override {
        char type[18];
        std::printf("%s is told of 0x%08x (%s)\n", name_, notification.type, notification.type_name(type));
        ++times_told;
        if ((notification.type & k_trimmed) != 0) clip_.deregister_observer(this);
        return true;
    }
    int times_told = 0;

private:
    const char* name_;
    Observable& clip_;
};

}  // namespace

int main() {
    auto* clip = new Observable;
    View timeline("the timeline", *clip);
    View viewer("the viewer", *clip);
    timeline.mute = 1;
    clip->update_observers(k_renamed);
    clip->update_observers(k_trimmed);  // the viewer leaves
    timeline.mute = 0;
    delete clip;  // announces its death
    return timeline.times_told == 1 && viewer.times_told == 2 ? 0 : 1;
}
