// has: texts that must hold others
#pragma once

#include <gtest/gtest.h>
#include <string>

namespace km_test {

inline bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

} // namespace km_test

#define EXPECT_HAS(text, part) EXPECT_PRED2(km_test::has, text, part)
