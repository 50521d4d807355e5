// rule_book: what the rules file says, in the questions an importer has
// format: docs/formats/rules.md
// invariant: a question about a damaged rules file ends; circles of inheritance are passed over
#include "rule_book.h"

#include "base/msg_supp.h"
#include "base_configuration.h"
#include "pair.h"

#include <algorithm>
#include <set>
#include <sys/stat.h>

namespace km {

namespace {
// A file that was changed, or replaced, has another one.
std::string identity_of(const pathname& file) {
    struct stat about {};
    if (::stat(file.mbcs_str(), &about) != 0)
        return {};
    std::string text = file.mbcs_str();
    for (const long part :
         {static_cast<long>(about.st_dev), static_cast<long>(about.st_ino),
          static_cast<long>(about.st_size), static_cast<long>(about.st_mtim.tv_sec),
          about.st_mtim.tv_nsec, static_cast<long>(about.st_ctim.tv_sec), about.st_ctim.tv_nsec})
        text += " " + std::to_string(part);
    return text;
}
} // namespace

bool rule_book::load(spmessage& messages) {
    static std::shared_ptr<rules_checker> known;
    static std::string known_identity;
    static ustring
        signature; // as written: a version that is found valid goes into that of the rules
    constexpr long parse_error = 186;
    const pathname file = base_configuration().get_rules_file();
    const std::string identity = identity_of(file);
    if (known && identity == known_identity) {
        rules_ = known;
        rules_->signature = signature;
        return true;
    }
    rules_ = std::make_shared<rules_checker>();
    if (rules_->initialize(file)) {
        known = rules_;
        known_identity = identity;
        signature = rules_->signature;
        return true;
    }
    if (rules_->error_line < 0)
        messages.add(24L, file.mbcs_str(), "2");
    else
        messages.add(parse_error, std::to_string(rules_->error_line).c_str());
    return false;
}

const stanza_descriptor* rule_book::stanza(const std::string& name, const std::string& context,
                                           std::string& key) const {
    ustring wanted(name.c_str());
    const ustring where(context.c_str());
    const auto* found = rules_->get_stanza_descriptor(wanted, where);
    key = wanted.mbcs_str();
    return found && found->has_context(where) ? found : nullptr;
}

const attribute_descriptor* rule_book::attribute(const std::string& name,
                                                 const std::string& key) const {
    return rules_->get_attribute_descriptor(ustring(name.c_str()), ustring(key.c_str()));
}

namespace {
const stanza_descriptor* find_stanza(const rules_checker& rules, const std::string& key) {
    return dynamic_cast<const stanza_descriptor*>(rules.stanzas.get(ustring(key.c_str())));
}
} // namespace

std::vector<std::string> texts_of(const vector& list) {
    std::vector<std::string> all;
    for (int i = 0; i < list.size(); ++i)
        if (const auto* one = list.at<ustring>(i))
            all.emplace_back(one->mbcs_str());
    return all;
}

std::vector<std::string> choice_values(const attribute_descriptor& rule) {
    std::vector<std::string> all;
    for (int i = 0; i < rule.values.size(); ++i)
        if (const auto* one = rule.values.at<pair>(i))
            all.emplace_back(one->get_value().mbcs_str());
    return all;
}

std::string choices_text(const attribute_descriptor& rule) {
    const auto all = choice_values(rule);
    std::string text;
    for (size_t i = 0; i < all.size(); ++i)
        text += (i == 0 ? "'" : i + 1 == all.size() ? " or '" : ", '") + all[i] + "'";
    return text;
}

// Each stanza that lends attributes is visited once.
template <class Visit> void rule_book::each_attribute(const std::string& key, Visit visit) const {
    std::set<std::string> seen{key};
    std::vector<std::string> open{key};
    while (!open.empty()) {
        const auto* stanza = find_stanza(*rules_, open.back());
        open.pop_back();
        if (!stanza)
            continue;
        for (Keyslist at(stanza->attributes); at.hasMoreElements();) {
            const auto* entry = at.next_entry();
            const auto* name = dynamic_cast<const ustring*>(entry->get_key());
            const auto* rule = dynamic_cast<const attribute_descriptor*>(entry->get_value());
            if (name && rule)
                visit(std::string(name->mbcs_str()), *rule);
        }
        for (const auto& one : texts_of(stanza->inherits))
            if (seen.insert(one).second)
                open.push_back(one);
    }
}

std::vector<std::string> rule_book::attributes_of(const std::string& key) const {
    std::set<std::string> names;
    each_attribute(key, [&](const std::string& name, const attribute_descriptor&) {
        if (name != "*")
            names.insert(name);
    });
    return {names.begin(), names.end()};
}

std::vector<std::string> rule_book::mandatory_of(const std::string& key) const {
    std::set<std::string> names;
    each_attribute(key, [&](const std::string& name, const attribute_descriptor& rule) {
        if (rule.mandatory)
            names.insert(name);
    });
    return {names.begin(), names.end()};
}

std::vector<std::string> rule_book::stanzas_in(const std::string& context) const {
    std::set<std::string> names;
    const ustring where(context.c_str());
    for (Keyslist at(rules_->stanzas); at.hasMoreElements();) {
        const auto* entry = at.next_entry();
        const auto* name = dynamic_cast<const ustring*>(entry->get_key());
        const auto* stanza = dynamic_cast<const stanza_descriptor*>(entry->get_value());
        if (!name || !stanza || !stanza->has_context(where))
            continue;
        const std::string key = name->mbcs_str();
        names.insert(key.substr(0, key.find('.')));
    }
    return {names.begin(), names.end()};
}

bool rule_book::is_stanza(const std::string& name) const {
    const auto* found = find_stanza(*rules_, name);
    return found && found->context.size() > 0;
}

} // namespace km
