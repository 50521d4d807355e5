// base/bind_msg: binding of messages to text
// no format
// invariant: a bad format gives readable words in asterisks, never a failure
#include "base/bind_msg.h"

#include "base/msg_catalogs.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace km {

namespace {

constexpr size_t longest_position = 399;
constexpr int deepest = 16; // messages within messages

std::string bind_text(const char* catalogue, const char* format, int set, long key,
                      const any& value, int depth);

std::string bind_entry(const message_entry& entry, int depth) {
    return bind_text(entry.catalogue.empty() ? nullptr : entry.catalogue.c_str(),
                     entry.text.c_str(), catalog_text_set, entry.key, entry.arguments, depth);
}

const char* kind_of(const any& value) {
    static const char* const names[] = {"none", "long",        "unsigned",      "double", "string",
                                        "time", "string list", "message entry", "message"};
    return names[value.index()];
}

any entry_value(const message_entry& entry) { return std::make_shared<message_entry>(entry); }

// Elements of a sequence; false if the value is none.
bool elements_of(const any& value, std::vector<any>& out) {
    if (const auto* list = std::get_if<StringList>(&value)) {
        for (const auto& text : *list)
            out.emplace_back(text);
        return true;
    }
    if (const auto* message = std::get_if<std::shared_ptr<XOpenMessage>>(&value)) {
        for (const auto& entry : (*message)->entries)
            out.push_back(entry_value(entry));
        return true;
    }
    return false;
}

// The value that one number of a path picks: 0 the value itself, n the n-th field. Field 1 of a
// message is its sequence, which stands for the message here.
any field_of(const any& value, long number) {
    if (number == 0 ||
        (number == 1 && std::holds_alternative<std::shared_ptr<XOpenMessage>>(value)))
        return value;
    std::vector<any> elements;
    if (!elements_of(value, elements))
        return number == 1 ? value : any();
    return number >= 1 && number <= static_cast<long>(elements.size())
               ? elements[static_cast<size_t>(number - 1)]
               : any();
}

any value_at(const any& value, const std::string& path) {
    any here = value;
    for (size_t start = 0; start < path.size();) {
        const size_t dot = path.find('.', start);
        const size_t end = dot == std::string::npos ? path.size() : dot;
        here = field_of(here, std::strtol(path.substr(start, end - start).c_str(), nullptr, 10));
        start = end + 1;
    }
    return here;
}

long as_long(const any& value) {
    if (const auto* number = std::get_if<long>(&value))
        return *number;
    if (const auto* number = std::get_if<unsigned long>(&value))
        return static_cast<long>(*number);
    if (const auto* number = std::get_if<double>(&value))
        return static_cast<long>(*number);
    if (const auto* when = std::get_if<time_value>(&value))
        return when->seconds;
    if (const auto* text = std::get_if<std::string>(&value))
        return std::strtol(text->c_str(), nullptr, 10);
    return 0;
}

double as_double(const any& value) {
    if (const auto* number = std::get_if<double>(&value))
        return *number;
    if (const auto* text = std::get_if<std::string>(&value))
        return std::strtod(text->c_str(), nullptr);
    return static_cast<double>(as_long(value));
}

std::string printed(const char* format, long value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

// Without an 'l' a number is one of 32 bits.
std::string number_text(char c, bool is_long, const any& value) {
    const long whole = as_long(value);
    const long low = is_long ? whole : static_cast<long>(static_cast<std::uint32_t>(whole));
    switch (c) {
    case 'd':
        return printed("%ld",
                       is_long ? whole : static_cast<long>(static_cast<std::int32_t>(whole)));
    case 'u':
        return printed("%lu", low);
    case 'o':
        return printed("%lo", low);
    case 'x':
        return printed("%lx", low);
    default:
        return printed("%lX", low);
    }
}

std::string text_of(const any& value) {
    if (const auto* text = std::get_if<std::string>(&value))
        return *text;
    if (std::holds_alternative<std::monostate>(value))
        return "";
    if (const auto* number = std::get_if<unsigned long>(&value))
        return std::to_string(*number);
    if (std::holds_alternative<long>(value))
        return std::to_string(as_long(value));
    if (std::holds_alternative<double>(value)) {
        char text[512];
        std::snprintf(text, sizeof text, "%f", as_double(value));
        return text;
    }
    return "*don't know what to do with fmt*";
}

std::string time_text(const char*& at, const any& value) {
    std::string format;
    if (!get_paren_field(at, format))
        return "*expecting paren field {} for time spec*";
    char text[400];
    const time_t seconds = as_long(value);
    tm local{};
    if (!::localtime_r(&seconds, &local) ||
        std::strftime(text, sizeof text, format.c_str(), &local) == 0)
        return "*strftime failed*";
    return text;
}

std::string message_text(const any& value, int depth) {
    if (depth >= deepest)
        return "*messages are nested too deeply*";
    if (const auto* entry = std::get_if<std::shared_ptr<message_entry>>(&value))
        return bind_entry(**entry, depth + 1);
    if (const auto* message = std::get_if<std::shared_ptr<XOpenMessage>>(&value)) {
        std::string out;
        for (const auto& entry : (*message)->entries)
            out += (out.empty() ? "" : "\n") + bind_entry(entry, depth + 1);
        return out;
    }
    return std::string("*given type `") + kind_of(value) + "' is not a message*";
}

std::string iteration_text(const char*& at, const any& value, int depth) {
    std::string item, separator, out;
    if (!get_paren_field(at, item))
        return "*expecting paren field {} after $I*";
    get_paren_field(at, separator);
    std::vector<any> elements;
    if (!elements_of(value, elements))
        return std::string("*expecting sequence or array for $I, got `") + kind_of(value) + "'*";
    for (size_t i = 0; i < elements.size(); ++i) {
        if (i)
            out += separator;
        out += bind_text(nullptr, item.c_str(), 0, 0, elements[i], depth + 1);
    }
    return out;
}

// The conversion behind a '%'; `at` moves behind it.
std::string conversion_text(const char*& at, const any& value, int depth) {
    std::string path;
    while (((*at >= '0' && *at <= '9') || *at == '.') && path.size() < longest_position)
        path += *at++;
    if (path.empty())
        return "*expecting positional #*";
    if (*at != '$')
        return "*expecting $*";
    ++at;
    const bool is_long = *at == 'l';
    at += is_long;
    const char c = *at;
    if (c)
        ++at;
    const any found = value_at(value, path);
    switch (c) {
    case 'd':
    case 'u':
    case 'o':
    case 'x':
    case 'X':
        return std::holds_alternative<std::monostate>(found) ? "" : number_text(c, is_long, found);
    case 'f': {
        char text[512];
        std::snprintf(text, sizeof text, "%f", as_double(found));
        return text;
    }
    case 's':
        return text_of(found);
    case 't':
        return time_text(at, found);
    case 'M':
        return message_text(found, depth);
    case 'I':
        return iteration_text(at, found, depth);
    default:
        return "*don't know what to do with fmt*";
    }
}

std::string bind_text(const char* catalogue, const char* format, int set, long key,
                      const any& value, int depth) {
    std::string text = format ? format : "*no format string*";
    if (catalogue && !get_msg(catalogue, set, key, text) && !format)
        return text;
    std::string out;
    for (const char* at = text.c_str(); *at;) {
        const size_t plain = std::strcspn(at, "%");
        out.append(at, plain);
        at += plain;
        if (!*at)
            break;
        ++at;
        if (*at == '%') {
            out += *at++;
        } else if (!*at) {
            out += "*bogus format %*";
        } else {
            out += conversion_text(at, value, depth);
        }
    }
    return out;
}

char* hand_out(const std::string& text, char* buffer, size_t size) {
    if (!buffer)
        return ::strdup(text.c_str());
    if (size == 0)
        return buffer;
    const size_t n = text.size() < size - 1 ? text.size() : size - 1;
    std::memcpy(buffer, text.data(), n);
    buffer[n] = 0;
    return buffer;
}

std::string id_text(const message_entry& entry) {
    if (entry.catalogue.empty() || entry.key == 0)
        return "";
    char number[32];
    std::snprintf(number, sizeof number, "%04u", static_cast<unsigned>(entry.key));
    return bind_text(entry.catalogue.c_str(), "ZNPSE", catalog_info_set, catalog_prefix_key, any(),
                     0) +
           number;
}

} // namespace

bool get_paren_field(const char*& from, std::string& field) {
    if (*from != '{')
        return false;
    int depth = 1;
    for (++from; *from; ++from) {
        if (*from == '{')
            ++depth;
        if (*from == '}' && --depth == 0) {
            ++from;
            return true;
        }
        field += *from;
    }
    return true;
}

char* real_msg_bind(const char* catalogue, const char* format, int set, long key, const any& value,
                    char* buffer, size_t size) {
    return hand_out(bind_text(catalogue, format, set, key, value, 0), buffer, size);
}

XOpenMessage* nrx_msg_new(const char* catalogue, long key, const char* text, const any& argument) {
    auto* message = new XOpenMessage;
    message->entries.push_back({catalogue ? catalogue : "", text ? text : "", key, argument});
    return message;
}

void nrx_msg_destroy(XOpenMessage* message) { delete message; }

char* nrx_msg_bind(const XOpenMessage* message, char* buffer, size_t size) {
    const any value = std::make_shared<XOpenMessage>(*message);
    return real_msg_bind(nullptr, "%1$I{%0$M}{\n}", 0, 0, value, buffer, size);
}

char* znp_msg_bind(const XOpenMessage* message, char* buffer, size_t size) {
    std::string out;
    for (size_t i = 0; i < message->entries.size(); ++i)
        out += (i ? "\n" : "") + id_text(message->entries[i]) + bind_entry(message->entries[i], 0);
    return hand_out(out, buffer, size);
}

char* get_MsgId(const XOpenMessage* message) {
    std::string out;
    for (const auto& entry : message->entries)
        out += id_text(entry);
    return hand_out(out, nullptr, 0);
}

char* ment_bind(const message_entry& entry, char* buffer, size_t size) {
    return hand_out(bind_entry(entry, 0), buffer, size);
}

char* msg_bind(const char* catalogue, long key, const char* text, const any& argument) {
    return real_msg_bind(catalogue, text, catalog_text_set, key, argument, nullptr, 0);
}

char* def_ex_bind(const mrt_exception& failure) {
    const StringList arguments(failure.arguments().begin(), failure.arguments().end());
    const char* catalogue = failure.catalog().empty() ? nullptr : failure.catalog().c_str();
    return msg_bind(catalogue, failure.key(), failure.text().c_str(), arguments);
}

} // namespace km
