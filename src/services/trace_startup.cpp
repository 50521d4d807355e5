// trace_startup: start of the trace from the settings
// format: docs/formats/trace.md
// invariant: a process starts its trace once; with level 0 no file is made
#include "trclog.h"

#include "base_configuration.h"
#include "file.h"
#include "hashtable.h"
#include "profiler.h"
#include "tokenizer.h"
#include "trace_stream.h"
#include "trace_style.h"
#include "variable_list.h"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace km {

namespace {

constexpr int word_ranges[][2] = {{0x21, 0x21}, {0x23, 0x26}, {0x28, 0x2B}, {0x2D, 0x2F},
                                  {0x3A, 0x3A}, {0x3C, 0x40}, {0x5B, 0x60}};

// Gives the next tag of the text, false at its end; separators are passed over.
class tag_reader {
  public:
    explicit tag_reader(const char* text) : words_(new string_reader(ustring(text))) {
        for (const auto& range : word_ranges)
            words_.set_word_chars(range[0], range[1]);
    }
    bool next(ustring& tag) {
        for (;;) {
            const int kind = words_.next_token();
            if (kind == tokenizer::t_end)
                return false;
            if (kind == ',' || kind == ';')
                continue;
            tag = words_.sval;
            return true;
        }
    }

  private:
    tokenizer words_;
};

Hashtable* tags_of(const char* text) {
    if (!*text)
        return nullptr;
    auto table = std::make_unique<Hashtable>(21, 0.75F);
    tag_reader tags(text);
    for (ustring tag; tags.next(tag);) {
        if (tag == ustring(u"all"))
            return nullptr;
        table->put(tag, ustring());
    }
    return table.release();
}

std::string base_name(const char* name) {
    return std::string(name, std::strcspn(name, "0123456789."));
}

} // namespace

// What both ways of starting share; a friend of the trace.
class trace_settings {
  public:
    int level = 0;
    unsigned long size = 1000000;
    int style = 0;
    std::string tags;

    static bool begin() {
        std::setlocale(LC_ALL, "");
        if (trace::_stream[trace::_curr_stream] || trace::_init_thread)
            return false;
        trace::_init_thread = trace::getThreadID();
        trace::_level = 0;
        return true;
    }

    void read_local() {
        base_configuration settings;
        char* text = settings.get_trace_tags();
        size = settings.get_trace_size();
        style = settings.get_trace_style();
        level = settings.get_trace_level();
        tags = text ? text : "";
        std::free(text);
    }

    void apply_remote() {
        if (trace::_remote_level <= 0 || (!trace::_remote_settings_override_local && level != 0))
            return;
        level = trace::_remote_level;
        size = trace::_remote_trace_size;
        style = trace::_remote_trace_style;
        tags = trace::_remote_trace_tags ? trace::_remote_trace_tags : "";
    }

    void open(const char* name, const pathname& directory) const {
        if (level == 0)
            return;
        trace::_trace_tags = tags_of(tags.c_str());
        const pathname prefix = directory + ustring(base_name(name).c_str());
        std::snprintf(trace::_tprefix, sizeof trace::_tprefix, "%s", prefix.mbcs_str());
        const std::string counter = std::string(trace::_tprefix) + ".tpc";
        struct stat about {};
        const int existed = ::stat(counter.c_str(), &about) == 0;
        trace::_tpc_file = ::open(counter.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        trace::_process_pid = static_cast<long>(::getpid());
        trace::_trace_size = size;
        trace::_trace_style = trace::get_trace_style(style);
        trace::get_trace_file(existed);
        trace::_stream[trace::_curr_stream] = new stdio_trace_stream(trace::_tfile);
        trace::_level = level;
    }
};

void trace::initialize(const char* name, const char* dir) {
    if (!trace_settings::begin())
        return;
    q_profiler::init();
    trace_settings settings;
    const pathname directory(dir ? ustring(dir) : base_configuration().get_var(u"product_dir"));
    settings.read_local();
    settings.apply_remote();
    settings.open(name, directory);
}

namespace {

ustring value_of(const variable_list& vars, const char16_t* key, const char* fallback) {
    const auto* value = vars.get_as<ustring>(ustring(key));
    return value && !value->empty() ? *value : ustring(fallback);
}

} // namespace

void trace::initialize_webui(const char* name, const variable_list& vars) {
    if (!trace_settings::begin())
        return;
    trace_settings settings;
    pathname directory(value_of(vars, u"product_dir", ""));
    if (!directory.is_valid() || !file(directory).exists()) {
        const char* other = std::getenv("DBDIR");
        directory = pathname(other ? other : "");
    }
    settings.level =
        static_cast<int>(std::strtol(value_of(vars, u"trace_level", "0").mbcs_str(), nullptr, 10));
    settings.size = std::strtoul(value_of(vars, u"trace_size", "1000000").mbcs_str(), nullptr, 10);
    settings.open(name, directory);
}

int trace::check_tags(const char* tags) {
    if (!tags || !_trace_tags)
        return 1;
    // The lexer and the table are traced themselves: a question from inside is answered with no.
    static bool inside = false;
    if (inside)
        return 0;
    inside = true;
    const errno_keeper keeper;
    int found = 0;
    tag_reader wanted(tags);
    for (ustring tag; !found && wanted.next(tag);)
        found = _trace_tags->contains(&tag);
    inside = false;
    return found;
}

} // namespace km
