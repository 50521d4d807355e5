// lint_findings: names of what lint finds, and the comments that allow it
// format: docs/DEFINITIONS.md
// invariant: a fault cannot be allowed, only what is doubtful
#include "lint_findings.h"

#include <algorithm>
#include <tuple>

namespace km {

namespace {

constexpr struct {
    import_message key;
    const char* name;
} findings[] = {
    {im_no_variable, "undefined-variable"},
    
    {im_not_put_back, "not-put-back"},
    {im_program_stays, "program-stays"},
    {im_no_source, "no-source"},
    {im_bad_source, "no-source"},
    {im_text_before, "replaced-text"},
};

bool is_before(text_place a, text_place b) {
    return std::tie(a.line, a.column) < std::tie(b.line, b.column);
}

} // namespace

const char* name_of_finding(import_message key) {
    for (const auto& one : findings)
        if (one.key == key)
            return one.name;
    return nullptr;
}

std::vector<std::string> names_of_findings() {
    std::vector<std::string> all;
    for (const auto& one : findings)
        if (std::find(all.begin(), all.end(), one.name) == all.end())
            all.emplace_back(one.name);
    return all;
}

// In the order of the text: a block in front of what it holds.
void allowed_findings::collect(const definition_block& block, std::vector<item>& items) {
    items.push_back({block.place, block.end});
    for (const auto& one : block.attributes)
        items.push_back({one.place, one.value_place});
    for (const auto& one : block.blocks)
        collect(*one, items);
}

const allowed_findings::item* allowed_findings::item_of(const definition_comment& comment,
                                                        const std::vector<item>& items) {
    const text_place from = comment.is_alone ? comment.place : text_place{comment.place.line, 1};
    const auto at = std::partition_point(
        items.begin(), items.end(), [&from](const item& one) { return is_before(one.from, from); });
    const bool fits =
        at != items.end() && (comment.is_alone || at->from.line == comment.place.line);
    return fits ? &*at : nullptr;
}

void allowed_findings::merge(std::vector<item>& ranges) {
    std::vector<item> apart;
    std::sort(ranges.begin(), ranges.end(),
              [](const item& a, const item& b) { return is_before(a.from, b.from); });
    for (const auto& one : ranges)
        if (apart.empty() || is_before(apart.back().until, one.from))
            apart.push_back(one);
        else if (is_before(apart.back().until, one.until))
            apart.back().until = one.until;
    ranges = std::move(apart);
}

allowed_findings::allowed_findings(const definition_file& file, definition_problems& problems) {
    if (file.comments.empty() || !file.root)
        return;
    const auto known = names_of_findings();
    std::vector<item> items;
    collect(*file.root, items);
    std::stable_sort(items.begin(), items.end(),
                     [](const item& a, const item& b) { return is_before(a.from, b.from); });
    for (const auto& comment : file.comments) {
        const item* of = item_of(comment, items);
        for (const auto& name : comment.allowed) {
            if (std::find(known.begin(), known.end(), name) == known.end())
                problems.add(im_no_finding, comment.place,
                             {name, hint_text(nearest_word(name, known))});
            else if (of)
                all_[name].push_back(*of);
        }
        if (comment.allowed.empty())
            problems.add(im_no_finding, comment.place, {"", ""});
    }
    for (auto& [name, ranges] : all_)
        merge(ranges);
}

bool allowed_findings::allows(import_message key, text_place place) const {
    const char* name = name_of_finding(key);
    const auto found = name ? all_.find(name) : all_.end();
    if (found == all_.end())
        return false;
    const auto& ranges = found->second;
    const auto behind =
        std::partition_point(ranges.begin(), ranges.end(),
                             [&place](const item& one) { return !is_before(place, one.from); });
    return behind != ranges.begin() && !is_before(std::prev(behind)->until, place);
}

} // namespace km
