// What the tests need to know of the sanitizer they run under.
#ifndef OVKIT_TESTS_SUPPORT_SANITIZERS_H
#define OVKIT_TESTS_SUPPORT_SANITIZERS_H

#if defined(__SANITIZE_THREAD__)
#define OVKIT_TEST_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define OVKIT_TEST_THREAD_SANITIZER 1
#endif
#endif

namespace ovkit_test
{

#ifdef OVKIT_TEST_THREAD_SANITIZER
inline constexpr bool c_bThreadSanitizer = true;
#else
inline constexpr bool c_bThreadSanitizer = false;
#endif

/// Threads of the sanitizer's runtime: the thread sanitizer starts one of its
/// own together with the first other thread of the process.
inline constexpr unsigned c_nRuntimeThreads = c_bThreadSanitizer ? 1 : 0;

} // namespace ovkit_test

#endif // OVKIT_TESTS_SUPPORT_SANITIZERS_H
