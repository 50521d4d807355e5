// expression_value: operands and results of conditions
// no format
// invariant: a number in a text has '.' as decimal point, whatever the locale
#include "expression_value.h"

#include "expression.h"
#include "package_version.h"
#include "variable_list.h"

#include <clocale>
#include <cstdlib>
#include <memory>

namespace km {

namespace {

const char16_t installed_mark[] = u"#installed_software#";

ustring local_point() { return ustring(std::localeconv()->decimal_point); }

ustring number_to_text(double number) {
    char text[400]; // the largest number has 309 digits
    std::snprintf(text, sizeof text, "%f", number);
    return ustring(text).change(local_point(), ustring(u"."));
}

} // namespace

int is_constant_number(const ustring& text) {
    const auto point = text.find(u'.');
    if (point != ustring::npos && text.find(u'.', point + 1) != ustring::npos)
        return 0;
    return !text.empty() && text.find_first_not_of(u"0123456789.", 0, 11) == ustring::npos;
}

int is_constant_boolean(const ustring& text) {
    return text == ustring(u"true") || text == ustring(u"false");
}

double znp_atof(const ustring& text) {
    ustring local(text);
    local.change(ustring(u"."), local_point());
    return std::strtod(local.mbcs_str(), nullptr);
}

bool any_item(const ustring& list, const std::function<bool(const ustring&)>& test) {
    for (ustring::size_type start = 0; start < list.length();) {
        const auto end = std::min(list.find(u';', start), list.length());
        if (end > start && test(list.substr(start, end - start)))
            return true;
        start = end + 1;
    }
    return false;
}

value_t value_t::from_text(const ustring& text, types type) {
    value_t value;
    value.type = type;
    value.text = text;
    return value;
}

value_t value_t::from_number(double number) {
    value_t value;
    value.type = t_number;
    value.number = number;
    return value;
}

value_t value_t::from_boolean(int boolean) {
    value_t value;
    value.type = t_boolean;
    value.boolean = boolean ? 1 : 0;
    return value;
}

ustring value_t::to_string() const {
    switch (type) {
    case t_string: {
        const ustring quote(1, text.find(u'"') == ustring::npos ? u'"' : u'\'');
        return quote + text + quote + ustring(u" ");
    }
    case t_number:
        return number_to_text(number) + ustring(u" ");
    case t_boolean:
        return boolean ? u"true " : u"false ";
    case t_variable:
        return ustring(u"$(") + text + ustring(u") ");
    case t_installed:
        return u"$(installed_software) ";
    case t_error:
        break;
    }
    return u"error ";
}

void value_t::resolve() {
    if (type != t_variable)
        return;
    variable_list* list = expression::get_variable_list();
    const std::unique_ptr<ustring> answer(list ? list->get_value(text) : nullptr);
    if (!answer)
        return;
    constexpr ustring::size_type mark = std::size(installed_mark) - 1;
    if (is_constant_number(*answer))
        *this = from_number(znp_atof(*answer));
    else if (is_constant_boolean(*answer))
        *this = from_boolean(*answer == ustring(u"true"));
    else if (answer->compare(0, mark, installed_mark, mark, 0) == 0)
        *this = from_text(answer->substr(mark), t_installed);
    else
        *this = from_text(*answer);
}

void value_t::substitute_variables() {
    variable_list* list = type == t_string ? expression::get_variable_list() : nullptr;
    if (list)
        list->substitute_variables(text);
}

bool value_t::any_entry(
    const std::function<bool(const ustring& name, const ustring& version)>& test) const {
    ustring name, version;
    return any_item(text, [&](const ustring& entry) {
        sp_split_name(entry, name, version);
        return test(name, version);
    });
}

bool value_t::contains(const ustring& name_and_version) const {
    ustring wanted, wanted_version;
    sp_split_name(name_and_version, wanted, wanted_version);
    return any_entry([&](const ustring& name, const ustring& version) {
        return name.compare(wanted) == 0 && version.compare(wanted_version) == 0;
    });
}

} // namespace km
