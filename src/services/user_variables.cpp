// user_variables: variables of a file, of the environment and of the command line
// format: docs/formats/variables-file.md
// invariants: no more than 4096 bytes of a variable file are held; `live` knows every file list
#include "user_variables.h"

#include "base/mrtwrap.h"
#include "base_configuration.h"
#include "text_file.h"
#include "trclog.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <vector>

namespace km {

user_file_variable_list* user_file_variable_list::singleton = nullptr;
environment_variable_list* environment_variable_list::singleton = nullptr;
command_line_variable_list* command_line_variable_list::singleton = nullptr;

namespace {

constexpr long most_loaded = 4096;

std::vector<user_file_variable_list*> live;

struct closer {
    void operator()(FILE* open) const { ::fclose(open); }
};

// Splits at the first '='; false if there is none.
bool split(const ustring& text, ustring& name, ustring& value) {
    const auto at = text.find(u'=');
    if (at == ustring::npos)
        return false;
    name = text.substr(0, at);
    value = text.substr(at + 1);
    strip_blanks(name);
    strip_blanks(value);
    return true;
}

// The same for a line of a variable file, which may also be a comment or empty.
bool split_line(ustring line, ustring& name, ustring& value) {
    strip_blanks(line);
    if (line[0] == u'#')
        return false;
    const bool found = split(line, name, value);
    if (!found && !line.empty())
        KM_TRACE(trace_warning, "common", "Invalid variable specification. Line skipped:\n%s",
                 line.mbcs_str());
    return found;
}

// The line of `lines` that defines the name, or -1. Several names may begin alike.
long line_of(const text_file& lines, const ustring& name) {
    const ustring pattern = name + ustring(u"*");
    ustring found;
    ustring value;
    for (long at = lines.find_line_matching_pattern(pattern); at >= 0;
         at = lines.find_line_matching_pattern(pattern, at + 1))
        if (split_line(lines[at].get_text(), found, value) && found == name)
            return at;
    return -1;
}

} // namespace

user_file_variable_list::user_file_variable_list()
    : file_(base_configuration().get_var(u"user_file_variables")), configured_(true) {
    live.push_back(this);
    load();
}

user_file_variable_list::user_file_variable_list(const pathname& file) : file_(file) {
    live.push_back(this);
    load();
}

user_file_variable_list::~user_file_variable_list() {
    live.erase(std::remove(live.begin(), live.end(), this), live.end());
}

void user_file_variable_list::load() {
    KM_TRACE_FUNCTION("user_file_variable_list::load");
    text_file lines(file_);
    if (!lines.is_file() || !lines.can_read()) {
        KM_TRACE(trace_warning, "common",
                 "The input file %s does not exist or it cannot be read. user variables cannot be "
                 "initialized",
                 file_.mbcs_str());
        return;
    }
    if (lines.get_size() > most_loaded || !lines.read())
        return;
    ustring name;
    ustring value;
    for (long at = 0; at < lines.line_count(); ++at)
        if (split_line(lines[at].get_text(), name, value))
            set_value(name, value);
    loaded_ = 1;
}

ustring* user_file_variable_list::scan(const ustring& name) {
    km::file source(file_);
    if (!source.is_file() || !source.can_read()) {
        KM_TRACE(trace_warning, "common",
                 "Variable file '%s' does not exist or it could not be read.", file_.mbcs_str());
        return nullptr;
    }
    const std::unique_ptr<FILE, closer> open(::fopen(file_.mbcs_str(), "re"));
    if (!open) {
        KM_TRACE(trace_warning, "common", "Variable file '%s' could not be opened. errno = %d",
                 file_.mbcs_str(), errno);
        return nullptr;
    }
    ustring found;
    ustring value;
    for (ustring line; line.getline(open.get());)
        if (split_line(line, found, value) && found == name) {
            set_value(name, value);
            return new ustring(value);
        }
    return nullptr;
}

ustring* user_file_variable_list::get_value(const ustring& name) {
    ustring* value = own_value(name);
    if (!value && !loaded_)
        value = scan(name);
    if (value)
        return resolved(value);
    return get_next() ? get_next()->get_value(name) : nullptr;
}

int user_file_variable_list::write() {
    KM_TRACE_FUNCTION("user_file_variable_list::write");
    text_file lines(file_);
    if (!lines.read())
        return 0;
    for (Keyslist keys(*this); keys.hasMoreElements();) {
        const HashtableEntry* entry = keys.next_entry();
        const auto* name = dynamic_cast<const ustring*>(entry->get_key());
        const auto* value = dynamic_cast<const ustring*>(entry->get_value());
        if (!name || !value)
            continue;
        const ustring text = *name + ustring(u" = ") + *value;
        const long at = line_of(lines, *name);
        if (at < 0) {
            lines.add_line(text);
            continue;
        }
        lines.remove_line_at_index(at);
        lines.add_line_at_index(text, static_cast<unsigned>(at));
    }
    return lines.commit_changes();
}

user_file_variable_list* user_file_variable_list::get_list() {
    if (!singleton)
        singleton = new user_file_variable_list;
    return singleton;
}

void user_file_variable_list::terminate() {
    delete singleton;
    singleton = nullptr;
}

void user_file_variable_list::refresh() {
    const pathname configured(base_configuration().get_var(u"user_file_variables"));
    for (user_file_variable_list* list : live) {
        if (!list->configured_)
            continue;
        list->file_ = configured;
        list->clear();
        list->loaded_ = 0;
        list->load();
    }
}

ustring* environment_variable_list::get_value(const ustring& name) {
    if (const char* value = cpl_getenv(name.mbcs_str()))
        return resolved(new ustring(value));
    return get_next() ? get_next()->get_value(name) : nullptr;
}

environment_variable_list* environment_variable_list::get_list() {
    if (!singleton)
        singleton = new environment_variable_list;
    return singleton;
}

void environment_variable_list::terminate() {
    delete singleton;
    singleton = nullptr;
}

void command_line_variable_list::build(const _sequence_string* sequence) {
    KM_TRACE_FUNCTION("command_line_variable_list::build");
    ustring name;
    ustring value;
    for (unsigned long i = 0; sequence && sequence->buffer && i < sequence->length; ++i) {
        if (!sequence->buffer[i])
            continue;
        if (split(sequence->buffer[i], name, value))
            set_value(name, value);
        else
            KM_TRACE(trace_warning, "common",
                     "Invalid variable specification. Command line variable skipped\n%s",
                     sequence->buffer[i]);
    }
}

command_line_variable_list* command_line_variable_list::get_list(const _sequence_string* sequence) {
    if (!singleton)
        singleton = new command_line_variable_list(sequence);
    return singleton;
}

void command_line_variable_list::terminate() {
    delete singleton;
    singleton = nullptr;
}

} // namespace km
