// file_translate: a text file into or out of UTF-8
// no format
// invariants: a character that two reads share is converted whole; no part of a target is left as
// if it were all
#include "file.h"

#include "base/uxl.h"
#include "file_channel.h"
#include "trclog.h"

#include <cstring>
#include <memory>
#include <new>
#include <unistd.h>

namespace km {

namespace {

constexpr int in_size = 4096;

struct direction {
    int (*convert)(int, const char**, size_t*, char**, size_t*);
    size_t out_size; // the most that in_size bytes can become
};

constexpr direction directions[] = {
    {uxl_to_utf8_r, 12288},
    {uxl_from_utf8_r, 24576},
};

// Converts all of `from` and closes `to`; 0 if either failed.
int convert_all(file_input_channel& from, file_output_channel& to, const direction& how) {
    const std::unique_ptr<char[]> block(new (std::nothrow) char[in_size]);
    const std::unique_ptr<char[]> result(new (std::nothrow) char[how.out_size]);
    if (!block || !result)
        return 0;
    auto* const raw = reinterpret_cast<unsigned char*>(block.get());
    size_t carry = 0;
    for (int got; (got = from.read(raw + carry, in_size - static_cast<int>(carry))) > 0;) {
        const char* in = block.get();
        char* out = result.get();
        size_t in_left = carry + static_cast<size_t>(got), out_left = how.out_size;
        how.convert(0, &in, &in_left, &out, &out_left);
        to.write(reinterpret_cast<unsigned char*>(result.get()),
                 static_cast<int>(how.out_size - out_left));
        std::memmove(block.get(), in, in_left);
        carry = in_left;
    }
    // The end of the file cut a character: its bytes are no character, and pass as such.
    to.write(raw, static_cast<int>(carry));
    to.close();
    return from.get_error() == 0 && to.get_error() == 0;
}

} // namespace

int file::translate(const pathname& target, int type) {
    KM_TRACE_FUNCTION("file::translate");
    file_input_channel from(path_);
    if (from.get_error()) {
        KM_TRACE(trace_error, "common", "Unable to open input file:<%s> error:<%d>",
                 path_.mbcs_str(), from.get_error());
        return 0;
    }
    if (type != 0 && type != 1) {
        KM_TRACE(trace_error, "common", "Error on specified type of translation");
        return 0;
    }
    if (is_same(file(target))) {
        KM_TRACE(trace_error, "common", "File '%s' cannot be translated onto itself.",
                 path_.mbcs_str());
        return 0;
    }
    file_output_channel to(target, 0);
    if (to.get_error()) {
        KM_TRACE(trace_error, "common", "Unable to create/open output file:<%s> error:<%d>",
                 target.mbcs_str(), to.get_error());
        return 0;
    }
    if (convert_all(from, to, directions[type]))
        return 1;
    KM_TRACE(trace_error, "common", "Unexpected error while writing to target file '%s'",
             target.mbcs_str());
    if (file(target).is_file()) // never a device
        ::unlink(target.mbcs_str());
    return 0;
}

} // namespace km
