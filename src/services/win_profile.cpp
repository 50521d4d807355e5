// win_profile: sections and keys of a profile file
// format: docs/formats/settings.md
// invariant: lines that no operation names stay where they are
#include "win_profile.h"

#include "trclog.h"

namespace km {

namespace {
ustring key_pattern(const ustring& key) { return key + ustring(u"=*"); }
} // namespace

win_profile::~win_profile() { win_profile::commit_changes(); }

int win_profile::check_path() { return exists() ? 1 : file(get_path().get_parent()).mk_tree(); }

int win_profile::commit_changes() {
    KM_TRACE_FUNCTION("win_profile::commit_changes");
    if (!is_changed())
        return 1;
    if (line_count() == 0) {
        if (text_file::commit_changes())
            return 1;
        KM_TRACE(trace_error, "common", "Attempted to remove empty INI file '%s' but failed",
                 get_path().mbcs_str());
        return 0;
    }
    if (check_path() && text_file::commit_changes())
        return 1;
    KM_TRACE(trace_error, "common",
             "Cannot save changes to the '%s' INI file. It cannot be written",
             get_path().mbcs_str());
    return 0;
}

bool win_profile::is_head(long index) const {
    return (*this)[index].get_text().matches_pattern(ustring(u"[*]*"), 0);
}

long win_profile::find_head(const ustring& section) {
    read();
    return find_line_matching_pattern(ustring(u"[") + section + ustring(u"]"));
}

long win_profile::find_item(const ustring& pattern, const ustring& section, long from) {
    const long head = find_head(section);
    if (head < 0)
        return -1;
    for (long i = head + 1; i < line_count() && !is_head(i); ++i)
        if (i >= from && (*this)[i].get_text().matches_pattern(pattern, 1))
            return i;
    return -1;
}

bool win_profile::section_exists(const ustring& section) { return find_head(section) >= 0; }

int win_profile::create_section(const ustring& section) {
    if (section_exists(section))
        return 1;
    add_line(ustring(u"[") + section + ustring(u"]"));
    return commit_changes();
}

// Written once: a section is there with all its lines, or not at all.
int win_profile::create_section(const ustring& section, const vector& lines) {
    if (find_head(section) < 0)
        add_line(ustring(u"[") + section + ustring(u"]"));
    for (int i = 0; i < lines.size(); ++i)
        if (const auto* line = lines.at<ustring>(i))
            place_item(*line, section, 1);
    return commit_changes();
}

bool win_profile::is_section_empty(long head_index) const {
    long at = head_index + 1;
    while (at < line_count() && (*this)[at].get_text().empty())
        ++at;
    return at >= line_count() || is_head(at);
}

bool win_profile::is_section_empty(const ustring& section) {
    const long head = find_head(section);
    return head < 0 || is_section_empty(head);
}

int win_profile::delete_section(long head_index) {
    if (!remove_line_at_index(head_index))
        return 0;
    while (head_index < line_count() && !is_head(head_index))
        remove_line_at_index(head_index);
    return 1;
}

int win_profile::delete_section(const ustring& section, int force) {
    const long head = find_head(section);
    if (head < 0 || (!force && !is_section_empty(head)))
        return 1;
    delete_section(head);
    return commit_changes();
}

void win_profile::place_item(const ustring& item, const ustring& section, int unique_key) {
    long at = find_head(section);
    if (at < 0) {
        add_line(ustring(u"[") + section + ustring(u"]"));
        at = line_count() - 1;
    }
    const auto equals = item.find(u'=');
    const bool by_key = unique_key && equals != ustring::npos;
    const ustring pattern = by_key ? key_pattern(item.substr(0, equals)) : item;
    for (++at; at < line_count() && !is_head(at); ++at) {
        const ustring& line = (*this)[at].get_text();
        if (!line.matches_pattern(pattern, 1))
            continue;
        if (line.compare(item, 1) == 0)
            return;
        if (unique_key)
            remove_line_at_index(at);
        break;
    }
    add_line_at_index(item, static_cast<unsigned>(at));
}

int win_profile::create_item(const ustring& item, const ustring& section, int unique_key) {
    place_item(item, section, unique_key);
    return commit_changes();
}

int win_profile::delete_item_with_key(const ustring& key, const ustring& section, int all) {
    const ustring pattern = key_pattern(key);
    do {
        const long at = find_item(pattern, section);
        if (at < 0)
            break;
        remove_line_at_index(at);
    } while (all);
    return commit_changes();
}

int win_profile::delete_item(const ustring& item, const ustring& section) {
    remove_line_at_index(find_item(item, section));
    return commit_changes();
}

bool win_profile::item_with_key_exists(const ustring& key, const ustring& section) {
    return find_item(key_pattern(key), section) >= 0;
}

bool win_profile::item_exists(const ustring& item, const ustring& section) {
    return find_item(item, section) >= 0;
}

void win_profile::get_items_with_key(const ustring& key, const ustring& section, vector& out) {
    const ustring pattern = key_pattern(key);
    for (long at = find_item(pattern, section); at >= 0; at = find_item(pattern, section, at + 1))
        out.push_back((*this)[at].get_text().clone());
}

void win_profile::get_section_names(vector& out) {
    read();
    for (long i = 0; i < line_count(); ++i)
        if (is_head(i)) {
            const ustring& line = (*this)[i].get_text();
            out.push_back(new ustring(line, 1, line.find(u']') - 1));
        }
}

void win_profile::get_section_contents(const ustring& section, vector& out) {
    const long head = find_head(section);
    for (long i = head + 1; head >= 0 && i < line_count() && !is_head(i); ++i)
        out.push_back((*this)[i].get_text().clone());
}

} // namespace km
