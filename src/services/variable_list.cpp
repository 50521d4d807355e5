// variable_list: names and values in a chain, and their substitution
// format: docs/formats/coded-object.md
// invariants: a name is resolved at most once on the way down; every look-up is counted
#include "variable_list.h"

#include "char_traits.h"
#include "minmax_variables.h"
#include "pair.h"
#include "trclog.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace km {

namespace {

variable_list* chains[variable_list::purposes] = {nullptr, nullptr, nullptr};

constexpr unsigned most_characters = 4U << 20;
constexpr size_t most_levels = 64;
constexpr long most_lookups = 100000;

// Names that are being resolved, outermost first, and the look-ups of the outermost call.
std::vector<ustring> resolving;
long lookups = 0;
int depth = 0;

variable_list* searched_chain() {
    for (variable_list* chain : chains)
        if (chain)
            return chain;
    return nullptr;
}

ustring reference_to(const ustring& name) { return ustring(u"$(") + name + ustring(u")"); }

// A look-up hashes and copies its name: each kilobyte of one counts as a further look-up.
constexpr long name_unit = 1024;

bool budget_left() { return lookups <= most_lookups; }

bool may_look_up(const ustring& name) {
    if (!budget_left())
        return false;
    lookups += 1 + static_cast<long>(name.length()) / name_unit;
    if (!budget_left()) {
        KM_TRACE(trace_warning, "common", "too many look-ups of variables, the rest stays");
        return false;
    }
    const bool cycle = std::find(resolving.begin(), resolving.end(), name) != resolving.end();
    if (cycle || resolving.size() >= most_levels)
        KM_TRACE(trace_warning, "common", "variable %s is not resolved: %s", name.mbcs_str(),
                 cycle ? "it refers to itself" : "too many levels");
    return !cycle && resolving.size() < most_levels;
}

// The value that may stand for the reference, or null.
std::unique_ptr<ustring> value_for(variable_list& chain, const ustring& name, bool defined_only) {
    if (!may_look_up(name))
        return nullptr;
    resolving.push_back(name);
    std::unique_ptr<ustring> value(defined_only ? chain.check_defined(name)
                                                : chain.get_value(name));
    resolving.pop_back();
    if (value && value->find(reference_to(name)) != ustring::npos) {
        KM_TRACE(trace_warning, "common", "variable %s is not resolved: it refers to itself",
                 name.mbcs_str());
        return nullptr;
    }
    return value;
}

// Finds what closes a reference. References are walked from the right, so that only what lies
// before the last one is new; a text of nothing but openings would take its square otherwise.
class closings {
  public:
    ustring::size_type behind(const ustring& text, ustring::size_type from) {
        const auto end = std::min(seen_from_, text.length());
        const char16_t* hit =
            from < end ? string_char_traits::find(text.c_str() + from, end - from, u')') : nullptr;
        if (hit)
            nearest_ = static_cast<ustring::size_type>(hit - text.c_str());
        seen_from_ = from;
        return nearest_;
    }
    // The text has changed.
    void forget() { seen_from_ = nearest_ = ustring::npos; }

  private:
    ustring::size_type seen_from_ = ustring::npos;
    ustring::size_type nearest_ = ustring::npos;
};

struct outermost {
    outermost() {
        if (depth++ == 0)
            lookups = 0;
    }
    ~outermost() { --depth; }
};

int longer_value_first(const pair* a, const pair* b) {
    return a->get_value().length() > b->get_value().length();
}

} // namespace

int isAWinRegMacro(const ustring&) { return 0; }

variable_list& variable_list::operator=(const variable_list& other) {
    Hashtable::operator=(other);
    return *this;
}

variable_list::~variable_list() {
    for (variable_list*& chain : chains)
        if (chain == this)
            chain = nullptr;
    // Chains are short, but a loop is as easy as a recursion and never deep.
    for (variable_list* list = defaults_; list;) {
        variable_list* next = list->defaults_;
        list->defaults_ = nullptr;
        delete list;
        list = next;
    }
    delete substitute_cache_;
}

void variable_list::set_chain(purpose of, variable_list* chain) { chains[of] = chain; }

variable_list* variable_list::get_chain(purpose of) { return chains[of]; }

ustring* variable_list::own_value(const ustring& name) const {
    const auto* value = get_as<ustring>(name);
    return value ? new ustring(*value) : nullptr;
}

ustring* variable_list::resolved(ustring* value) {
    if (value)
        substitute_variables(*value);
    return value;
}

bool variable_list::mentions_itself(const ustring& name, const ustring& value) {
    return value.find(reference_to(name)) != ustring::npos;
}

ustring* variable_list::get_value(const ustring& name) {
    std::unique_ptr<ustring> value(own_value(name));
    if (!value && defaults_)
        value.reset(defaults_->get_value(name));
    if (value && mentions_itself(name, *value))
        return nullptr;
    return resolved(value.release());
}

ustring* variable_list::check_defined(const ustring& name) {
    std::unique_ptr<ustring> value(own_value(name));
    if (!value && defaults_)
        value.reset(defaults_->check_defined(name));
    if (value && mentions_itself(name, *value))
        return nullptr;
    return resolved(value.release());
}

