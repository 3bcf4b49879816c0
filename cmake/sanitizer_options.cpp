// Defaults of the sanitizers' run time for every program of this tree; read before main(), harmless without sanitizers.

// Leak detection stays off: the verifier finds what the driver leaks by tag and place, and a run that it stops leaves
// the stacks of abandoned tasks behind on purpose.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
  return "detect_leaks=0:abort_on_error=0:handle_abort=1";
}

extern "C" const char* __ubsan_default_options();
extern "C" const char* __ubsan_default_options() {
  return "print_stacktrace=1";
}
