// A library with functions to run. One of them throws, one ends its thread.

#include <pthread.h>

#include <stdexcept>

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED int plain_value();
int plain_value() {
    return 42;
}

EXPORTED int count_arguments(int argc, char** argv);
int count_arguments(int argc, char** argv) {
    return argv[argc] == nullptr ? argc : 0;
}

EXPORTED int throws(int argc, char** argv);
int throws(int, char**) {
    throw std::runtime_error("on purpose");
}

EXPORTED int ends_its_thread(int argc, char** argv);
int ends_its_thread(int, char**) {
    pthread_exit(nullptr);
}
