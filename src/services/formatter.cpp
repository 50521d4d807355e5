// formatter: one line of text out of a report, after a template
// format: docs/formats/report-template.md
// invariant: parsing ends with every template; what has no meaning writes nothing
#include "formatter.h"

#include "log_protocol.h"
#include "status_words.h"
#include "ustring_writer.h"

namespace km {

namespace {

using text_field = ustring log_protocol::*;

// From first_field on. A field without a text of the protocol has a case in formatter::field.
constexpr struct {
    const char* name;
    text_field text;
} fields[] = {
    {"distribution_id", &log_protocol::distribution_id},
    {"logger_name", nullptr},
    {"endpoint_name", &log_protocol::endpoint_name},
    {"operation_type", nullptr},
    {"operation_mode", nullptr},
    {"endpoint_id", &log_protocol::endpoint_id},
    {"endpoint_guid", &log_protocol::endpoint_guid},
    {"spo_oid", &log_protocol::spo_oid},
    {"base_name", &log_protocol::base_name},
    {"base_version", &log_protocol::base_version},
    {"base_oid", &log_protocol::base_oid},
    {"origin_user", &log_protocol::origin_user},
    {"exec_time", &log_protocol::exec_time},
    {"message", &log_protocol::message},
    {"exit_codes_msg", &log_protocol::exit_codes_msg},
    {"state", nullptr},
    {"name", &log_protocol::name},
    {"version", &log_protocol::version},
    {"spname", &log_protocol::spname},
    {"pathname", nullptr},
    {"exception", nullptr},
    {"primary", nullptr},
    {"listeners", nullptr},
};

enum other_field : int {
    f_logger_name = 4,
    f_operation_type = 6,
    f_operation_mode = 7,
    f_state = 18,
    f_pathname = 22,
    f_exception = 23,
    f_primary = 24,
    f_listeners = 25
};

constexpr int field_count = static_cast<int>(sizeof fields / sizeof *fields);
static_assert(formatter_token::first_field + field_count - 1 == formatter_token::last_field);

ustring state_text(long state) {
    char letters[6];
    dbstatus_to_str(state, letters);
    return ustring(letters);
}

} // namespace

void formatter_token::kind_list(ustring& names) {
    for (int i = 0; i < field_count; ++i) {
        if (i)
            names += u", ";
        names += fields[i].name;
    }
}

int formatter_token::choose_kind(const ustring& name) {
    for (int i = 0; i < field_count; ++i)
        if (name == ustring(fields[i].name))
            return first_field + i;
    return literal;
}

void formatter::add(int kind, const ustring& text) {
    tokens_.push_back(new formatter_token(kind, text));
}

void formatter::flush_literal(ustring& text) {
    if (!text.empty())
        add(formatter_token::literal, text);
    text = ustring();
}

formatter::formatter(const char* format) {
    const ustring whole(format ? format
                               : "%distribution_id% %logger_name% [ %listeners% ] %endpoint_name%");
    ustring text;
    bool in_name = false, escape = false;
    for (unsigned i = 0; i < whole.length(); ++i) {
        const char16_t c = whole[i];
        if (escape) {
            if (c == u'n' || c == u't')
                add(c == u'n' ? formatter_token::line_end : formatter_token::tab);
            escape = false;
        } else if (c == u'%' && in_name) {
            if (text.empty())
                add(formatter_token::literal, ustring(u"%"));
            else
                add(formatter_token::choose_kind(text));
            text = ustring();
            in_name = false;
        } else if (c == u'%') {
            flush_literal(text);
            in_name = true;
        } else if (c == u'\\') {
            flush_literal(text);
            escape = true;
        } else {
            text += c;
        }
    }
    if (!in_name && !escape)
        flush_literal(text);
}

ustring formatter::_get_optype_str(long) { return ustring(); }
ustring formatter::_get_cmop_mode_str(long, long, int) { return ustring(); }

ustring formatter::field(int kind, const log_protocol& of) {
    if (const text_field text = fields[kind - formatter_token::first_field].text)
        return of.*text;
    switch (kind) {
    case f_operation_type:
        return _get_optype_str(of.operation_type);
    case f_operation_mode:
        return _get_cmop_mode_str(of.operation_type, of.operation_mode, 0);
    case f_state:
        return state_text(of.state);
    case f_pathname:
        return of.path.get_text();
    case f_exception:
        return ustring(of.exception ? u"exception" : u"no_exception");
    case f_primary:
        return ustring(of.primary ? u"primary" : u"not_primary");
    default:
        return ustring();
    }
}

void formatter::write_formatted(ustring_writer& to, const log_protocol& of,
                                const ustring& logger_name, const ustring& listeners) {
    ustring line;
    for (int i = 0; i < tokens_.size(); ++i) {
        const auto& token = *tokens_.at<formatter_token>(i);
        if (token.kind == formatter_token::line_end) {
            to.writeln(line);
            line = ustring();
        } else if (token.kind == formatter_token::tab) {
            to.write(line);
            to.write("\t");
            line = ustring();
        } else if (token.kind == formatter_token::literal) {
            line += token.text;
        } else if (token.kind == f_logger_name || token.kind == f_listeners) {
            line += token.kind == f_listeners ? listeners : logger_name;
        } else {
            line += field(token.kind, of);
        }
    }
    to.writeln(line);
}

} // namespace km
