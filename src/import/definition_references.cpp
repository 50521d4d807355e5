// definition_references: references of the values of a definition to variables
// format: docs/DEFINITIONS.md
// invariant: a look costs no more than the text is long, whatever the references say
#include "definition_references.h"

#include <map>

namespace km {

std::vector<std::string> references_in(const std::string& text) {
    std::vector<std::string> names;
    size_t open = std::string::npos; // behind the last "$(" that is not closed
    for (size_t at = 0; at < text.size(); ++at) {
        if (text.compare(at, 2, "$(") == 0) {
            open = ++at + 1;
        } else if (text[at] == ')' && open != std::string::npos) {
            names.push_back(text.substr(open, at - open));
            open = std::string::npos; // the name around it is known at run time only
        }
    }
    return names;
}

// Takes away, again and again, what refers to nothing that is left; the rest goes in a circle,
// or leads into one.
void check_circles(const definition_block& defaults, definition_problems& problems) {
    std::map<std::string, std::vector<const definition_attribute*>> users;
    std::map<const definition_attribute*, size_t> waits;
    for (const auto& one : defaults.attributes)
        users[one.name];
    std::vector<const definition_attribute*> settled;
    for (const auto& one : defaults.attributes) {
        for (const auto& name : references_in(one.value))
            if (const auto found = users.find(name); found != users.end()) {
                found->second.push_back(&one);
                ++waits[&one];
            }
        if (!waits.contains(&one))
            settled.push_back(&one);
    }
    while (!settled.empty()) {
        const auto* one = settled.back();
        settled.pop_back();
        for (const auto* user : users[one->name])
            if (--waits[user] == 0)
                settled.push_back(user);
    }
    for (const auto& [one, left] : waits)
        if (left)
            problems.add(im_circle, one->place, {one->name});
}

} // namespace km
