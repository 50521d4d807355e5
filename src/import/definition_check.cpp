// definition_check: the blocks of a definition held against the rules
// no format
// invariant: every block and attribute is looked at, whatever was wrong before it
#include "definition_check.h"

#include "definition_references.h"

#include "expression.h"
#include "package_version.h"
#include "rule_values.h"

#include <charconv>
#include <limits>
#include <map>
#include <set>

namespace km {

bool whole_number(const std::string& text, int& number) {
    const char* from = text.data() + (text.starts_with('+') ? 1 : 0);
    const char* until = text.data() + text.size();
    const auto read = std::from_chars(from, until, number);
    return from != until && read.ec == std::errc() && read.ptr == until;
}

bool truth_value(const std::string& text, int& value) {
    static const std::map<std::string, int> words = {{"y", 1}, {"yes", 1}, {"true", 1},  {"1", 1},
                                                     {"n", 0}, {"no", 0},  {"false", 0}, {"0", 0}};
    const auto found = words.find(text);
    if (found == words.end())
        return false;
    value = found->second;
    return true;
}

void check_condition(const definition_attribute& one, definition_problems& problems) {
    if (one.value.empty())
        return;
    expression parsed(ustring(one.value.c_str()));
    if (parsed.infix2postfix())
        return;
    std::string why = parsed.error.mbcs_str(); // a message with its number in front
    if (why.starts_with("ZNPSE"))
        why.erase(0, why.find_first_of(' ') + 1);
    problems.add(im_no_condition, one.value_place, {one.name, why.substr(0, why.find('\n'))});
}

namespace {

constexpr char outermost[] = "root";

// Whether a character is one of a mask's items, "x" or "x-y".
bool fits_mask(unsigned char byte, const std::vector<std::string>& mask) {
    for (const auto& one : mask) {
        const auto first = static_cast<unsigned char>(one[0]);
        const bool range = one.size() == 3 && one[1] == '-';
        const auto last = static_cast<unsigned char>(range ? one[2] : one[0]);
        if (byte >= first && byte <= last && (range || one.size() == 1))
            return true;
    }
    return false;
}

bool is_hex(const std::string& text) {
    return text.size() % 2 == 0 &&
           text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

class checker {
  public:
    checker(rule_book& book, definition_problems& problems) : book_(book), problems_(problems) {}

    void check_root(const definition_file& file) {
        const std::string root = book_.root();
        if (!file.root)
            problems_.add(im_no_root, {1, 1}, {root});
        else
            check_block(*file.root, outermost);
    }

  private:
    // Names of blocks are few beside one another, so recursion is as deep as the blocks are.
    void check_block(const definition_block& block, const std::string& context) {
        std::string key;
        if (!book_.stanza(block.name, context, key)) {
            misplaced(block, context);
            return;
        }
        check_attributes(block, key);
        if (book_.is_free(key))
            check_circles(block, problems_);
        std::set<std::string> objects;
        for (const auto& inner : block.blocks) {
            const auto* rule = book_.attribute(inner->name, key);
            if (rule && rule->type == attribute_descriptor::t_object &&
                !objects.insert(inner->name).second)
                problems_.add(im_block_twice, inner->place, {inner->name});
            if (rule && rule->type != attribute_descriptor::t_object)
                problems_.add(im_is_attribute, inner->place, {inner->name});
            else
                check_block(*inner, block.name);
        }
    }

    // Costs time: nothing for faults that are not listed.
    template <class Known> std::string nearest(const std::string& word, Known known) const {
        return problems_.is_full() ? std::string() : nearest_word(word, known());
    }

    void misplaced(const definition_block& block, const std::string& context) {
        const std::string where = context == outermost ? "a definition" : context;
        if (book_.is_stanza(block.name))
            problems_.add(im_misplaced_block, block.place, {block.name, where});
        else
            problems_.add(im_unknown_block, block.place,
                          {block.name, where, hint_text(nearest(block.name, [&] {
                               return book_.stanzas_in(context);
                           }))});
    }

    void check_attributes(const definition_block& block, const std::string& key) {
        std::map<std::string, int> seen;
        misspelt_.clear();
        for (const auto& one : block.attributes) {
            const auto [first, fresh] = seen.try_emplace(one.name, one.place.line);
            if (!fresh)
                problems_.add(im_twice, one.place, {one.name, std::to_string(first->second)});
            check_attribute(one, block, key);
        }
        for (const auto& name : book_.mandatory_of(key))
            if (!seen.contains(name) && !block.find_block(name) && !misspelt_.contains(name))
                problems_.add(im_mandatory, block.place, {name, block.name});
    }

    void check_attribute(const definition_attribute& one, const definition_block& block,
                         const std::string& key) {
        const auto* rule = book_.attribute(one.name, key);
        if (!rule)
            rule = book_.attribute("*", key);
        if (rule && rule->type == attribute_descriptor::t_object)
            problems_.add(im_is_block, one.place, {one.name});
        else if (rule)
            check_value(one, *rule);
        else
            unknown(one, block, key);
    }

    void unknown(const definition_attribute& one, const definition_block& block,
                 const std::string& key) {
        const auto meant = nearest(one.name, [&] { return book_.attributes_of(key); });
        misspelt_.insert(meant);
        problems_.add(im_unknown_attribute, one.place, {one.name, block.name, hint_text(meant)});
    }

    void refuse(import_message message, const definition_attribute& one,
                std::vector<std::string> more = {}) {
        more.insert(more.begin(), {one.name, one.value});
        problems_.add(message, one.value_place, std::move(more));
    }

    void check_value(const definition_attribute& one, const attribute_descriptor& rule) {
        int value = 0;
        switch (rule.type) {
        case attribute_descriptor::t_boolean:
            if (!truth_value(one.value, value))
                refuse(im_not_boolean, one);
            break;
        case attribute_descriptor::t_numeric:
            if (!whole_number(one.value, value))
                refuse(im_not_number, one);
            break;
        case attribute_descriptor::t_range:
            check_range(one, rule);
            break;
        case attribute_descriptor::t_hex_buffer:
            if (!is_hex(one.value))
                refuse(im_not_hex, one);
            break;
        case attribute_descriptor::t_single_choice:
            check_choice(one, rule);
            break;
        case attribute_descriptor::t_multi_choice:
            check_choices(one, rule);
            break;
        case attribute_descriptor::t_character_mask:
            check_mask(one, rule);
            break;
        default:
            break;
        }
        check_rule(one, rule.validation_rule);
    }

    // References to variables are seen when they have values, but in a condition.
    void check_rule(const definition_attribute& one, const ustring& rule) {
        if (rule == ustring(u"condition")) {
            check_condition(one, problems_);
            return;
        }
        if (one.value.find("$(") != std::string::npos)
            return;
        const bool bad_version =
            rule == ustring(u"version") && !sp_check_version(ustring(one.value.c_str()));
        const bool bad_name =
            rule == ustring(u"name") &&
            (one.value.empty() || one.value.find_first_of(" \t/\n") != std::string::npos);
        if (bad_version || bad_name)
            refuse(im_refused_value, one);
    }

    void check_range(const definition_attribute& one, const attribute_descriptor& rule) {
        const auto ends = texts_of(rule.values);
        int value = 0, low = std::numeric_limits<int>::min(), high = 0;
        if (!whole_number(one.value, value))
            refuse(im_not_number, one);
        else if (ends.size() < 2 || !whole_number(ends[0], low) || !whole_number(ends[1], high) ||
                 value < low || value > high)
            refuse(im_out_of_range, one,
                   {ends.empty() ? "" : ends[0], ends.size() < 2 ? "" : ends[1]});
    }

    void check_choice(const definition_attribute& one, const attribute_descriptor& rule) {
        ustring key;
        if (!rule.find_choice_by_value(key, ustring(one.value.c_str())))
            refuse(im_not_choice, one,
                   {choices_text(rule),
                    hint_text(nearest(one.value, [&] { return choice_values(rule); }))});
    }

    // A sum of the numbers of choices.
    void check_choices(const definition_attribute& one, const attribute_descriptor& rule) {
        int value = 0;
        if (!whole_number(one.value, value))
            refuse(im_not_number, one);
        else if (!is_a_multichoice(ustring(one.value.c_str()), rule.values))
            refuse(im_not_choice, one, {choices_text(rule), ""});
    }

    void check_mask(const definition_attribute& one, const attribute_descriptor& rule) {
        const auto mask = texts_of(rule.values);
        std::string allowed;
        for (const auto& item : mask)
            allowed += (allowed.empty() ? "" : " ") + item;
        for (const char byte : one.value)
            if (!fits_mask(static_cast<unsigned char>(byte), mask)) {
                refuse(im_mask, one, {allowed});
                return;
            }
    }

    rule_book& book_;
    definition_problems& problems_;
    std::set<std::string> misspelt_; // attributes of the block that were meant; no more are missed
};

// The text must begin with the signature of a version that the rules know.
void check_signature(const definition_file& file, rules_checker& rules,
                     definition_problems& problems) {
    const std::string pattern = rules.signature.mbcs_str();
    const size_t mark = pattern.find("***");
    const std::string front = pattern.substr(0, mark);
    const bool fits = mark != std::string::npos && file.signature.starts_with(front);
    ustring version(fits ? file.signature.substr(front.size()).c_str() : "");
    const std::string given = version.mbcs_str();
    if (rules.validate_version(version))
        return;
    const std::string known = version.mbcs_str();
    if (fits)
        problems.add(im_version, file.signature_place, {given, front + known});
    else
        problems.add(im_signature, {1, 1}, {front + known});
}

} // namespace

void check_definition(const definition_file& file, rule_book& book, definition_problems& problems) {
    check_signature(file, book.rules(), problems);
    checker(book, problems).check_root(file);
}

} // namespace km
