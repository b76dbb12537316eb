// The forked workers leave with _exit, which skips the sanitizers' verdict
// at exit: a report in a worker must end it at once with a failing status,
// or the test would pass over it. Used only by sanitizer builds.
extern "C" const char *__tsan_default_options() {
    return "halt_on_error=1";
}
extern "C" const char *__ubsan_default_options() {
    return "halt_on_error=1:print_stacktrace=1";
}
