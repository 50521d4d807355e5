// rule_descriptors: what a stanza and an attribute of a definition may hold
// format: docs/formats/rules.md
// invariant: an attribute holds pairs or texts as values, and a look-up asks which
#include "rule_descriptors.h"

#include "pair.h"

namespace km {

int attribute_descriptor::find_choice_by_key(const ustring& key, ustring& value) const {
    for (int i = 0; i < values.size(); ++i)
        if (const auto* one = values.at<pair>(i); one && one->get_key() == key) {
            value = one->get_value();
            return 1;
        }
    return 0;
}

int attribute_descriptor::find_choice_by_value(ustring& key, const ustring& value) const {
    for (int i = 0; i < values.size(); ++i)
        if (const auto* one = values.at<pair>(i); one && one->get_value() == value) {
            key = one->get_key();
            return 1;
        }
    return 0;
}

} // namespace km
