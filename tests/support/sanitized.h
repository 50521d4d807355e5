// sanitized: whether the sanitizers run along, with which a long walk takes a shorter way
#pragma once

namespace km_test {

#ifdef __SANITIZE_ADDRESS__
inline constexpr bool sanitized = true;
#else
inline constexpr bool sanitized = false;
#endif

} // namespace km_test
