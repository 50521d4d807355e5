// rules_checker: reader of the rules that a text definition obeys
// format: docs/formats/rules.md
// invariant: every stanza in the table was read to its end; nothing here recurses
#include "rules_checker.h"

#include "base/uxl.h"
#include "file_channel.h"
#include "filter_channel.h"
#include "istream_reader.h"
#include "rule_values.h"
#include "tokenizer.h"
#include "tokens.h"
#include "trclog.h"

#include <cerrno>
#include <memory>
#include <set>
#include <sys/stat.h>
#include <vector>

namespace km {

namespace {

// The rules are a few thousand lines at most; whatever is larger is something else.
constexpr long most_bytes = 16L << 20;

// Hands out the bytes of whole characters only. The reader behind it ends the process at a byte
// that is none; a rules file is no reason to die, so it ends before such a byte, and says so.
class whole_characters : public filter_input_channel {
  public:
    explicit whole_characters(input_channel* inner) : filter_input_channel(inner) {}
    using filter_input_channel::read;
    int read() override {
        if (given_ == count_ && !refill())
            return -1;
        return static_cast<unsigned char>(bytes_[given_++]);
    }
    bool is_broken() const { return broken_; }
    // The line that the last character stands in.
    int line() const { return line_; }

  private:
    bool refill() {
        given_ = count_ = 0;
        while (!broken_) {
            const int byte = inner_->read();
            if (byte < 0) {
                broken_ = count_ > 0;
                break;
            }
            line_ += byte == '\n';
            bytes_[count_++] = static_cast<char>(byte);
            if (count_ == 1 && byte < 0x80) // a character in every code page of a locale
                return true;
            char16_t units[2];
            const int used = uxl_mbtowc(0, units, bytes_, static_cast<size_t>(count_));
            if (used >= 0)
                return true;
            broken_ = used == -1 || count_ == sizeof bytes_;
        }
        given_ = count_ = 0;
        return false;
    }

