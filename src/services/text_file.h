// text_file: line-wise editing of a text file
#pragma once

#include "file.h"
#include "text_line.h"

namespace km {

// A text file in memory as lines, with edits by pattern and by command name. Lines lose blanks and
// tabs at both ends when they are read. Nothing reaches the disk before commit_changes; the
// destructor does not commit. The first edit reads the lines if nobody did; edits of a file that
// cannot be read work on no lines, and are never written over it. An index is -1 for "not found".
class text_file : public file {
  public:
    static char16_t command_separator; // '='
    static char16_t token_separator;   // ':'
    enum position : int {
        at_end = 0,
        at_start = 1,
        before_first = 2, // match of the reference; at the start if there is none
        before_last = 3,
        after_first = 4, // at the end if there is none
        after_last = 5
    };

    text_file() = default;
    explicit text_file(const pathname& path) : file(path) {}

    const text_line& operator[](long index) const;
    long line_count() const { return lines_.size(); }
    // Loads the lines if they are not loaded, or again with `force`; edits that were not committed
    // are lost then. A file that is not there has no lines. 0 if it is there and cannot be opened
    // or read to its end; the lines stay as they were.
    int read(int force = 0);
    // Writes what changed: the file comes new by temporary file, flush and rename (owner and mode
    // kept, a link followed); where the directory refuses that, in place. No lines left: the file
    // is removed. 0, and the changes are kept, if it could not be written whole.
    virtual int commit_changes();
    int is_changed() const { return changed_; }

    long find_line_matching_pattern(const ustring& pattern, long from = 0) const;
    // The same from the end.
    long find_last_line_matching_pattern(const ustring& pattern) const;
    long find_command(const ustring& name, long from = 0) const;
    long find_command_with_key(const ustring& name, const ustring& key, long from = 0) const;
    bool line_exists(const ustring& pattern) const {
        return find_line_matching_pattern(pattern) >= 0;
    }
    int add_line_at_index(const ustring& text, unsigned index);
    int add_line(const ustring& text, int where = at_end, const ustring& reference = ustring());
    // The first match; 1 if there was one.
    int remove_line(const ustring& pattern);
    int remove_line_at_index(long index);
    int replace_line_at_index(long index, const ustring& text);
    bool command_exists(const ustring& name, const ustring& key) const {
        return find_command_with_key(name, key) >= 0;
    }
    int replace_command(const ustring& name, const ustring& key, const ustring& text, int where,
                        const ustring& reference);
    int remove_command(const ustring& name, const ustring& key);

    // Tokens of the command `name`, separated by `separator` (0: token_separator).
    bool token_exists(const ustring& name, const ustring& token, char16_t separator = 0) const;
    int add_token(const ustring& name, const ustring& token, int where, const ustring& reference,
                  char16_t separator = 0);
    int remove_token(const ustring& name, const ustring& token, int where, char16_t separator = 0);

  protected:
    void mark_changed() { changed_ = 1; }
    text_line* line(long index) const { return lines_.at<text_line>(static_cast<int>(index)); }

  private:
    int load();
    void take_lines(vector& fresh);
    int write_lines(int descriptor) const;
    void read_before_edit();
    void set_tokens(long index, const ustring& name, const vector& tokens, char16_t separator);

    vector lines_;
    int read_ = 0;
    int changed_ = 0;
};

} // namespace km
