// trclog: trace levels, tags and lines; function tracer
// format: docs/formats/trace.md
// invariant: with level 0 no function here is reached but level() itself
#include "trclog.h"

#include "trace_stream.h"
#include "trace_style.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <unistd.h>

namespace km {

int trace::_level = 0;
unsigned long trace::_trace_size = 1000000;
trace_style* trace::_trace_style = nullptr;
Hashtable* trace::_trace_tags = nullptr;
trace_stream* trace::_stream[2] = {nullptr, nullptr};
int trace::_curr_stream = 0;
int trace::_is_changing_phase = 0;
int trace::_curr_file_num = 0;
int trace::_tpc_file = -1;
long trace::_process_pid = 0;
unsigned long trace::_init_thread = 0;
char trace::_line_buffer[trace::name_size];
char trace::_tprefix[trace::name_size];
char trace::_tfile[trace::name_size];
int trace::_remote_settings_override_local = 0;
int trace::_remote_level = 0;
unsigned long trace::_remote_trace_size = 1000000;
int trace::_remote_trace_style = 0;
const char* trace::_remote_trace_tags = nullptr;

const char* trace_mark(int level) {
    switch (level) {
    case trace_fatal:
        return " [F] ";
    case trace_error:
        return " [E] ";
    case trace_warning:
        return " [W] ";
    default:
        return " [I] ";
    }
}

void trace::terminate() {
    if (!_stream[_curr_stream])
        return;
    delete _stream[_curr_stream];
    _stream[_curr_stream] = nullptr;
    delete _stream[1 - _curr_stream];
    _stream[1 - _curr_stream] = nullptr;
    delete _trace_style;
    _trace_style = nullptr;
}

void trace::get_current_time() {
    const int head = std::snprintf(_line_buffer, sizeof _line_buffer, "[%ld] ", _process_pid);
    const time_t now = ::time(nullptr);
    tm local{};
    ::localtime_r(&now, &local);
    if (std::strftime(_line_buffer + head, sizeof _line_buffer - static_cast<size_t>(head), "%c",
                      &local) == 0)
        _line_buffer[head] = 0;
}

int trace::prepare_header(const char* mark, const char* function) {
    if (!_stream[_curr_stream])
        return 0;
    const errno_keeper keeper;
    get_current_time();
    const size_t used = std::strlen(_line_buffer);
    std::snprintf(_line_buffer + used, sizeof _line_buffer - used, "%s%s ", mark, function);
    return 1;
}

void trace::prepare_text(const char* format, ...) {
    auto room = [] { return sizeof _line_buffer - std::strlen(_line_buffer); };
    auto end = [] { return _line_buffer + std::strlen(_line_buffer); };
    std::snprintf(end(), room(), " ");
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(end(), room(), format, arguments);
    va_end(arguments);
    std::snprintf(end(), room(), "\n");
}

void trace::write_trace_text(const char* format, ...) {
    trace_stream* stream = _stream[_curr_stream];
    if (!stream)
        return;
    const errno_keeper keeper;
    bool changed_here = false;
    if (_trace_size < static_cast<unsigned long>(stream->size()) + std::strlen(_line_buffer) &&
        !_is_changing_phase) {
        get_trace_file(1);
        delete _stream[1 - _curr_stream];
        _stream[1 - _curr_stream] = new stdio_trace_stream(_tfile);
        _curr_stream = 1 - _curr_stream;
        _is_changing_phase = 1;
        changed_here = true;
    }
    va_list arguments;
    va_start(arguments, format);
    _stream[_curr_stream]->writeline(_line_buffer, format, arguments);
    va_end(arguments);
    if (_is_changing_phase && !changed_here) {
        delete _stream[1 - _curr_stream];
        _stream[1 - _curr_stream] = nullptr;
        _is_changing_phase = 0;
    }
}

void trace::set_remote_values(int override_local, int level, unsigned long size, int style,
                              const char* tags) {
    _remote_settings_override_local = override_local;
    _remote_level = level;
    _remote_trace_size = size;
    _remote_trace_style = style;
    _remote_trace_tags = tags;
}

const char* trace::system_error_to_string(unsigned n) {
    static char text[64];
    std::snprintf(text, sizeof text, "System error %ld\n", static_cast<long>(n));
    return text;
}

const char* trace::last_system_error_to_string() {
    return system_error_to_string(static_cast<unsigned>(errno));
}

namespace {

// Number in the counter file, 1 where there is none.
int counter_in(int descriptor) {
    char text[26] = "";
    const ssize_t got = ::pread(descriptor, text, sizeof text - 1, 0);
    const long number = got > 0 ? std::strtol(text, nullptr, 10) : 1;
    return number < 1 || number > INT_MAX ? 1 : static_cast<int>(number);
}

} // namespace

void trace::get_trace_file(int exists) {
    const int number = exists ? counter_in(_tpc_file) : 1;
    const int same = _curr_file_num == number;
    char name_text[trace_style::name_size] = "", next_text[trace_style::next_size] = "";
    char *name = name_text, *next = next_text;
    _curr_file_num = _trace_style->get_next_file(number, &name, &next, same);
    std::snprintf(_tfile, sizeof _tfile, "%.*s%s.trc", name_size - 130, _tprefix, name);
    if (!same && exists)
        return;
    char line[trace_style::next_size + 1];
    const int size = std::snprintf(line, sizeof line, "%s\n", next);
    // A counter that cannot be written costs the order of the files, never the caller.
    [[maybe_unused]] const ssize_t ignored =
        ::pwrite(_tpc_file, line, static_cast<size_t>(size), 0);
    _trace_style->get_next_file(_curr_file_num, &name, &next, 1);
    char ahead[name_size];
    std::snprintf(ahead, sizeof ahead, "%.*s%s.trc", name_size - 130, _tprefix, name);
    if (std::strcmp(ahead, _tfile) != 0)
        ::unlink(ahead);
}

func_tracer::func_tracer(const char* name, int at_level) : name_(name) {
    if (trace::level() < at_level || !trace::check_tags("common"))
        return;
    entered_ = 1;
    if (trace::prepare_header(" [I] ", name_))
        trace::write_trace_text("%s", ">>>> ENTRY >>>>> ");
}

func_tracer::~func_tracer() {
    if (entered_ && trace::prepare_header(" [I] ", name_))
        trace::write_trace_text("%s", "<<<<< EXIT <<<<<");
}

q_entrypoint::q_entrypoint(const char* name) {
    if (!q_profiler::profiler_enabled() || q_profiler::halted() ||
        !q_profiler::is_entry_enabled(name))
        return;
    name_ = ::strdup(name);
    for (char* c = name_; c && *c; ++c)
        if (*c == ',')
            *c = '*';
    q_profiler::entry(name_);
}

q_entrypoint::q_entrypoint(const ustring& name) : q_entrypoint(name.mbcs_str()) {}

q_entrypoint::~q_entrypoint() {
    if (!name_)
        return;
    q_profiler::exit(name_);
    std::free(name_);
}

} // namespace km
