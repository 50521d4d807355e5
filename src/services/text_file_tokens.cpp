// text_file_tokens: tokens inside the lines of a text file
// no format of its own
// invariant: what stands in front of a command's text stays as it was
#include "text_file.h"

#include "tokens.h"

namespace km {

namespace {

char16_t separator_or_default(char16_t separator) {
    return separator ? separator : text_file::token_separator;
}

ustring bare_token(const ustring& token, char16_t separator) {
    ustring bare(token);
    bare.strip(ustring::both, separator);
    return bare;
}

} // namespace

bool text_file::token_exists(const ustring& name, const ustring& token, char16_t separator) const {
    separator = separator_or_default(separator);
    const long at = find_command(name);
    if (at < 0)
        return false;
    vector tokens;
    tokenize(line(at)->get_command_text(name), tokens, separator);
    return tokens.index_of(bare_token(token, separator)) >= 0;
}

void text_file::set_tokens(long index, const ustring& name, const vector& tokens,
                           char16_t separator) {
    ustring joined;
    tokens_to_string(tokens, joined, separator);
    replace_line_at_index(index, line(index)->get_command_key(name) + joined);
}

int text_file::add_token(const ustring& name, const ustring& token, int where, const ustring&,
                         char16_t separator) {
    read_before_edit();
    separator = separator_or_default(separator);
    const ustring bare = bare_token(token, separator);
    const long at = find_command(name);
    if (at < 0) {
        ustring text(name);
        text += command_separator;
        return add_line(text + bare, at_end);
    }
    vector tokens;
    tokenize(line(at)->get_command_text(name), tokens, separator);
    if (tokens.index_of(bare) >= 0)
        return 1;
    tokens.insert(bare.clone(), where == at_start ? 0 : tokens.size());
    set_tokens(at, name, tokens, separator);
    return 1;
}

int text_file::remove_token(const ustring& name, const ustring& token, int where,
                            char16_t separator) {
    read_before_edit();
    separator = separator_or_default(separator);
    const ustring bare = bare_token(token, separator);
    const long at = find_command(name);
    if (at < 0)
        return 0;
    vector tokens;
    tokenize(line(at)->get_command_text(name), tokens, separator);
    int hit = tokens.index_of(bare);
    for (int i = tokens.size(); where != at_start && i-- > 0;)
        if (*tokens.at<ustring>(i) == bare) {
            hit = i;
            break;
        }
    if (hit < 0)
        return 0;
    tokens.remove(hit);
    set_tokens(at, name, tokens, separator);
    return 1;
}

} // namespace km
