// trace_stream: where trace lines go
// format: docs/formats/trace.md
// invariant: the header is printed as text, whatever it holds
#include "trace_stream.h"

#include "trclog.h"

#include <sys/stat.h>

namespace km {

stdio_trace_stream::stdio_trace_stream(const char* path) : file_(std::fopen(path, "a+e")) {
    if (file_) {
        ::chmod(path, 0666);
        return;
    }
    file_ = stderr;
    if (trace::level() > 0)
        std::fprintf(stderr, "Could not open trace file %s, logging on stderr\n", path);
}

stdio_trace_stream::~stdio_trace_stream() {
    if (file_ != stderr)
        std::fclose(file_);
}

int stdio_trace_stream::writeline(const char* header, const char* format, va_list arguments) {
    const int head = std::fprintf(file_, "%s", header);
    const int text = std::vfprintf(file_, format, arguments);
    const int end = std::fprintf(file_, "\n");
    std::fflush(file_);
    return head + text + end;
}

long stdio_trace_stream::size() {
    struct stat about {};
    return ::fstat(::fileno(file_), &about) == 0 ? static_cast<long>(about.st_size) : 0;
}

} // namespace km