ustring* variable_list::get_value_match_pattern(const ustring& name, int ignore_case) {
    for (Keyslist keys(*this); keys.hasMoreElements();) {
        const HashtableEntry* entry = keys.next_entry();
        const auto* key = dynamic_cast<const ustring*>(entry->get_key());
        const auto* value = dynamic_cast<const ustring*>(entry->get_value());
        if (key && value && name.matches_pattern(*key, ignore_case))
            return resolved(new ustring(*value));
    }
    return nullptr;
}

int variable_list::contains(const ustring& name) {
    for (variable_list* list = this; list; list = list->defaults_)
        if (list->get(name))
            return 1;
    return 0;
}

void variable_list::set_value(const ustring& name, const ustring& value) {
    update(new ustring(name), new ustring(value));
}

variable_list* variable_list::get_defaults() {
    variable_list* last = this;
    while (last->defaults_)
        last = last->defaults_;
    return last;
}

void variable_list::change_defaults(variable_list* list) {
    variable_list* before = this;
    while (before->defaults_ && before->defaults_->defaults_)
        before = before->defaults_;
    delete before->defaults_;
    before->defaults_ = list ? list : new variable_list;
}

int variable_list::substitute_variables(ustring& text) {
    variable_list* chain = searched_chain();
    // Nearly all texts of a package mention none.
    if (!chain || text.find(u'$') == ustring::npos)
        return 1;
    const outermost counted;
    int result = 1;
    closings closing;
    for (auto pos = text.rfind(u"$(", ustring::npos, 2); pos != ustring::npos;
         pos = text.rfind(u"$(", pos, 2)) {
        const auto end = closing.behind(text, pos + 2);
        if (end != ustring::npos) {
            const auto value = text.length() <= most_characters && budget_left()
                                   ? value_for(*chain, text.substr(pos + 2, end - pos - 2), false)
                                   : std::unique_ptr<ustring>();
            if (value) {
                text.replace(pos, end + 1 - pos, *value);
                closing.forget();
                continue;
            }
            if (pos < 2)
                break;
            result = 0;
        } else if (pos < 2) {
            break;
        }
        --pos;
    }
    const auto last = text.rfind(u"$(", ustring::npos, 2);
    const auto end = last == ustring::npos ? last : text.find(u')', last);
    if (end == ustring::npos)
        return result;
    const ustring name = text.substr(last + 2, end - last - 2);
    if (name == ustring(u"MIN") || name == ustring(u"MAX")) {
        const std::unique_ptr<ustring> found(minmax_variable_list::substitute_MinMax(text));
        if (found)
            text.replace(last, end + 1 - last, *found);
        result = 1;
    }
    return result;
}

void variable_list::add_pairs(const variable_list* head, const vector& excluded) {
    for (Keyslist keys(*this); keys.hasMoreElements();) {
        const HashtableEntry* entry = keys.next_entry();
        const auto* name = dynamic_cast<const ustring*>(entry->get_key());
        const auto* value = dynamic_cast<const ustring*>(entry->get_value());
        bool known = !name || !value || excluded.index_of(*name) >= 0;
        for (const variable_list* earlier = head; !known && earlier != this;
             earlier = earlier->defaults_)
            known = earlier->get(*name) != nullptr;
        if (known)
            continue;
        ustring text(*value);
        substitute_variables(text);
        if (!text.empty())
            const_cast<variable_list*>(head)->substitute_cache_->push_back(new pair(*name, text));
    }
}

void variable_list::start_substitute_values(const vector& excluded) {
    delete substitute_cache_;
    substitute_cache_ = new vector;
    for (variable_list* list = this; list; list = list->defaults_)
        list->add_pairs(this, excluded);
    std::vector<pair*> sorted;
    while (substitute_cache_->size())
        sorted.push_back(static_cast<pair*>(substitute_cache_->detach(0)));
    std::stable_sort(sorted.begin(), sorted.end(), longer_value_first);
    for (pair* one : sorted)
        substitute_cache_->push_back(one);
}

void variable_list::substitute_values(ustring& text) {
    if (!substitute_cache_)
        start_substitute_values(vector());
    for (int i = 0; i < substitute_cache_->size(); ++i) {
        const auto* one = substitute_cache_->at<pair>(i);
        // What was put in is not searched again: a value may occur in its own reference.
        text.change(one->get_value(), reference_to(one->get_key()));
    }
}

ustring variable_list::lookup_undefined_variables(const ustring& text) {
    const outermost counted;
    ustring copy(text);
    closings closing;
    for (auto pos = copy.rfind(u"$(", ustring::npos, 2); pos != ustring::npos;
         pos = copy.rfind(u"$(", pos, 2)) {
        const auto end = closing.behind(copy, pos + 2);
        if (end != ustring::npos) {
            const ustring name = copy.substr(pos + 2, end - pos - 2);
            const auto value = value_for(*this, name, true);
            if (!value)
                return isAWinRegMacro(name) ? ustring() : name;
            copy.replace(pos, end + 1 - pos, *value);
            closing.forget();
            continue;
        }
        if (pos < 2)
            break;
        --pos;
    }
    return ustring();
}

ustring* variable_list::variable_name(const ustring& name) {
    return new ustring(reference_to(name));
}

} // namespace km
