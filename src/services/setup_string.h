// setup_string: text with its quoting rules for set-up lines
#pragma once

#include "ustring.h"

namespace km {

// A text of the form key=value;key=value;. A key is looked for anywhere in the text, without a
// test that it begins an entry: NAME is also found in MY_NAME=1.
class setup_string {
  public:
    setup_string() = default;
    explicit setup_string(const ustring& text) : text_(text) {}

    const ustring& get_text() const { return text_; }
    ustring get_entry(const ustring& key) const;
    // Nothing for an empty value.
    void set_entry(const ustring& key, const ustring& value);
    void delete_entry(const ustring& key);

    ustring get_real_name() const { return get_entry(u"_REAL_NAME_"); }
    ustring get_object_class() const { return get_entry(u"_OBJECT_CLASS_"); }
    bool is_a_folder() const { return !get_entry(u"_IS_FOLDER_").empty(); }
    bool is_a_shadow() const { return !get_entry(u"_IS_SHADOW_").empty(); }

  private:
    // Start of the key and of its value, and the end of the value; false if the key is not there.
    bool locate(const ustring& key, unsigned& start, unsigned& value, unsigned& end) const;
    ustring text_;
};

} // namespace km
