// file_temp: temporary names and temporary files
// no format
// invariant: a name is handed out only by the system's exclusive creation
#include "file.h"

#include "trclog.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace km {

namespace {

std::string numbered(const ustring& prefix, unsigned long number) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%06lu", number);
    return std::string(prefix.mbcs_str()) + digits;
}

std::vector<const pathname*> sorted_names(const vector* names) {
    std::vector<const pathname*> sorted;
    for (int i = 0; names && i < names->size(); ++i)
        if (const auto* path = names->at<pathname>(i))
            sorted.push_back(path);
    if (!sorted.empty())
        std::qsort(sorted.data(), sorted.size(), sizeof(const pathname*), file::compare_pathnames);
    return sorted;
}

bool holds(const std::vector<const pathname*>& sorted, const pathname& path) {
    const pathname* wanted = &path;
    return !sorted.empty() && std::bsearch(&wanted, sorted.data(), sorted.size(), sizeof wanted,
                                           file::compare_pathnames);
}

// 1 made, 0 the name is taken or cannot be made.
int make_unique(const pathname& candidate, int is_file) {
    static constexpr const char* km_function_name = "file::get_temp_name";
    if (!is_file) {
        if (::mkdir(candidate.mbcs_str(), 0777) != 0)
            return 0;
        KM_TRACE(trace_info, "common", "Unique directory '%s' found !", candidate.mbcs_str());
        return 1;
    }
    const int handle = ::open(candidate.mbcs_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (handle < 0)
        return 0;
    KM_TRACE(trace_info, "common", "Unique file '%s' found, fh = %d !", candidate.mbcs_str(),
             handle);
    ::close(handle);
    return 1;
}

constexpr unsigned long highest_number = 999999;
constexpr int most_steps = 200;

} // namespace

file* file::get_temp_name(const pathname& dir, const ustring& prefix, int is_file,
                          vector* skip_names) {
    KM_TRACE_FUNCTION("file::get_temp_name");
    if (prefix.length() >= 8) {
        KM_TRACE(trace_error, "common", "Invalid paremeter prefix: '%s'", prefix.mbcs_str());
        return nullptr;
    }
    char buffer[64];
    unsigned long number = binary_search(buffer, dir, prefix, highest_number);
    const auto skipped = sorted_names(skip_names);
    for (int step = 1; number > 0; --number, ++step) {
        if (step > most_steps) {
            KM_TRACE(trace_error, "common",
                     "Unable to open a temporary file after 200 steps, exiting ... ");
            return nullptr;
        }
        const pathname candidate = dir + ustring(numbered(prefix, number).c_str());
        if (holds(skipped, candidate)) {
            KM_TRACE(trace_info, "common", "file '%s' already used, continue",
                     candidate.mbcs_str());
            continue;
        }
        if (!dir.get_text().empty() && !file(dir).mk_tree()) {
            KM_TRACE(trace_error, "common", "Error creating the parent directory '%s'!",
                     dir.mbcs_str());
            return nullptr;
        }
        if (make_unique(candidate, is_file))
            return new file(candidate);
    }
    return nullptr;
}

unsigned long file::binary_search(char* buffer, const pathname& dir, const ustring& prefix,
                                  unsigned long max) {
    KM_TRACE_FUNCTION("file::binary_search");
    // Signed on purpose: in the first round the difference of the upper ends is negative.
    const long top = static_cast<long>(max);
    long lo = 0, hi = top, previous_hi = 0, p = 30, steps = 0;
    for (; steps < 50; ++steps) {
        const std::string name =
            numbered(prefix, static_cast<unsigned long>(std::max(top - p, 0L)));
        std::snprintf(buffer, 64, "%s", name.c_str());
        const bool found = ::access((dir + ustring(name.c_str())).mbcs_str(), F_OK) == 0;
        KM_TRACE(trace_return, "common", "between [%ld, %ld] check for : %ld -> %s", lo, hi, p,
                 found ? "found" : "NOT found");
        const long old_lo = lo;
        (found ? lo : hi) = p;
        if (lo - old_lo < 2 && previous_hi - hi < 2)
            break;
        previous_hi = hi;
        p = lo + (hi - lo) / 2;
    }
    if (p > top)
        p = top - 1;
    KM_TRACE(trace_return, "common", "returning with %ld in %ld steps ...", top - p, steps);
    return static_cast<unsigned long>(top - p);
}

} // namespace km
