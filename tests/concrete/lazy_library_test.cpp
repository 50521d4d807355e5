// Libraries that are loaded when they are needed.
#include "digest.h"
#include "lazy_library.h"

#include <gtest/gtest.h>
#include <cstring>

TEST(LazyLibrary, TellsWhatIsMissingFirst) {
    decltype(&::strlen) length = nullptr, nothing = nullptr;
    km::lazy_library here("libc.so.6");
    here.find("strlen", length);
    ASSERT_TRUE(length);
    EXPECT_EQ(length("four"), 4U);
    EXPECT_EQ(here.why(), "");
    here.find("no_such_function", nothing);
    here.find("nor_this", nothing);
    EXPECT_FALSE(nothing);
    EXPECT_NE(here.why().find("no_such_function"), std::string::npos) << here.why();

    km::lazy_library gone("libnosuch.so.9");
    gone.find("strlen", nothing);
    EXPECT_FALSE(nothing);
    EXPECT_NE(gone.why().find("libnosuch.so.9"), std::string::npos) << gone.why();
}

TEST(LazyLibrary, DigestsAreThoseOfTheStandard) {
    EXPECT_EQ(km::digest_of("abc"),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}
