// win_profile: sections and keys of a profile file
#pragma once

#include "text_file.h"

namespace km {

// An initialisation file: [section] heads and key=value lines, edited line by line, so that
// comments and unknown lines survive. A section ends in front of the next head. Names in heads are
// patterns (case kept), items and keys are matched without case. The destructor commits.
class win_profile : public text_file {
  public:
    explicit win_profile(const pathname& path) : text_file(path) {}
    ~win_profile() override;

    // Makes the directory of a file that is not there; 0 if that fails.
    int check_path();
    int commit_changes() override;
    bool section_exists(const ustring& section);
    int create_section(const ustring& section);
    // With lines (ustrings), each as an item whose key is unique.
    int create_section(const ustring& section, const vector& lines);
    bool is_section_empty(long head_index) const;
    // True also if it does not exist.
    bool is_section_empty(const ustring& section);
    int delete_section(long head_index);
    // Without force a section that is not empty stays. 1 also if there is none.
    int delete_section(const ustring& section, int force);
    // Replaces the line with the same key (with `unique_key`), or adds a line at the section's end.
    int create_item(const ustring& item, const ustring& section, int unique_key);
    // The first line with the key, or with `all` every one.
    int delete_item_with_key(const ustring& key, const ustring& section, int all);
    int delete_item(const ustring& item, const ustring& section);
    bool item_with_key_exists(const ustring& key, const ustring& section);
    bool item_exists(const ustring& item, const ustring& section);
    // New ustrings at the end of `out`, in file order.
    void get_items_with_key(const ustring& key, const ustring& section, vector& out);
    void get_section_names(vector& out);
    void get_section_contents(const ustring& section, vector& out);

  private:
    void place_item(const ustring& item, const ustring& section, int unique_key);
    long find_head(const ustring& section);
    bool is_head(long index) const;
    long find_item(const ustring& pattern, const ustring& section, long from = 0);
};

} // namespace km
