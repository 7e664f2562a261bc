#pragma once
// Observers: objects that want to be told when another object changes.
//
//     struct View : Observer {
//         bool notify(Notification& notification) override { redraw(); return true; }
//     };
//     Observable clip;
//     clip.register_observer(&view);
//     clip.update_observers(k_clip_changed);
//
// One thread at a time uses an observable and its observers; there is no lock. Inside `notify` observers may register
// and deregister, themselves included; an observable must not be deleted there.

#include <cstdint>

#include "export.h"
#include "vector.h"

class Observable;

/// Receives notifications.
///
/// An observable keeps a plain pointer to it: deregister an observer before it goes, or when "Dying" arrives.
class VELL_API Observer {
public:
    /// What is sent: a set of type bits and who sent it. The host may derive its own.
    class VELL_API Notification {
    public:
        static constexpr unsigned int k_attach = 0x20000000;
        static constexpr unsigned int k_detach = 0x40000000;
        static constexpr unsigned int k_dying = 0x80000000;  ///< the observable is being destroyed

        /// @param bits  the lower 29 are the host's own.
        explicit Notification(unsigned int bits) noexcept : type(bits) {}
        Notification(const Notification&) = default;
        Notification& operator=(const Notification&) = default;
        virtual ~Notification();

        /// The names of the type's bits 29, 30 and 31, run together: "Attach", "Detach", "Dying"; "Unknown" when none
        /// of them is set.
        /// @param buffer  18 bytes.
        /// @return  `buffer`.
        char* type_name(char* buffer) const noexcept;

        unsigned int type;
        Observable* source = nullptr;  ///< the sender; null until sent
    };

    Observer() noexcept = default;
    Observer(const Observer&) = default;
    Observer& operator=(const Observer&) = default;
    virtual ~Observer();

    /// Called for every notification. @return  true when the observer handled it.
    virtual bool notify(Notification& notification) = 0;

    int mute = 0;  ///< not 0: notifications sent by type pass this observer over
};

/// An object that is observed.
///
/// The list has slots: an observer that leaves from the middle leaves its slot empty for the next one that comes, so
/// the others keep their places. Notifications go from the last slot to the first.
class VELL_API Observable {
public:
    Observable() noexcept = default;
    /// Sends "Dying" by type, and frees the list.
    virtual ~Observable();
    Observable(const Observable&) = delete;
    Observable& operator=(const Observable&) = delete;

    /// Adds an observer, unless it is on the list already: into the last empty slot, else at the end. Null is ignored.
    /// Short of memory it is not added; the error line is vl_vector's.
    void register_observer(Observer* observer) noexcept;

    /// Empties the observer's slot; the list becomes shorter only when it was the last one.
    void deregister_observer(Observer* observer) noexcept;

    /// Drops empty slots from the end, and frees the list when none is left.
    void trim_observer_list() noexcept;

    /// Sends a new notification to all observers that are not muted.
    ///
    /// Nothing is sent while another notification of this observable is being sent, nor while it is suspended, except
    /// for a type of exactly "Dying".
    /// @return  how many observers answered true.
    int update_observers(unsigned int type);

    /// Sends the caller's notification, with this object as its source, to all observers, muted ones as well. While
    /// suspended nothing is sent, not even "Dying".
    int update_observers(Observer::Notification& notification);

protected:
    vl_vector<Observer*> observers;  ///< slots; null is empty
    int suspended = 0;               ///< not 0: see update_observers
    int depth = 0;                   ///< notifications being sent

private:
    enum class Muted { skipped, included };
    VELL_LOCAL int send(Observer::Notification& notification, Muted muted);
};
