// rule_values: tests and splitting of the values of rules
#pragma once

#include "rule_descriptors.h"

namespace km {

// Whether the first character is a digit, '-' or '+'. What follows is not looked at, and an empty
// text passes: definitions that older systems accepted stay accepted.
int is_number(const ustring& text);
// Whether the text is the value (not the key) of one of the pairs.
int is_a_choice(const ustring& text, const vector& values);
// Whether the number has no bit outside the sum of the values of the pairs.
int is_a_multichoice(const ustring& text, const vector& values);
// Whether the text is one number, or two separated by ',', and neither the first is below the first
// item of the range nor the last above its second. 0 if the range has fewer than two items. The two
// numbers are not compared with each other.
int is_a_valid_range(const ustring& text, const vector& range);
// By the type of the attribute: a single choice, a boolean ("y" or "n"), a numeric, a multi choice
// and a range are tested as above; a text passes for every other type, also while the type is not
// known.
int is_a_valid_default(const ustring& text, const attribute_descriptor& attribute);

// The type of a text ("boolean", "numeric" and so on); t_invalid if there is none.
attribute_descriptor::Type value_to_type(const ustring& text);
// The items of a text, separated by ',', as new ustrings at the end of the list; empty ones are
// dropped.
void value_to_list(const ustring& text, vector& list);
// The same as new pairs, each item split at its first ':'; one without it is key and value.
void value_to_pair_list(const ustring& text, vector& list);

} // namespace km
