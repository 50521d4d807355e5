// Work that is done while something else is.
#include "background_thread.h"

#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <unistd.h>
#include <vector>

using km::meanwhile;

TEST(Meanwhile, GivesTheResultAndIsWaitedFor) {
    std::atomic<int> done{0};
    const auto slow = [&done](int result) {
        return [&done, result] {
            ::usleep(20000);
            ++done;
            return result;
        };
    };
    {
        std::vector<std::unique_ptr<meanwhile>> all;
        for (int i = 0; i < 8; ++i)
            all.push_back(std::make_unique<meanwhile>(slow(i)));
        EXPECT_EQ(all[5]->result(), 5);
        EXPECT_EQ(all[5]->result(), 5);
        EXPECT_GE(done, 1);
    }
    EXPECT_EQ(done, 8);
}
