// Starts the library the short way, writes to the log, stops.
//
//     log_and_stop            warnings and errors, on the standard error stream
//     log_and_stop debug.txt  everything, in a file

#include <vellcore/vellcore.h>

#include <cstdio>

int main(int argument_count, char** arguments) {
    vl_fast_initialize(arguments[0], /*allocate_heaps*/ false);

    FILE* file = nullptr;
    if (argument_count > 1) {
        file = std::fopen(arguments[1], "w");
        if (file == nullptr) {
            msg_os_error(arguments[1]);
            vl_closedown();
            return 1;
        }
        msg_initialize(file);
        msg_setlevel(MSG_DEBUG);
    }

    msgwarn("Clip '%s' has %d damaged frames", "reel_0042", 3);
    for (int frame = 17; frame < 20; ++frame)
        msgcont("frame %d", frame);
    msgdebug("only where the level is MSG_DEBUG");

    vl_closedown();
    if (file != nullptr) std::fclose(file);
    return 0;
}
