// minmax_variables: smallest and greatest of several values
// no format
// invariant: only regular files are candidates
#include "minmax_variables.h"

#include "file.h"
#include "trclog.h"

namespace km {

namespace {

constexpr int take_minimum = 1;
constexpr int take_maximum = 2;

ustring token_of(int which) { return ustring(which == take_minimum ? u"$(MIN)" : u"$(MAX)"); }

} // namespace

ustring* minmax_variable_list::substitute_MinMax(const ustring& text) {
    if (text.find(token_of(take_minimum)) != ustring::npos)
        return evaluate_MinMax(text, take_minimum);
    if (text.find(token_of(take_maximum)) != ustring::npos)
        return evaluate_MinMax(text, take_maximum);
    return nullptr;
}

ustring* minmax_variable_list::evaluate_MinMax(const ustring& text, int which) {
    KM_TRACE_FUNCTION("minmax_variable_list::evaluate_MinMax");
    const pathname path(text);
    const pathname directory = path.get_parent();
    const ustring name = path.get_file(), token = token_of(which);
    const auto at = name.find(token);
    vector names;
    if (at != ustring::npos && file(directory).is_directory())
        file(directory).list(names,
                             name.substr(0, at) + ustring(u"*") + name.substr(at + token.length()));
    const ustring* best = nullptr;
    for (int i = 0; i < names.size(); ++i) {
        const auto* entry = names.at<ustring>(i);
        if (entry->length() < at || !file(directory + *entry).is_file())
            continue;
        const int order = best ? best->compare(*entry) : 0;
        if (!best || (which == take_minimum ? order > 0 : order < 0))
            best = entry;
    }
    if (!best) {
        KM_TRACE(trace_warning, "common", "File MIN or MAX not found");
        return new ustring(token);
    }
    return new ustring(
        get_resolve_key(path.get_text(), directory.get_text() + ustring(u"\\") + *best));
}

ustring minmax_variable_list::get_resolve_key(const ustring& path, const ustring& resolved) {
    const auto a = path.find(u"$(", 0, 2), b = path.find(u')', a);
    const ustring rest = path.substr(b + 1);
    if (a >= resolved.length())
        return ustring();
    const ustring tail = resolved.substr(a);
    if (rest.empty())
        return tail;
    const auto k = tail.rfind(rest);
    return resolved.substr(a, k != ustring::npos ? k : b);
}

} // namespace km
