// http_answer: what a server answers, before any of the file
#pragma once

#include "http_stream.h"

#include <string>

namespace kmhost {

// Takes the lines of a head as they come, of each answer of a chain of redirections.
class http_answer {
  public:
    // False: there are more of them than any server needs.
    bool take_line(const char* bytes, std::size_t count);
    // Judged when the head is complete.
    struct verdict {
        net_fault fault = net_fault::none;
        std::string reason;
        long skip = 0; // bytes in front of the wanted ones
    };
    // `from`: the offset that was asked for. `expected`: what the file must be.
    verdict judge(long status, long from, const source_identity& expected) const;
    // Of the file, as this answer tells it.
    source_identity identity(long status) const;
    // What the server calls its status ("404 Not Found").
    const std::string& status_text() const { return status_text_; }

  private:
    bool read_range(long& first, long& total) const;

    std::string status_text_, etag_, modified_, range_, encoding_;
    long length_ = -1;
    std::size_t bytes_ = 0;
};

} // namespace kmhost
