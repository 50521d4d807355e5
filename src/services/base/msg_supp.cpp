// base/msg_supp: building and listing numbered messages
// no format
// invariant: every argument is text before the caller's list of arguments ends
#include "base/msg_supp.h"

#include "base/bind_msg.h"
#include "base/spcatalog.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>

namespace km {

namespace {

const char illegal_text[] = "Format has illegal types, need standard catalog entry: %1$s";
const char null_text[] = "** Invalid String (NULL) Passed to make_msg_ent() **";
const char no_format_text[] = "*no format string*";
constexpr int most_positions = 100;

struct conversion {
    char type;
    bool is_long;
};

// Conversions of the format by position; false if there is an illegal one.
bool parse_format(const char* format, std::map<int, conversion>& found) {
    for (const char* at = format; (at = std::strchr(at, '%'));) {
        ++at;
        if (*at == '%') {
            ++at;
            continue;
        }
        const int position = std::atoi(at);
        while ((*at >= '0' && *at <= '9') || *at == '.')
            ++at;
        if (*at++ != '$')
            return false;
        const bool is_long = *at == 'l';
        at += is_long;
        if (!*at || !std::strchr("Xdouxs", *at) || position < 1 || position > most_positions ||
            (is_long && *at == 's'))
            return false;
        found.emplace(position, conversion{*at, is_long});
        ++at;
    }
    return true;
}

std::string errno_text() {
    const int error = errno;
    const char* words = error > 0 ? ::strerrordesc_np(error) : nullptr;
    return words ? words : "errno=" + std::to_string(error);
}

std::string argument_text(const conversion& how, va_list& arguments) {
    if (how.type == 's') {
        const char* text = va_arg(arguments, const char*);
        if (!text)
            return null_text;
        return std::strcmp(text, "$errno") == 0 ? errno_text() : text;
    }
    if (how.is_long) {
        const long value = va_arg(arguments, long);
        return how.type == 'd' ? std::to_string(value)
                               : std::to_string(static_cast<unsigned long>(value));
    }
    const int value = va_arg(arguments, int);
    return how.type == 'd' ? std::to_string(value) : std::to_string(static_cast<unsigned>(value));
}

} // namespace

message_entry make_msg_ent(const char* catalogue, long key, const char* format, va_list arguments) {
    message_entry entry;
    std::map<int, conversion> conversions;
    format = format ? format : no_format_text;
    if (!parse_format(format, conversions)) {
        entry.text = illegal_text;
        entry.arguments = StringList{format};
        return entry;
    }
    entry.catalogue = catalogue ? catalogue : "";
    entry.key = key;
    entry.text = format;
    StringList texts;
    va_list rest;
    va_copy(rest, arguments);
    for (const auto& [position, how] : conversions) {
        texts.resize(static_cast<size_t>(position));
        texts.back() = argument_text(how, rest);
    }
    va_end(rest);
    entry.arguments = texts;
    return entry;
}

void vAddMsg(XOpenMessage*& message, const char* catalogue, long key, const char* format,
             va_list arguments) {
    if (!message)
        message = new XOpenMessage;
    message->entries.push_back(make_msg_ent(catalogue, key, format, arguments));
}

spmessage::~spmessage() { reset(); }

void spmessage::reset() {
    std::free(bound_);
    delete message_;
    bound_ = nullptr;
    message_ = nullptr;
    dirty_ = count_ = 0;
}

void spmessage::added() {
    dirty_ = 1;
    ++count_;
}

void spmessage::add(long key, ...) {
    if (!is_spcatalog_key(key)) {
        add(("Unknown message " + std::to_string(key)).c_str());
        return;
    }
    va_list arguments;
    va_start(arguments, key);
    vAddMsg(message_, spcatalog[0], key, spcatalog[key], arguments);
    va_end(arguments);
    added();
}

void spmessage::add(const char* const* catalogue, long key, ...) {
    va_list arguments;
    va_start(arguments, key);
    vAddMsg(message_, catalogue[0], key, catalogue[key], arguments);
    va_end(arguments);
    added();
}

void spmessage::add(const char* text) {
    if (!message_)
        message_ = new XOpenMessage;
    // The text is an argument: a '%' in it is no conversion.
    message_->entries.push_back({"", "%1$s", 0, StringList{text ? text : null_text}});
    added();
}

void spmessage::insert(spmessage* other) {
    if (!other || other == this)
        return;
    const char* own = bind();
    const std::string text = own ? own : "";
    reset();
    message_ = other->message_;
    count_ = other->count_;
    dirty_ = 1;
    other->message_ = nullptr;
    other->reset();
    if (!text.empty())
        add(text.c_str());
}

const char* spmessage::bind() {
    if (!message_)
        return nullptr;
    std::free(bound_);
    bound_ = znp_msg_bind(message_, nullptr, 0);
    dirty_ = 0;
    return bound_;
}

void spmessage::display(FILE* to) {
    if (!bound_ || dirty_)
        bind();
    std::string text = bound_ ? bound_ : "";
    for (size_t at; (at = text.find("\n\n")) != std::string::npos;)
        text.erase(at, 1);
    std::fprintf(to, "\n%s", text.c_str());
}

std::string spmessage::text_of(int index) const {
    if (!message_ || index < 0 || index >= static_cast<int>(message_->entries.size()))
        return "";
    char* text = ment_bind(message_->entries[static_cast<size_t>(index)], nullptr, 0);
    std::string out = text;
    std::free(text);
    return out;
}

std::string spmessage::id_of(int index) const {
    if (!message_ || index < 0 || index >= static_cast<int>(message_->entries.size()))
        return "";
    XOpenMessage one;
    one.entries.push_back(message_->entries[static_cast<size_t>(index)]);
    char* id = get_MsgId(&one);
    std::string out = id;
    std::free(id);
    return out;
}

} // namespace km
