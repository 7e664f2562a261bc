// What the sanitizers are told where a test program is built with one: refused memory is a null pointer, as everywhere;
// threads may be started in a forked child. GLib is not built with them, so ThreadSanitizer does not see its locks:
// what it does inside is not looked at. The runtimes look these functions up, so they must be visible.

#define SEEN_BY_RUNTIME extern "C" __attribute__((visibility("default")))

SEEN_BY_RUNTIME const char* __asan_default_options();
SEEN_BY_RUNTIME const char* __tsan_default_options();
SEEN_BY_RUNTIME const char* __tsan_default_suppressions();
SEEN_BY_RUNTIME const char* __ubsan_default_options();

const char* __asan_default_options() {
    return "allocator_may_return_null=1:detect_stack_use_after_return=1";
}
const char* __tsan_default_options() {
    return "allocator_may_return_null=1:halt_on_error=1:die_after_fork=0";
}
const char* __tsan_default_suppressions() {
    return "called_from_lib:libglib-2.0.so.0\ncalled_from_lib:libgobject-2.0.so.0\ncalled_from_lib:libgio-2.0.so.0\n";
}
const char* __ubsan_default_options() {
    return "print_stacktrace=1";
}
