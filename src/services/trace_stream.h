// trace_stream: where trace lines go
#pragma once

#include <cstdarg>
#include <cstdio>

namespace km {

class trace_stream {
  public:
    virtual ~trace_stream() = default;
    // Writes header, text and a line feed; returns the characters written.
    virtual int writeline(const char* header, const char* format, va_list arguments) = 0;
    // Bytes of the file so far, 0 if that cannot be told.
    virtual long size() = 0;
};

// Appends to a file that all users may write; standard error if it cannot be opened.
class stdio_trace_stream : public trace_stream {
  public:
    explicit stdio_trace_stream(const char* path);
    ~stdio_trace_stream() override;
    stdio_trace_stream(const stdio_trace_stream&) = delete;
    stdio_trace_stream& operator=(const stdio_trace_stream&) = delete;
    [[gnu::format(printf, 3, 0)]] int writeline(const char* header, const char* format,
                                                va_list arguments) override;
    long size() override;

  private:
    FILE* file_;
};

} // namespace km
