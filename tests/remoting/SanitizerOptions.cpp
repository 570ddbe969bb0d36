// Both sides of a connection are in one process in these tests, or connect by names: gRPC's threads
// then hand over memory to each other which they use by functions of the C library. ThreadSanitizer
// sees these uses but not what orders them, as gRPC is not instrumented.

#include "support/Sanitizers.hpp"

#ifdef ORVI_THREAD_SANITIZER
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "ignore_noninstrumented_modules=1";
}
#endif
