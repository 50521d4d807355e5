// setup_string: text with its quoting rules for set-up lines
// no format of its own
// invariant: what set_entry writes, get_entry reads
#include "setup_string.h"

#include <algorithm>

namespace km {

bool setup_string::locate(const ustring& key, unsigned& start, unsigned& value,
                          unsigned& end) const {
    const ustring head = key + ustring(u"=");
    start = text_.find(head);
    if (start == ustring::npos)
        return false;
    value = start + head.length();
    end = std::min(text_.find(u';', value), text_.length());
    return true;
}

ustring setup_string::get_entry(const ustring& key) const {
    unsigned start, value, end;
    return locate(key, start, value, end) ? text_.substr(value, end - value) : ustring();
}

void setup_string::set_entry(const ustring& key, const ustring& value) {
    unsigned start, old, end;
    if (value.empty())
        return;
    if (locate(key, start, old, end))
        text_.replace(old, end - old, value);
    else
        text_ += key + ustring(u"=") + value + ustring(u";");
}

void setup_string::delete_entry(const ustring& key) {
    unsigned start, value, end;
    if (locate(key, start, value, end))
        text_.remove(start, std::min(end + 1, text_.length()) - start);
}

} // namespace km
