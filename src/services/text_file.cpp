// text_file: line-wise editing of a text file
// format: lines of text, each ended by a line feed
// invariant: a commit leaves the old or the new content
#include "text_file.h"

#include "durable.h"
#include "trclog.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace km {

char16_t text_file::command_separator = u'=';
char16_t text_file::token_separator = u':';

const text_line& text_file::operator[](long index) const {
    const text_line* one = index >= 0 && index <= INT_MAX ? line(index) : nullptr;
    return one ? *one : text_line::past_end();
}

int text_file::load() {
    FILE* in = std::fopen(get_path().mbcs_str(), "re");
    if (!in)
        return 0;
    vector fresh;
    for (ustring text; text.getline(in);) {
        strip_blanks(text);
        fresh.push_back(new text_line(text));
    }
    // A part of the lines must not stand for the file: a commit would cut it.
    const int good = !std::ferror(in);
    std::fclose(in);
    if (good)
        take_lines(fresh);
    return good;
}

void text_file::take_lines(vector& fresh) {
    lines_.clear();
    for (int i = 0; i < fresh.size(); ++i)
        lines_.push_back(fresh[i]);
    fresh.set_owns(0);
}

int text_file::read(int force) {
    KM_TRACE_FUNCTION("text_file::read");
    if (read_ && !force)
        return 1;
    if (!exists()) {
        lines_.clear();
    } else if (!load()) {
        read_ = 0;
        return 0;
    }
    changed_ = 0;
    read_ = 1;
    return 1;
}

void text_file::read_before_edit() {
    if (!read_)
        read();
}

int text_file::write_lines(int descriptor) const {
    std::string block;
    for (int i = 0; i < lines_.size(); ++i) {
        block += lines_.at<text_line>(i)->get_text().mbcs_str();
        block += '\n';
        if (block.size() > 65536 || i + 1 == lines_.size()) {
            if (!write_fully(descriptor, block.data(), block.size()))
                return 0;
            block.clear();
        }
    }
    return 1;
}

int text_file::commit_changes() {
    KM_TRACE_FUNCTION("text_file::commit_changes");
    if (!changed_)
        return 1;
    if (!read_ && exists())
        return 0;
    int done;
    if (lines_.empty()) {
        done = remove(0);
    } else {
        auto write = [this](int descriptor) { return write_lines(descriptor); };
        done = replace_durably(get_path(), 0644, write);
        const int error = done ? 0 : errno;
        if (error == EACCES || error == EPERM || error == EROFS || error == ENAMETOOLONG) {
            const int out = ::open(get_path().mbcs_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
            done = out >= 0 && write(out);
            if (out >= 0 && ::close(out) != 0)
                done = 0;
        }
    }
    if (done)
        changed_ = 0;
    return done;
}

long text_file::find_line_matching_pattern(const ustring& pattern, long from) const {
    for (long i = from < 0 ? 0 : from; i < lines_.size(); ++i)
        if (line(i)->get_text().matches_pattern(pattern, 0))
            return i;
    return -1;
}

long text_file::find_last_line_matching_pattern(const ustring& pattern) const {
    for (long i = lines_.size(); i-- > 0;)
        if (line(i)->get_text().matches_pattern(pattern, 0))
            return i;
    return -1;
}

long text_file::find_command(const ustring& name, long from) const {
    for (long i = from < 0 ? 0 : from; i < lines_.size(); ++i)
        if (line(i)->is_command(name))
            return i;
    return -1;
}

long text_file::find_command_with_key(const ustring& name, const ustring& key, long from) const {
    for (long i = from < 0 ? 0 : from; i < lines_.size(); ++i)
        if (line(i)->is_command_with_key(name, key))
            return i;
    return -1;
}

int text_file::add_line_at_index(const ustring& text, unsigned index) {
    read_before_edit();
    lines_.insert(new text_line(text), index > INT_MAX ? INT_MAX : static_cast<int>(index));
    changed_ = 1;
    return 1;
}

int text_file::add_line(const ustring& text, int where, const ustring& reference) {
    read_before_edit();
    long at = lines_.size();
    if (where == at_start) {
        at = 0;
    } else if (where == before_first || where == before_last) {
        at = where == before_first ? find_line_matching_pattern(reference)
                                   : find_last_line_matching_pattern(reference);
        at = at < 0 ? 0 : at;
    } else if (where == after_first || where == after_last) {
        at = where == after_first ? find_line_matching_pattern(reference)
                                  : find_last_line_matching_pattern(reference);
        at = at < 0 ? lines_.size() : at + 1;
    }
    return add_line_at_index(text, static_cast<unsigned>(at));
}

int text_file::remove_line_at_index(long index) {
    read_before_edit();
    if (index < 0 || index >= lines_.size())
        return 0;
    lines_.remove(static_cast<int>(index));
    changed_ = 1;
    return 1;
}

int text_file::replace_line_at_index(long index, const ustring& text) {
    read_before_edit();
    if (index < 0 || index >= lines_.size())
        return 0;
    line(index)->set_text(text);
    changed_ = 1;
    return 1;
}

int text_file::remove_line(const ustring& pattern) {
    read_before_edit();
    return remove_line_at_index(find_line_matching_pattern(pattern));
}

int text_file::replace_command(const ustring& name, const ustring& key, const ustring& text,
                               int where, const ustring& reference) {
    read_before_edit();
    return replace_line_at_index(find_command_with_key(name, key), text) ||
           add_line(text, where, reference);
}

int text_file::remove_command(const ustring& name, const ustring& key) {
    read_before_edit();
    return remove_line_at_index(find_command_with_key(name, key));
}

} // namespace km
