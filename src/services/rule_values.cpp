// rule_values: tests and splitting of the values of rules
// format: docs/formats/rules.md
// invariant: a number out of the range of int counts as the nearest int
#include "rule_values.h"

#include "pair.h"
#include "tokens.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

namespace km {

namespace {

// By their number in attribute_descriptor::Type.
constexpr const char* type_texts[] = {
    nullptr,         "boolean",      "numeric",        "string", "pathname", "hex_buffer",
    "single_choice", "multi_choice", "character_mask", "object", "range"};

int to_int(const ustring& text) {
    const long number = std::strtol(text.mbcs_str(), nullptr, 10);
    return static_cast<int>(std::clamp(number, long{INT_MIN}, long{INT_MAX}));
}

} // namespace

int is_number(const ustring& text) {
    const char16_t first = text[0];
    return text.empty() || first == u'-' || first == u'+' || (first >= u'0' && first <= u'9');
}

int is_a_choice(const ustring& text, const vector& values) {
    for (int i = 0; i < values.size(); ++i)
        if (const auto* one = values.at<pair>(i); one && one->get_value() == text)
            return 1;
    return 0;
}

int is_a_multichoice(const ustring& text, const vector& values) {
    unsigned sum = 0;
    for (int i = 0; i < values.size(); ++i)
        if (const auto* one = values.at<pair>(i))
            sum += static_cast<unsigned>(to_int(one->get_value()));
    return (static_cast<unsigned>(to_int(text)) & ~sum) == 0;
}

int is_a_valid_range(const ustring& text, const vector& range) {
    const auto* minimum = range.at<ustring>(0);
    const auto* maximum = range.at<ustring>(1);
    vector ends;
    value_to_list(text, ends);
    if (!minimum || !maximum || ends.empty() || ends.size() > 2)
        return 0;
    const int low = to_int(*ends.at<ustring>(0));
    const int high = to_int(*ends.at<ustring>(ends.size() - 1));
    return low >= to_int(*minimum) && high <= to_int(*maximum);
}

int is_a_valid_default(const ustring& text, const attribute_descriptor& attribute) {
    switch (attribute.type) {
    case attribute_descriptor::t_single_choice:
        return is_a_choice(text, attribute.values);
    case attribute_descriptor::t_boolean:
        return text == u"y" || text == u"n";
    case attribute_descriptor::t_numeric:
        return is_number(text);
    case attribute_descriptor::t_multi_choice:
        return is_a_multichoice(text, attribute.values);
    case attribute_descriptor::t_range:
        return is_a_valid_range(text, attribute.values);
    default:
        return 1;
    }
}

attribute_descriptor::Type value_to_type(const ustring& text) {
    for (int type = attribute_descriptor::t_boolean; type <= attribute_descriptor::t_range; ++type)
        if (text == ustring(type_texts[type]))
            return static_cast<attribute_descriptor::Type>(type);
    return attribute_descriptor::t_invalid;
}

void value_to_list(const ustring& text, vector& list) { tokenize(text, list, u','); }

void value_to_pair_list(const ustring& text, vector& list) {
    vector items;
    value_to_list(text, items);
    for (int i = 0; i < items.size(); ++i) {
        const auto& item = *items.at<ustring>(i);
        const auto colon = item.find(u':');
        list.push_back(colon == ustring::npos
                           ? new pair(item, item)
                           : new pair(item.substr(0, colon), item.substr(colon + 1)));
    }
}

} // namespace km
