// kill_point: named points at which a test can end the process
// no format
// invariant: without KM_KILL_AT in the environment a point does nothing
#include "kill_point.h"

#ifdef KM_KILL_POINTS

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

namespace km {

namespace {

struct wanted_point {
    std::string name;
    long pass = 1;
    wanted_point() {
        const char* text = std::getenv("KM_KILL_AT");
        if (!text)
            return;
        const char* colon = std::strrchr(text, ':');
        name.assign(text, colon ? static_cast<size_t>(colon - text) : std::strlen(text));
        if (colon)
            pass = std::strtol(colon + 1, nullptr, 10);
    }
};

} // namespace

void pass_kill_point(const char* name) {
    static wanted_point wanted;
    if (!wanted.name.empty() && wanted.name == name && --wanted.pass == 0)
        ::kill(::getpid(), SIGKILL);
}

} // namespace km

#endif
