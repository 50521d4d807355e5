// profiler: empty hook of an optional call profiler
#pragma once

namespace km {

// What a call profiler would offer. A build without one has these empty operations, so that the
// hook at the head of every traced function costs one constant test.
struct q_profiler {
    static void init() {}
    static constexpr int profiler_enabled() { return 0; }
    static constexpr int halted() { return 0; }
    static constexpr int is_entry_enabled(const char*) { return 0; }
    static void entry(const char*) {}
    static void exit(const char*) {}
};

} // namespace km
