// expression_operators: operators of conditions and what they do
// no format
// invariant: an operation answers a boolean or an error, and changes no operand
#include "expression_operators.h"

#include "package_version.h"

#include <memory>
#include <vector>

namespace km {

namespace {

using types = value_t;
using test = bool (*)(const value_t& left, const value_t& right);

// What an operation does with two operands of these types.
struct pairing {
    value_t::types left;
    value_t::types right;
    test holds;
};

template <size_t n>
value_t by_types(const pairing (&pairings)[n], const value_t& left, const value_t& right) {
    for (const pairing& one : pairings)
        if (one.left == left.type && one.right == right.type)
            return value_t::from_boolean(one.holds(left, right));
    return value_t();
}

template <class order> bool numbers(const value_t& left, const value_t& right) {
    return order{}(left.number, right.number);
}

template <class order> bool texts(const value_t& left, const value_t& right) {
    return order{}(left.text.compare(right.text), 0);
}

template <class order> bool number_and_text(const value_t& left, const value_t& right) {
    return order{}(left.number, znp_atof(right.text));
}

template <class order> bool text_and_number(const value_t& left, const value_t& right) {
    return order{}(znp_atof(left.text), right.number);
}

template <class order> bool versions(const value_t& left, const value_t& right) {
    ustring wanted, wanted_version;
    sp_split_name(right.text, wanted, wanted_version);
    return left.any_entry([&](const ustring& name, const ustring& version) {
        return name.compare(wanted) == 0 &&
               order{}(compare_versions_znp(version, wanted_version), 0);
    });
}

template <class order> value_t ordered(const value_t& left, const value_t& right) {
    static constexpr pairing pairings[] = {
        {types::t_number, types::t_number, numbers<order>},
        {types::t_string, types::t_string, texts<order>},
        {types::t_number, types::t_string, number_and_text<order>},
        {types::t_string, types::t_number, text_and_number<order>},
        {types::t_installed, types::t_string, versions<order>},
    };
    return by_types(pairings, left, right);
}

bool same_boolean(const value_t& left, const value_t& right) {
    return left.boolean == right.boolean;
}

// A text is read as a condition writes it, behind its quote, so that its number is 0: conditions in
// use rely on it.
bool number_is_text(const value_t& left, const value_t& right) {
    return left.number == znp_atof(right.to_string());
}

bool text_is_number(const value_t& left, const value_t& right) {
    return number_is_text(right, left);
}

bool is_installed(const value_t& left, const value_t& right) { return left.contains(right.text); }

bool text_is_like(const value_t& left, const value_t& right) {
    return left.text.matches_pattern(right.text, 0);
}

bool installed_like(const value_t& left, const value_t& right) {
    ustring wanted, wanted_version;
    sp_split_name(right.text, wanted, wanted_version);
    return left.any_entry([&](const ustring& name, const ustring& version) {
        return name.matches_pattern(wanted, 0) && version.matches_pattern(wanted_version, 0);
    });
}

bool has_item(const value_t& left, const value_t& right) {
    return any_item(left.text,
                    [&](const ustring& item) { return ustring(item).strip() == right.text; });
}

bool both(const value_t& left, const value_t& right) { return left.boolean && right.boolean; }

bool either(const value_t& left, const value_t& right) { return left.boolean || right.boolean; }

struct row {
    const char16_t* name;
    operator_t::type kind;
    int input_priority;
    int stack_priority;
    operator_t::binary_operation binary_function;
    operator_t::unary_operation unary_function;
};

// clang-format off
constexpr row rows[] = {
    {u"NOT",      operator_t::unary,    20,  19, nullptr,                   operator_t::logical_not},
    {u">",        operator_t::binary,   13,  14, operator_t::greater,       nullptr},
    {u">=",       operator_t::binary,   13,  14, operator_t::greater_equal, nullptr},
    {u"<",        operator_t::binary,   13,  14, operator_t::less,          nullptr},
    {u"<=",       operator_t::binary,   13,  14, operator_t::less_equal,    nullptr},
    {u"==",       operator_t::binary,   11,  12, operator_t::equal_to,      nullptr},
    {u"!=",       operator_t::binary,   11,  12, operator_t::not_equal_to,  nullptr},
    {u"LIKE",     operator_t::binary,   11,  12, operator_t::like,          nullptr},
    {u"CONTAINS", operator_t::binary,   11,  12, operator_t::contains,      nullptr},
    {u"AND",      operator_t::binary,    9,  10, operator_t::logical_and,   nullptr},
    {u"OR",       operator_t::binary,    7,   8, operator_t::logical_or,    nullptr},
    {u"(",        operator_t::unary,  1000,   0, nullptr,                   nullptr},
    {u")",        operator_t::binary,    0, 999, nullptr,                   nullptr},
};
// clang-format on

std::unique_ptr<std::vector<operator_t>> table;

} // namespace

const operator_t operator_t::null;
const operator_t operator_t::open_parenthesis(u"(", unary, 1000, 0, nullptr, nullptr);
const operator_t operator_t::close_parenthesis(u")", binary, 0, 999, nullptr, nullptr);

void operator_t::initialize_statics() {
    if (table)
        return;
    table = std::make_unique<std::vector<operator_t>>();
    for (const row& r : rows)
        table->emplace_back(r.name, r.kind, r.input_priority, r.stack_priority, r.binary_function,
                            r.unary_function);
}

void operator_t::terminate_statics() { table.reset(); }

const operator_t* operator_t::find_operator(const ustring& name, type kind) {
    initialize_statics();
    for (const operator_t& one : *table)
        if (one.kind == kind && one.name == name)
            return &one;
    return nullptr;
}

operator_t operator_t::lookup_operator(const ustring& name, type kind) {
    const operator_t* found = find_operator(name, kind);
    return found ? *found : null;
}

ustring operator_t::to_string() const {
    return (kind == unary ? ustring(u"{") : ustring()) + name + ustring(u" ");
}

bool operator_t::operator==(const operator_t& other) const {
    return kind == other.kind && name == other.name;
}

bool operator_t::operator==(const codable& other) const {
    const auto* same = dynamic_cast<const operator_t*>(&other);
    return same && *this == *same;
}

value_t operator_t::logical_not(const value_t& operand) {
    return operand.type == value_t::t_boolean ? value_t::from_boolean(!operand.boolean) : value_t();
}

value_t operator_t::greater(const value_t& left, const value_t& right) {
    return ordered<std::greater<>>(left, right);
}

value_t operator_t::greater_equal(const value_t& left, const value_t& right) {
    return ordered<std::greater_equal<>>(left, right);
}

value_t operator_t::less(const value_t& left, const value_t& right) {
    return ordered<std::less<>>(left, right);
}

value_t operator_t::less_equal(const value_t& left, const value_t& right) {
    return ordered<std::less_equal<>>(left, right);
}

value_t operator_t::equal_to(const value_t& left, const value_t& right) {
    static constexpr pairing pairings[] = {
        {types::t_number, types::t_number, numbers<std::equal_to<>>},
        {types::t_string, types::t_string, texts<std::equal_to<>>},
        {types::t_boolean, types::t_boolean, same_boolean},
        {types::t_number, types::t_string, number_is_text},
        {types::t_string, types::t_number, text_is_number},
        {types::t_installed, types::t_string, is_installed},
    };
    return by_types(pairings, left, right);
}

value_t operator_t::not_equal_to(const value_t& left, const value_t& right) {
    return logical_not(equal_to(left, right));
}

value_t operator_t::like(const value_t& left, const value_t& right) {
    static constexpr pairing pairings[] = {
        {types::t_string, types::t_string, text_is_like},
        {types::t_installed, types::t_string, installed_like},
    };
    return by_types(pairings, left, right);
}

value_t operator_t::contains(const value_t& left, const value_t& right) {
    static constexpr pairing pairings[] = {
        {types::t_string, types::t_string, has_item},
        {types::t_installed, types::t_string, is_installed},
    };
    return by_types(pairings, left, right);
}

value_t operator_t::logical_and(const value_t& left, const value_t& right) {
    static constexpr pairing pairings[] = {{types::t_boolean, types::t_boolean, both}};
    return by_types(pairings, left, right);
}

value_t operator_t::logical_or(const value_t& left, const value_t& right) {
    static constexpr pairing pairings[] = {{types::t_boolean, types::t_boolean, either}};
    return by_types(pairings, left, right);
}

} // namespace km
