#pragma once
// Running another program.

#include <cstddef>
#include <cstdint>

#include "export.h"

/// How a child process ended, 16 bytes.
struct ProcessResultStruct {
    bool started;       ///< the program was started
    int32_t exit_code;  ///< -1 until known; 0 to 255 of a child that exited, 128 + signal of one that a signal ended
    bool exited;        ///< it exited by itself
    bool signalled;     ///< a signal ended it
    int32_t signal;     ///< that signal, else 0
};
static_assert(sizeof(ProcessResultStruct) == 16 && offsetof(ProcessResultStruct, exit_code) == 4 &&
                  offsetof(ProcessResultStruct, signal) == 12,
              "hosts know the layout");

/// Starts a program and, when asked, waits for it to end.
///
/// @param program          looked up in the search path unless it contains a "/". The child gets the environment and
///                         every descriptor that does not close on exec: its errors land where descriptor 2 leads.
/// @param argument_vector  ended by null; element 0 is the program's name as it sees it.
/// @param wait             false: returns at once; the child runs on, and nobody learns how it ends.
/// @param callback         called between looks at the child, on the calling thread; null for none.
/// @param interval_milliseconds  pause between looks; 0 or less for none.
/// @return  true; false after an error line: "_spawnvp failed (%s)" when the program did not start,
///          "_spawnvp waitpid failed (%s)" when the child cannot be waited for (a host that ignores SIGCHLD).
/// @waits   with `wait`, until the child ends. A cancellation point between looks; the child then runs on.
VELL_API bool SpawnAndLoopUntilFinished(const char* program, char* const* argument_vector, bool wait,
                                        void (*callback)(void*), void* callback_argument, ProcessResultStruct& result,
                                        int32_t interval_milliseconds);
