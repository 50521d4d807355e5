// Two answers of a server of any bytes, the second to a request that goes on where the first ended:
// a first line "STATUS OFFSET", the lines of the first head, a line "--", those of the second.
#include "http_answer.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

constexpr long part_of_file = 206, all_of_file = 200;

void must(bool holds) {
    if (!holds)
        std::abort();
}

struct source {
    std::string bytes;
    std::size_t at = 0;

    bool next(std::string& line) {
        if (at >= bytes.size())
            return false;
        const std::size_t end = bytes.find('\n', at);
        line = bytes.substr(at, end == std::string::npos ? end : end + 1 - at);
        at += line.size();
        return true;
    }
};

kmhost::http_answer read_head(source& from) {
    kmhost::http_answer answer;
    for (std::string line; from.next(line) && line != "--\n";)
        if (!answer.take_line(line.data(), line.size()))
            break;
    return answer;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    source from{std::string(reinterpret_cast<const char*>(data), size)};
    std::string first;
    from.next(first);
    char* end = nullptr;
    const long status = std::strtol(first.c_str(), &end, 10);
    const long offset = std::labs(std::strtol(end, nullptr, 10) % (1L << 40));
    const auto begun = read_head(from).identity(all_of_file);
    must(begun.size >= -1 && kmhost::difference(begun, begun).empty());
    const auto answer = read_head(from);
    const auto now = answer.identity(status);
    must(now.size >= -1 && now.size < 1000000000000000000);
    const auto verdict = answer.judge(status, offset, begun);
    must(verdict.reason.empty() == (verdict.fault == kmhost::net_fault::none));
    if (verdict.fault != kmhost::net_fault::none)
        return 0;
    must(status == all_of_file || status == part_of_file);
    must(verdict.skip == (status == all_of_file ? offset : 0));
    must(kmhost::difference(begun, now).empty());
    must(begun.size < 0 || now.size < 0 || begun.size == now.size);
    return 0;
}
