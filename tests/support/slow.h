// Whether a sanitizer slows this build down, for a test that then does less.
#pragma once

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define UNDER_SANITIZER 1
#endif
#endif

namespace testing_support {

#ifdef UNDER_SANITIZER
inline constexpr bool kSlow = true;
#else
inline constexpr bool kSlow = false;
#endif

}  // namespace testing_support
