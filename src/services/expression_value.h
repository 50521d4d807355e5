// expression_value: operands and results of conditions
#pragma once

#include "ustring.h"

#include <functional>

namespace km {

// Digits and at most one '.': no sign, and a '.' alone passes. 1 or 0.
int is_constant_number(const ustring& text);
// Exactly "true" or "false". 1 or 0.
int is_constant_boolean(const ustring& text);
// The number at the start of the text, with '.' as decimal point in every locale; 0 if there is
// none.
double znp_atof(const ustring& text);

// Whether `test` accepts any item of a list that is separated by ';'; empty items do not count.
bool any_item(const ustring& list, const std::function<bool(const ustring& item)>& test);

// One operand or result. Never coded.
class value_t : public uncoded<codable> {
  public:
    enum types : int {
        t_string = 0,
        t_number = 1,
        t_boolean = 2,
        t_variable = 3,  // `text` is a name that is not resolved
        t_installed = 4, // `text` holds "name^version;" for each software
        t_error = 5
    };

    // An error.
    value_t() = default;
    static value_t from_text(const ustring& text, types type = t_string);
    static value_t from_number(double number);
    static value_t from_boolean(int boolean);

    // The value as a condition writes it, with a blank behind: text in double quotes (in single
    // ones if it holds a double one), a number with six decimals and '.', "true ", "$(name) ",
    // "$(installed_software) ", "error ".
    ustring to_string() const;
    // Turns a variable into what the list of expression::get_variable_list knows of it: a number, a
    // boolean, the installed software or a string. An unknown name, or no list, leaves it as it is.
    void resolve();
    // Resolves the references inside a string; other types stay.
    void substitute_variables();
    // Whether the installed software has exactly the name and version of the text "name^version".
    bool contains(const ustring& name_and_version) const;
    // Whether `test` accepts the name and version of any installed software.
    bool
    any_entry(const std::function<bool(const ustring& name, const ustring& version)>& test) const;

    codable* clone() const override { return new value_t(*this); }

    types type = t_error;
    double number = 0;
    int boolean = 0;
    ustring text;
};

} // namespace km