    char bytes_[8];
    unsigned count_ = 0;
    unsigned given_ = 0;
    bool broken_ = false;
    int line_ = 1;
};

// Behind each failure, so that its place can be found in a long trace. 0.
int quit() {
    KM_TRACE(trace_info, "common", "<><><><><> QUITTING");
    return 0;
}

int cannot_read(const pathname& path, int error) {
    KM_TRACE(trace_error, "common", "rulefile '%s' cannot be read. errno = %d", path.mbcs_str(),
             error);
    return quit();
}

// 0, or why the file is not read.
int reason_against(const pathname& path) {
    struct stat about {};
    if (::stat(path.mbcs_str(), &about) != 0)
        return errno;
    if (!S_ISREG(about.st_mode))
        return S_ISDIR(about.st_mode) ? EISDIR : EINVAL;
    return about.st_size > most_bytes ? EFBIG : 0;
}

void set_syntax(tokenizer& of) {
    for (const char c : {'*', ',', ':', '_', '-'})
        of.set_word_chars(c, c);
    of.set_comment_char('#');
}

// The text of the next token, empty if it is neither a word nor quoted.
ustring read_value(tokenizer& from) {
    const int kind = from.next_token();
    return kind == tokenizer::t_word || kind == '"' || kind == '\'' ? from.sval : ustring();
}

} // namespace

int rules_checker::initialize(const pathname& path) {
    KM_TRACE_FUNCTION("rules_checker::initialize");
    for (ustring* text : {&versions, &signature, &root})
        *text = ustring();
    stanzas.clear();
    error_line = -1;
    if (const int why = reason_against(path))
        return cannot_read(path, why);
    auto* bytes = new file_input_channel(path);
    whole_characters text(new buffered_input_channel(bytes, 8192));
    if (bytes->get_error())
        return cannot_read(path, bytes->get_handle().get_system_error());

    tokenizer from(new istream_reader(&text, 0));
    set_syntax(from);
    const int done = parse(from);
    if (bytes->get_error())
        return cannot_read(path, bytes->get_handle().get_system_error());
    if (text.is_broken()) {
        KM_TRACE(trace_error, "common", "bytes that are no characters in line %d", text.line());
        error_line = text.line();
        return quit();
    }
    error_line = done ? 0 : from.line;
    return done;
}

int rules_checker::parse(tokenizer& from) {
    if (!process_versions(from)) {
        KM_TRACE(trace_error, "common", "ERROR IN PROCESS VERSIONS.");
        return quit();
    }
    if (!process_signature(from)) {
        KM_TRACE(trace_error, "common", "ERROR IN PROCESS SIGNATURE.");
        return quit();
    }
    return process_stanzas(from);
}

int rules_checker::process_versions(tokenizer& from) {
    if (from.next_token() != tokenizer::t_word || !(from.sval == u"versions")) {
        KM_TRACE(trace_error, "common",
                 "SYNTAX ERROR PROCESSING VERSIONS. EXPECTED 'version' AND FOUND '%s'",
                 from.sval.mbcs_str());
        return quit();
    }
    if (from.next_token() != '=') {
        KM_TRACE(trace_error, "common", "SYNTAX ERROR PROCESSING VERSIONS. EXPECTED '=' SYMBOL");
        return quit();
    }
    versions = read_value(from);
    return versions.length() >= 3;
}

int rules_checker::process_signature(tokenizer& from) {
    if (from.next_token() != tokenizer::t_word || !(from.sval == u"signature")) {
        KM_TRACE(trace_error, "common",
                 "SYNTAX ERROR PROCESSING SIGNATURE. EXPECTED signature AND FOUND '%s'",
                 from.sval.mbcs_str());
        return quit();
    }
    if (from.next_token() != '=') {
        KM_TRACE(trace_error, "common", "SYNTAX ERROR PROCESSING SIGNATURE. EXPECTED = SYMBOL");
        return quit();
    }
    signature = read_value(from);
    return 1;
}

int rules_checker::process_stanzas(tokenizer& from) {
    while (from.next_token() == tokenizer::t_word) {
        const ustring name = from.sval;
        if (const int kind = from.next_token(); kind != '{') {
            KM_TRACE(trace_error, "common",
                     "SYNTAX ERROR PROCESSING RULES FILE. EXPECTED { AND FOUND '%c'", kind);
            return quit();
        }
        auto stanza = std::make_unique<stanza_descriptor>();
        if (!process_stanza(from, *stanza)) {
            KM_TRACE(trace_error, "common", "ERROR IN PROCESS ACTION '%s'", name.mbcs_str());
            return quit();
        }
        keep(name, stanza.release());
    }
    return 1;
}

// Takes the stanza over.
void rules_checker::keep(const ustring& name, stanza_descriptor* stanza) {
    const auto* first = stanza->context.at<ustring>(0);
    if (first && *first == u"root")
        root = name;
    auto* key = new ustring(name);
    if (first && stanzas.contains(key))
        *key += ustring(u".") + *first;
    if (!stanzas.put(key, stanza)) {
        delete key;
        delete stanza;
    }
}

int rules_checker::process_stanza(tokenizer& from, stanza_descriptor& into) {
    for (;;) {
        int kind = from.next_token();
        if (kind == '}')
            return 1;
        if (kind != tokenizer::t_word) {
            KM_TRACE(trace_error, "common", "ERROR PROCESSING ACTION. EXPECTED '}' AND FOUND '%d'",
                     kind);
            return quit();
        }
        const ustring name = from.sval;
        kind = from.next_token();
        if (kind == '=') {
            if (process_stanza_keyword(from, name, into))
                continue;
            KM_TRACE(trace_error, "common", "ERROR PROCESSING ACTION KEYWORD '%s'",
                     name.mbcs_str());
            return quit();
        }
        if (kind != '{') {
            KM_TRACE(trace_error, "common", "ERROR PROCESSING ACTION. INVALID TOKEN ID '%d'", kind);
            return quit();
        }
        auto attribute = std::make_unique<attribute_descriptor>();
        if (!process_stanza_attribute(from, *attribute)) {
            KM_TRACE(trace_error, "common", "ERROR PROCESSING ACTION ATTRIBUTE '%s'",
                     name.mbcs_str());
            return quit();
        }
        auto key = std::make_unique<ustring>(name);
        if (into.attributes.put(key.get(), attribute.get())) {
            key.release();
            attribute.release();
        }
    }
}

int rules_checker::process_stanza_keyword(tokenizer& from, const ustring& key,
                                          stanza_descriptor& into) {
    const ustring value = read_value(from);
    if (key == u"context") {
        value_to_list(value, into.context);
    } else if (key == u"inherits") {
        value_to_list(value, into.inherits);
    } else if (key == u"builder") {
        into.builder = value;
    } else {
        KM_TRACE(trace_error, "common", "ERROR PROCESSING ACTION'S KEYWORD: INVALID KEY '%s'",
                 key.mbcs_str());
        return quit();
    }
    return 1;
}

int rules_checker::process_stanza_attribute(tokenizer& from, attribute_descriptor& into) {
    for (;;) {
        const int kind = from.next_token();
        if (kind == '}')
            return 1;
        if (kind != tokenizer::t_word) {
            KM_TRACE(trace_error, "common", "ERROR PROCESSING ACTION. EXPECTED '}' AND FOUND '%d'",
                     kind);
            return quit();
        }
        const ustring key = from.sval;
        if (from.next_token() != '=') {
            KM_TRACE(trace_error, "common",
                     "ERROR PROCESSING ACTION ATTRIBUTE '%s'. EXPECTED = SYMBOL", key.mbcs_str());
            return quit();
        }
        if (!process_attribute_value(from, key, into))
            return 0;
    }
}

int rules_checker::process_attribute_value(tokenizer& from, const ustring& key,
                                           attribute_descriptor& into) {
    const ustring value = read_value(from);
    if (key == u"type") {
        into.type = value_to_type(value);
        if (into.type != attribute_descriptor::t_invalid)
            return 1;
        KM_TRACE(trace_error, "common",
                 "ERROR PROCESSING ACTION ATTRIBUTE. INVALID ATTRIBUTE TYPE '%s'",
                 value.mbcs_str());
        return quit();
    }
    if (key == u"mandatory") {
        into.mandatory = value == u"y";
        if (into.mandatory || value == u"n")
            return 1;
        KM_TRACE(trace_error, "common",
                 "ERROR PROCESSING ACTION ATTRIBUTE. INVALID ATTRIBUTE BOOLEAN VALUE '%s'",
                 value.mbcs_str());
        return quit();
    }
    if (key == u"default") {
        into.default_value = value;
        if (is_a_valid_default(value, into))
            return 1;
        KM_TRACE(trace_error, "common",
                 "ERROR PROCESSING ACTION ATTRIBUTE. INVALID ATTRIBUTE DEFAULT VALUE '%s'",
                 value.mbcs_str());
        return quit();
    }
    if (key == u"choice") {
        value_to_pair_list(value, into.values);
    } else if (key == u"range" || key == u"mask") {
        value_to_list(value, into.values);
    } else if (key == u"validation_rule") {
        into.validation_rule = value;
    } else if (key == u"object_builder") {
        into.object_builder = value;
    } else {
        KM_TRACE(trace_error, "common", "ERROR PROCESSING ACTION ATTRIBUTE. INVALID ATTRIBUTE '%s'",
                 key.mbcs_str());
        return quit();
    }
    return 1;
}

int rules_checker::validate_version(ustring& version) {
    vector known;
    tokenize(versions, known, u':');
    if (known.index_of(version) >= 0) {
        if (const auto at = signature.find(ustring(u"***")); at != ustring::npos)
            signature.replace(at, 3, version);
        return 1;
    }
    if (const auto* last = known.at<ustring>(known.size() - 1))
        version = *last;
    return 0;
}

stanza_descriptor* rules_checker::get_stanza_descriptor(ustring& name,
                                                        const ustring& context) const {
    auto* first = stanzas.get_as<stanza_descriptor>(name);
    if (!first || first->context.empty() || first->has_context(context))
        return first;
    const ustring key = name + u"." + context;
    auto* other = stanzas.get_as<stanza_descriptor>(key);
    if (!other)
        return first;
    name = key;
    return other;
}

attribute_descriptor* rules_checker::get_attribute_descriptor(const ustring& attribute,
                                                              const ustring& stanza) const {
    // A stanza that was asked has not had the attribute: a second look is needless, and a circle of
    // stanzas ends. The order is that of a walk in depth, by a list of its own instead of calls:
    // a file can make the way as long as it likes.
    std::set<const stanza_descriptor*> asked;
    std::vector<const ustring*> next{&stanza};
    while (!next.empty()) {
        const auto* one = stanzas.get_as<stanza_descriptor>(*next.back());
        next.pop_back();
        if (!one || !asked.insert(one).second)
            continue;
        if (auto* found = one->attributes.get_as<attribute_descriptor>(attribute))
            return found;
        for (int i = one->inherits.size() - 1; i >= 0; --i)
            next.push_back(one->inherits.at<ustring>(i));
    }
    return nullptr;
}

} // namespace km
