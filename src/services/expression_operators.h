// expression_operators: operators of conditions and what they do
#pragma once

#include "expression_value.h"

namespace km {

// One operator: how tightly it binds and what it computes. The table of all of them is made at the
// first look-up; one thread at a time may use it.
//
// Binary operators go by the types of both sides. Pairs that are not listed give an error value.
//   orderings    two numbers, two texts (order of text), a number and a text (read as a number),
//                installed software and a text: the order of versions of the same name
//   == !=        two numbers, texts or booleans; a number and a text: whether the number is 0;
//                installed software and a text: that name in that version
//   LIKE         a text and a pattern; installed software and a pattern for name and version
//   CONTAINS     an item of a text at ';'; installed software as ==
//   AND OR       two booleans
class operator_t : public uncoded<codable> {
  public:
    enum type : int { binary = 0, unary = 1 };
    using binary_operation = value_t (*)(const value_t& left, const value_t& right);
    using unary_operation = value_t (*)(const value_t& operand);

    // Null, the operator that is none.
    operator_t() = default;
    operator_t(const char16_t* operator_name, type operator_kind, int input, int stack,
               binary_operation with_two, unary_operation with_one)
        : kind(operator_kind), input_priority(input), stack_priority(stack), name(operator_name),
          binary_function(with_two), unary_function(with_one) {}

    static void initialize_statics();
    // Ends every pointer that find_operator has given.
    static void terminate_statics();
    // A copy of the row of the table, or of `null`. Names are case-sensitive.
    static operator_t lookup_operator(const ustring& name, type kind);
    // The row itself, lent until terminate_statics(), or a null pointer.
    static const operator_t* find_operator(const ustring& name, type kind);

    // "{" + name + " " of a unary operator, name + " " of a binary one.
    ustring to_string() const;

    static value_t logical_not(const value_t& operand);
    static value_t greater(const value_t& left, const value_t& right);
    static value_t greater_equal(const value_t& left, const value_t& right);
    static value_t less(const value_t& left, const value_t& right);
    static value_t less_equal(const value_t& left, const value_t& right);
    static value_t equal_to(const value_t& left, const value_t& right);
    static value_t not_equal_to(const value_t& left, const value_t& right);
    static value_t like(const value_t& left, const value_t& right);
    static value_t contains(const value_t& left, const value_t& right);
    static value_t logical_and(const value_t& left, const value_t& right);
    static value_t logical_or(const value_t& left, const value_t& right);

    // Name and kind.
    bool operator==(const codable& other) const override;
    bool operator==(const operator_t& other) const;
    codable* clone() const override { return new operator_t(*this); }

    static const operator_t null;
    static const operator_t open_parenthesis;
    static const operator_t close_parenthesis;

    type kind = binary;
    int input_priority = 0;
    int stack_priority = 0; // above the input priority: groups from the left
    ustring name;
    binary_operation binary_function = nullptr;
    unary_operation unary_function = nullptr;
};

} // namespace km
