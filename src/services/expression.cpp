// expression: conditions, from text to value
// no format
// invariant: a caller tells false from failure by `error` alone
#include "expression.h"

#include "base/msg_supp.h"
#include "tokenizer.h"
#include "trclog.h"
#include "variable_builder.h"

namespace km {

namespace {

enum evaluation_error : long { incompatible_type = 289, not_boolean = 290 };

std::unique_ptr<value_t> take(std::vector<std::unique_ptr<value_t>>& stack) {
    auto top = std::move(stack.back());
    stack.pop_back();
    return top;
}

// Whether the operand was a variable.
bool make_ready(value_t& operand) {
    const bool was_variable = operand.type == value_t::t_variable;
    if (was_variable)
        operand.resolve();
    else
        operand.substitute_variables();
    return was_variable;
}

} // namespace

variable_list* expression::chosen_variables = nullptr;
bool expression::uses_decoder_chain = true;

expression::expression() { uses_decoder_chain = true; }

expression::expression(const ustring& text) : infix(text) { uses_decoder_chain = true; }

expression::~expression() = default;

variable_list* expression::get_variable_list() {
    if (!uses_decoder_chain)
        return chosen_variables;
    // The chain as it stands: asking the builder again would take the package's list off its end.
    variable_list* chain = variable_list::get_chain(variable_list::for_decoder);
    return chain ? chain : variable_list_builder::get_decoder_variables(nullptr, nullptr);
}

void expression::set_variable_list(variable_list* variables) {
    chosen_variables = variables;
    uses_decoder_chain = false;
}

void expression::set_error(long message, const ustring& word) {
    spmessage told;
    told.add(message, word.mbcs_str());
    error = told.bind();
}

// False: operands are missing, which a parsed form rules out.
bool expression::apply(const operator_t& op, std::vector<std::unique_ptr<value_t>>& stack,
                       callback told) {
    if (stack.size() < (op.kind == operator_t::binary ? 2 : 1))
        return false;
    const auto right = op.kind == operator_t::binary ? take(stack) : nullptr;
    const auto left = take(stack);
    auto result = std::make_unique<value_t>();
    if (right) {
        const bool with_right = make_ready(*right), with_left = make_ready(*left);
        *result = op.binary_function(*left, *right);
        if (result->type == value_t::t_error && (with_left || with_right))
            *result = value_t::from_boolean(0);
    } else {
        left->resolve();
        *result = op.unary_function(*left);
    }
    if (told)
        told(*left, op, right.get(), *result);
    stack.push_back(std::move(result));
    return true;
}

value_t expression::evaluate(callback told) {
    KM_TRACE_FUNCTION("expression::evaluate");
    error = ustring();
    if (!infix.empty() && !infix2postfix())
        return value_t();
    std::vector<std::unique_ptr<value_t>> stack;
    bool whole = true;
    for (auto one = items_.begin(); whole && one != items_.end(); ++one) {
        if (one->operand)
            stack.push_back(std::move(one->operand));
        else
            whole = apply(*one->op, stack, told);
    }
    items_.clear();
    value_t value;
    if (whole && !stack.empty())
        value = *stack.back();
    value.resolve();
    if (value.type == value_t::t_error)
        set_error(incompatible_type);
    return value;
}

int condition::evaluate(callback told) {
    error = ustring();
    if (infix.empty())
        return 1;
    const value_t value = expression::evaluate(told);
    if (value.type == value_t::t_boolean)
        return value.boolean;
    if (value.type != value_t::t_error)
        set_error(not_boolean);
    return 0;
}

} // namespace km
