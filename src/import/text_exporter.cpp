// text_exporter: writes a text definition
// format: docs/DEFINITIONS.md
// invariant: what is written is read back by text_importer with the same meaning
#include "text_exporter.h"

#include "base/msg_supp.h"
#include "definition_check.h"
#include "durable.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace km {

namespace {

bool is_bare(const std::string& text) {
    if (text.empty())
        return false;
    for (const char byte : text)
        if (static_cast<unsigned char>(byte) <= ' ' || byte == 0x7F ||
            std::strchr("\"'#{}=\\", byte))
            return false;
    return true;
}

std::string quoted(const std::string& text) {
    if (is_bare(text))
        return text;
    const bool literal = text.find('"') != std::string::npos &&
                         text.find('\'') == std::string::npos &&
                         text.find_first_of("\n\r") == std::string::npos;
    if (literal)
        return "'" + text + "'";
    std::string out = "\"";
    for (const char byte : text) {
        if (byte == '\n' || byte == '\r')
            out += byte == '\n' ? "\\n" : "\\r";
        else if (byte == '"' || byte == '\\')
            out += std::string("\\") + byte;
        else
            out += byte;
    }
    return out + "\"";
}

} // namespace

text_exporter::~text_exporter() = default;

int text_exporter::open(const pathname& path) {
    spmessage unheard;
    good_ = false;
    open_file_ = false;
    if (!book_.load(unheard))
        return 0;
    path_ = path.mbcs_str();
    ustring version;
    book_.rules().validate_version(version); // the newest one
    std::string signature = book_.rules().signature.mbcs_str();
    if (const size_t mark = signature.find("***"); mark != std::string::npos)
        signature.replace(mark, 3, version.mbcs_str());
    text_ = signature + "\n";
    open_.clear();
    open_file_ = true;
    return 1;
}

void text_exporter::close() {
    if (!open_file_)
        return;
    open_file_ = false;
    const std::string beside = path_ + ".new";
    const int descriptor =
        ::open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
    size_t done = 0;
    while (descriptor >= 0 && done < text_.size()) {
        const ssize_t count = ::write(descriptor, text_.data() + done, text_.size() - done);
        if (count <= 0 && errno != EINTR)
            break;
        done += count > 0 ? static_cast<size_t>(count) : 0;
    }
    const bool closed = descriptor >= 0 && ::close(descriptor) == 0;
    good_ = closed && done == text_.size() &&
            rename_durably(pathname(beside.c_str()), pathname(path_.c_str()));
    if (!good_ && descriptor >= 0) {
        const int error = errno;
        ::unlink(beside.c_str());
        errno = error;
    }
}

const attribute_descriptor* text_exporter::rule_of(const char* name) const {
    return open_.empty() ? nullptr : book_.attribute(name, open_.back().key);
}

bool text_exporter::is_first(const char* name) {
    if (open_.empty())
        return false;
    auto& written = open_.back().written;
    if (std::find(written.begin(), written.end(), name) != written.end())
        return false;
    written.emplace_back(name);
    return true;
}

void text_exporter::put(const char* name, const std::string& value) {
    if (is_first(name))
        text_ += indent() + name + " = " + quoted(value) + "\n";
}

// A value that the rules give anyway is not written; nor is one that the language has no name for.
void text_exporter::put_boolean(const char* name, int value) {
    const auto* rule = rule_of(name);
    if (!rule)
        return;
    int usual = 0;
    truth_value(rule->default_value.mbcs_str(), usual);
    if ((value != 0) != (usual != 0))
        put(name, value ? "y" : "n");
}

void text_exporter::put_string(const char* name, const ustring& value) {
    const auto* rule = rule_of(name);
    if (!rule && !open_.empty() && book_.is_free(open_.back().key)) {
        put(name, value.mbcs_str());
        return;
    }
    if (rule && rule->type != attribute_descriptor::t_object &&
        (rule->mandatory || value != rule->default_value))
        put(name, value.mbcs_str());
}

void text_exporter::put_pathname(const char* name, const pathname& value) {
    put_string(name, ustring(value.mbcs_str()));
}

void text_exporter::put_integer(const char* name, int value) {
    const auto* rule = rule_of(name);
    if (!rule)
        return;
    ustring text(std::to_string(value).c_str());
    if (rule->type == attribute_descriptor::t_single_choice) {
        const ustring key = text;
        if (!rule->find_choice_by_key(key, text))
            return;
    }
    if (text != rule->default_value)
        put(name, text.mbcs_str());
}

void text_exporter::put_object(const char* name, const codable* value) {
    if (!value || !is_first(name))
        return;
    begin_stanza(name);
    value->export_(*this);
    end_stanza();
}

int text_exporter::is_shared_allowed() { return rule_of("is_shared") != nullptr; }

ustring text_exporter::current_stanza() {
    return open_.empty() ? ustring() : ustring(open_.back().name.c_str());
}

ustring text_exporter::stanza_context() {
    return open_.size() < 2 ? ustring() : ustring(open_[open_.size() - 2].name.c_str());
}

void text_exporter::begin_stanza(const char* name) {
    open_stanza fresh{name, {}, {}};
    book_.stanza(name, open_.empty() ? "root" : open_.back().name, fresh.key);
    text_ += (open_.empty() ? "" : "\n") + indent() + name + " {\n";
    open_.push_back(std::move(fresh));
}

void text_exporter::end_stanza() {
    if (open_.empty())
        return;
    open_.pop_back();
    text_ += indent() + "}\n";
}

extern "C" exporter* make_exporter() { return new text_exporter; }

extern "C" int exporter_wrote_all(const exporter* to) {
    const auto* text = dynamic_cast<const text_exporter*>(to);
    return text && text->good();
}

} // namespace km
