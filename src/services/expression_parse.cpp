// expression_parse: conditions from text to parsed form
// no format
// invariants: the first error ends the pass; without one each operator of the parsed form has the
// operands that it needs before it; every step takes a token, and no step calls itself
#include "expression.h"

#include "tokenizer.h"

#include <charconv>

namespace km {

namespace {

enum syntax_error : long {
    operator_expected = 284,
    no_operator = 285, // with what stands there
    unmatched_close = 286,
    unmatched_open = 287,
    operand_expected = 288
};

bool is_quoted(int token) { return token == '"' || token == '\''; }

// A character that stands for itself.
bool is_plain(int token) { return token >= 0 && !is_quoted(token); }

bool names_operator(const ustring& word) {
    return operator_t::find_operator(word, operator_t::unary) ||
           operator_t::find_operator(word, operator_t::binary);
}

ustring shortest(double number) {
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, number).ptr;
    return ustring().assign(text, static_cast<unsigned>(end - text));
}

} // namespace

void expression::init_tokenizer(const ustring& text) {
    tokenizer_ = std::make_unique<km::tokenizer>(new string_reader(text));
    tokenizer_->parse_numbers(0);
    for (const char c : {'$', '>', '=', '<', '!', '(', ')', '-', '+', '*', '/'})
        tokenizer_->set_plain_char(c);
    for (const char c : {'#', '%', '&', ',', '.', ':', ';', '?', '@', '|', '}', '~'})
        tokenizer_->set_word_chars(c, c);
    tokenizer_->set_word_chars('[', '`');
}

int expression::next_token() { return token_ = tokenizer_->next_token(); }

void expression::emit(std::unique_ptr<value_t> operand) {
    postfix += operand->to_string();
    items_.push_back({std::move(operand), nullptr});
}

void expression::emit(const operator_t* op) {
    postfix += op->to_string();
    items_.push_back({nullptr, op});
}

int expression::infix2postfix() {
    postfix = ustring();
    error = ustring();
    items_.clear();
    expect_operand_ = 1;
    init_tokenizer(infix);
    parse();
    tokenizer_.reset();
    return error.empty();
}

void expression::parse() {
    std::vector<const operator_t*> stack;
    while (next_token() != km::tokenizer::t_end) {
        auto operand = expect_operand_ ? check_operand() : nullptr;
        if (operand) {
            expect_operand_ = 0;
            emit(std::move(operand));
        } else if (!error.empty() || !parse_operator(stack)) {
            return;
        }
    }
    end_of_text(stack);
}

// False: an error ends the pass.
bool expression::parse_operator(std::vector<const operator_t*>& stack) {
    const operator_t* op = get_operator();
    if (!op)
        return false;
    if (*op == operator_t::close_parenthesis)
        return close_group(stack);
    for (; !stack.empty() && stack.back()->stack_priority >= op->input_priority; stack.pop_back())
        emit(stack.back());
    stack.push_back(op);
    expect_operand_ = 1;
    return true;
}

bool expression::close_group(std::vector<const operator_t*>& stack) {
    for (; !stack.empty(); stack.pop_back()) {
        if (*stack.back() == operator_t::open_parenthesis) {
            stack.pop_back();
            expect_operand_ = 0;
            return true;
        }
        emit(stack.back());
    }
    set_error(unmatched_close);
    return false;
}

void expression::end_of_text(std::vector<const operator_t*>& stack) {
    for (; !stack.empty(); stack.pop_back()) {
        if (*stack.back() == operator_t::open_parenthesis) {
            set_error(unmatched_open);
            return;
        }
        emit(stack.back());
    }
    if (expect_operand_)
        set_error(operand_expected);
}

// The operand at the current token, or null; null with an error where it was begun and is broken.
std::unique_ptr<value_t> expression::check_operand() {
    const ustring& text = tokenizer_->sval;
    if (token_ == '$')
        return check_variable();
    if (token_ == km::tokenizer::t_number)
        return std::make_unique<value_t>(value_t::from_number(tokenizer_->nval));
    if (is_quoted(token_))
        return std::make_unique<value_t>(value_t::from_text(text));
    if (token_ != km::tokenizer::t_word || names_operator(text))
        return nullptr;
    return std::make_unique<value_t>(is_constant_boolean(text)
                                         ? value_t::from_boolean(text == ustring(u"true"))
                                         : value_t::from_text(text));
}

// The current token is '$'. What cannot begin a reference must not vanish: it is told as what
// stands where an operator belongs.
std::unique_ptr<value_t> expression::check_variable() {
    if (next_token() != '(') {
        tokenizer_->push_back();
        token_ = '$';
        return nullptr;
    }
    tokenizer_->set_word_chars(0, 0x20);
    const bool is_name = next_token() == km::tokenizer::t_word;
    ustring name = tokenizer_->sval;
    while (is_name && next_token() != ')' && token_ != km::tokenizer::t_end)
        append_to_name(name);
    tokenizer_->set_whitespace_chars(0, 0x20);
    if (token_ == km::tokenizer::t_end)
        set_error(unmatched_open);
    else if (is_name)
        return std::make_unique<value_t>(value_t::from_text(name, value_t::t_variable));
    else if (is_plain(token_))
        set_error(no_operator, ustring(u"$(") + ustring(1, static_cast<char16_t>(token_)));
    return nullptr;
}

void expression::append_to_name(ustring& name) const {
    name += u' ';
    if (token_ == km::tokenizer::t_number)
        name += shortest(tokenizer_->nval);
    else if (is_plain(token_))
        name += static_cast<char16_t>(token_);
    else
        name += tokenizer_->sval;
}

// The operator at the current token; null with an error if there is none.
const operator_t* expression::get_operator() {
    const auto kind = expect_operand_ ? operator_t::unary : operator_t::binary;
    if (is_plain(token_))
        return spell_operator(kind);
    if (token_ != km::tokenizer::t_word) {
        set_error(operator_expected);
        return nullptr;
    }
    const operator_t* found = operator_t::find_operator(tokenizer_->sval, kind);
    if (!found)
        set_error(no_operator, tokenizer_->sval);
    return found;
}

// The longest operator that begins with the current character: ">=" wins over ">".
const operator_t* expression::spell_operator(operator_t::type kind) {
    ustring spelled(1, static_cast<char16_t>(token_));
    const operator_t* found = operator_t::find_operator(spelled, kind);
    while (is_plain(next_token())) {
        spelled += static_cast<char16_t>(token_);
        const operator_t* longer = operator_t::find_operator(spelled, kind);
        if (found && !longer)
            break;
        found = longer;
    }
    if (found)
        tokenizer_->push_back();
    else
        set_error(no_operator, spelled);
    return found;
}

} // namespace km
