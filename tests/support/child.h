// child: what happens in a process of its own
#pragma once

#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace km_test {

// What waitpid tells of a child that runs `body`; it ends with 1 where an expectation failed.
inline int in_child(const std::function<void()>& body) {
    const pid_t child = ::fork();
    if (child == 0) {
        body();
        ::_exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return status;
}

// True if the child was killed at the named point (only builds with kill points have any).
inline bool dies_at(const std::string& point, const std::function<void()>& body) {
    const int status = in_child([&] {
        ::setenv("KM_KILL_AT", point.c_str(), 1);
        body();
    });
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

} // namespace km_test
