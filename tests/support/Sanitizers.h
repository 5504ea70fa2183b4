// Which sanitizers a test program is built with, for what they make impossible. Both macros are 0 or 1.
#ifndef KXPAL_TESTS_SANITIZERS_H
#define KXPAL_TESTS_SANITIZERS_H

#if defined(__has_feature)
#define KXPAL_TESTS_HAS_FEATURE(feature) __has_feature(feature)
#else
#define KXPAL_TESTS_HAS_FEATURE(feature) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || KXPAL_TESTS_HAS_FEATURE(address_sanitizer)
#define KXPAL_TESTS_ADDRESS_SANITIZER 1
#else
#define KXPAL_TESTS_ADDRESS_SANITIZER 0
#endif

#if defined(__SANITIZE_THREAD__) || KXPAL_TESTS_HAS_FEATURE(thread_sanitizer)
#define KXPAL_TESTS_THREAD_SANITIZER 1
#else
#define KXPAL_TESTS_THREAD_SANITIZER 0
#endif

#endif
