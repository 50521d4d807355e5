// base/spcatalog: table of the message texts
// no format on disk; translated texts are catalogue files of the system
// invariant: every index from 0 to 805 holds a text
#include "base/spcatalog.h"

namespace km {

namespace {

struct message_row {
    int key;
    const char* text;
};

constexpr message_row rows[] = {
    {5, "E Operation unsuccessful.\n"},
    {24, "E Unable to open the file %7$s. Error number: %8$s. Check whether the specified file and "
         "path exist.\n"},
    {25, "E Unable to create the path %1$s. Error number: %2$s.\n"},
    {82, "E Error decoding software package object. It could be corrupted, or not a valid object, "
         "or a network error occured.\n"},
    {130, "E Condition `%1$s' cannot be evaluated.\n"},
    {131, "E Condition `%1$s' on the package is false. The operation on the package cannot be "
          "executed.\n"},
    {184, "E The software package is invalid.\n"},
    {185, "E Wrong condition specified near line %1$s:\n%2$s"},
    {186, "Parse Error in ZNP Rules File rules.spr near line %1$s."},
    {199, "E Action %1$s cannot be executed.\n"},
    {200, "W Action %1$s must be undoable in transactional.\n"},
    {209, "E The execution mode is inconsistent with a package attribute ('%7$s').\n"},
    {284, "E Syntax Error: Operator expected.\n"},
    {285, "E Syntax Error: Expected operator and found '%7$s'.\n"},
    {286, "E Syntax Error: Unmatched closing parenthesis.\n"},
    {287, "E Syntax Error: Unmatched opening parenthesis.\n"},
    {288, "E Syntax Error: Expected operand and found operator.\n"},
    {289, "E Evaluation Error: Incompatible operand type.\n"},
    {290, "E Evaluation Error: The result of the condition is not a Boolean value.\n"},
    {324, "E Cannot create backup package."},
    {328, "E Syntax error near line %1$s: Package %2$s already specified as a nested software "
          "package.\n"},
    {356, "E Software Package with size greater than 2G bytes is not supported."},
    {558, "E Cannot create a Device and Desktop mixed Package. \n"},
    {559, "E Cannot distribute a Desktop package on a Device target. \n"},
    {568, "W The User Variable (%1$s) is already present in znpis.var file. The value has not been "
          "changed.\n"},
    {571, "W Entry state inconsistent for package: '%1$s^%2$s', send it in error. \n\n"},
    {602, "E Cannot access HOME path.\n"},
    {788, "I The container '%2$s' is skipped because the condition '%1$s' is false.\n"},
};

constexpr const char* own_text(int key) {
    for (const auto& row : rows)
        if (row.key == key)
            return row.text;
    return nullptr;
}

struct reserved_names {
    char text[spcatalog_size][10] = {};
};

// Reserved keys are numbered in the order of the keys.
constexpr reserved_names make_reserved() {
    reserved_names names;
    int number = 0;
    for (int key = 1; key < spcatalog_size; ++key) {
        if (own_text(key))
            continue;
        const char* head = "unused";
        for (int i = 0; i < 6; ++i)
            names.text[key][i] = head[i];
        names.text[key][6] = static_cast<char>('0' + number / 100);
        names.text[key][7] = static_cast<char>('0' + number / 10 % 10);
        names.text[key][8] = static_cast<char>('0' + number % 10);
        ++number;
    }
    return names;
}

constexpr reserved_names reserved = make_reserved();

constexpr const char* text_of(int key) {
    return key == 0 ? "spcatalog" : own_text(key) ? own_text(key) : reserved.text[key];
}

} // namespace

#define KM_TEXTS_10(k)                                                                             \
    text_of(k), text_of(k + 1), text_of(k + 2), text_of(k + 3), text_of(k + 4), text_of(k + 5),    \
        text_of(k + 6), text_of(k + 7), text_of(k + 8), text_of(k + 9)
#define KM_TEXTS_100(k)                                                                            \
    KM_TEXTS_10(k), KM_TEXTS_10(k + 10), KM_TEXTS_10(k + 20), KM_TEXTS_10(k + 30),                 \
        KM_TEXTS_10(k + 40), KM_TEXTS_10(k + 50), KM_TEXTS_10(k + 60), KM_TEXTS_10(k + 70),        \
        KM_TEXTS_10(k + 80), KM_TEXTS_10(k + 90)

const char* const spcatalog[] = {
    KM_TEXTS_100(0),   KM_TEXTS_100(100), KM_TEXTS_100(200), KM_TEXTS_100(300), KM_TEXTS_100(400),
    KM_TEXTS_100(500), KM_TEXTS_100(600), KM_TEXTS_100(700), text_of(800),      text_of(801),
    text_of(802),      text_of(803),      text_of(804),      text_of(805)};
static_assert(sizeof spcatalog / sizeof spcatalog[0] == spcatalog_size);

int is_spcatalog_key(long key) {
    return key >= 1 && key < spcatalog_size && own_text(static_cast<int>(key)) != nullptr;
}

} // namespace km
