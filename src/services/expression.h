// expression: conditions, from text to value
//
//   condition  := operand | NOT condition | condition operator condition | "(" condition ")"
//   operand    := number | word | "text" | 'text' | true | false | $(name)
//   operator   := > >= < <= == != LIKE CONTAINS AND OR
//
// NOT binds tightest, then the orderings, then == != LIKE CONTAINS, then AND, then OR; equals group
// from the left. There is no sign before a number, and a word ends at any of $ > = < ! ( ) - + * /,
// so that paths must stand in quotes.
//
// An undefined variable makes the operator that it stands at false; under NOT it is an error.
#pragma once

#include "expression_operators.h"

#include <memory>
#include <vector>

namespace km {

class tokenizer;
class variable_list;

// A condition as text, and its parsed form. Any text ends with a value or with an error text, in
// time and memory that grow with its length, and without recursion.
class expression {
  public:
    // Told of every operator that was evaluated; `right` is null for a unary one.
    using callback = void (*)(const value_t& left, const operator_t& op, const value_t* right,
                              const value_t& result);

    // Either makes the decoder's chain of variables the one that all expressions ask.
    expression();
    explicit expression(const ustring& text);
    ~expression();
    expression(const expression&) = delete;
    expression& operator=(const expression&) = delete;

    // Parses `infix` into `postfix`. 1; 0 with the words of the first syntax error in `error`.
    int infix2postfix();
    // Parses and evaluates. A value of type error comes with words in `error`; an empty `infix`
    // counts as one.
    value_t evaluate(callback told = nullptr);

    // The list that all expressions ask, lent. The decoder's chain is made when it is asked for
    // here and there is none, and not before: it would shadow the chain of an importer.
    static variable_list* get_variable_list();
    // Lent until another is set or the next expression is made; null: no variable is known.
    static void set_variable_list(variable_list* variables);

    ustring error;   // empty, or what is wrong, in the language of the catalogue
    ustring infix;   // the condition as written
    ustring postfix; // the parsed form, a '{' before each unary operator

  protected:
    void set_error(long message, const ustring& word = ustring());

  private:
    // An operand, or the operator of the operands before it.
    struct item {
        std::unique_ptr<value_t> operand;
        const operator_t* op;
    };

    void init_tokenizer(const ustring& text);
    int next_token();
    void parse();
    bool parse_operator(std::vector<const operator_t*>& stack);
    bool close_group(std::vector<const operator_t*>& stack);
    void end_of_text(std::vector<const operator_t*>& stack);
    void emit(std::unique_ptr<value_t> operand);
    void emit(const operator_t* op);
    std::unique_ptr<value_t> check_operand();
    std::unique_ptr<value_t> check_variable();
    void append_to_name(ustring& name) const;
    const operator_t* get_operator();
    const operator_t* spell_operator(operator_t::type kind);
    static bool apply(const operator_t& op, std::vector<std::unique_ptr<value_t>>& stack,
                      callback told);

    static variable_list* chosen_variables;
    static bool uses_decoder_chain;

    std::unique_ptr<km::tokenizer> tokenizer_; // while a text is being parsed
    int token_ = 0;
    int expect_operand_ = 0;
    std::vector<item> items_; // `postfix` without the losses of a text
};

// An expression that is true or false.
class condition : public expression {
  public:
    using expression::expression;

    // 1 true, and for an empty text; 0 false, or with words in `error` a failure.
    int evaluate(callback told = nullptr);
};

} // namespace km
