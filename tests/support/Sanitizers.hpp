#pragma once

// GCC defines a macro for each sanitizer, Clang 14 tells only when it is asked. GCC comes first, as
// other libraries' headers define a __has_feature for it that knows none.
#if defined(__SANITIZE_ADDRESS__)
#define ORVI_ADDRESS_SANITIZER
#elif defined(__SANITIZE_THREAD__)
#define ORVI_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ORVI_ADDRESS_SANITIZER
#elif __has_feature(thread_sanitizer)
#define ORVI_THREAD_SANITIZER
#endif
#endif
