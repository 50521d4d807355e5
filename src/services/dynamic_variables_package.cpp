// dynamic_variables_package: values of the running operation, from its package
// no format
// invariant: only names of the table are answered
#include "dynamic_variables.h"
#include "package.h"

namespace km {

namespace {
struct text_value {
    const char16_t* name;
    ustring cm_package::*text;
};
constexpr text_value texts[] = {
    {u"operation_name", &cm_package::operation_name},
    {u"operation_phase", &cm_package::operation_phase},
    {u"operation_result", &cm_package::operation_result},
};

struct flag_value {
    const char16_t* name;
    std::int32_t cm_package::*flag;
};
constexpr flag_value flags[] = {
    {u"operation_is_transactional", &cm_package::operation_is_transactional},
    {u"operation_is_preferably_not_transactional",
     &cm_package::operation_is_preferably_not_transactional},
    {u"operation_is_undoable", &cm_package::operation_is_undoable},
    {u"operation_is_preferably_undoable", &cm_package::operation_is_preferably_undoable},
    {u"operation_is_undo_ability_transactional",
     &cm_package::operation_is_undo_ability_transactional},
    {u"operation_is_preferably_not_in_reboot", &cm_package::operation_is_preferably_not_in_reboot},
    {u"operation_is_auto_commit", &cm_package::operation_is_auto_commit},
    {u"operation_is_auto_accept", &cm_package::operation_is_auto_accept},
    {u"operation_is_in_a_reboot", &cm_package::operation_is_in_a_reboot},
    {u"operation_is_auto_reboot", &cm_package::operation_is_auto_reboot},
    {u"operation_is_force", &cm_package::operation_is_force},
};

ustring* value_of(cm_package& package, const ustring& name) {
    for (const auto& one : texts)
        if (name == ustring(one.name))
            return new ustring(package.*one.text);
    for (const auto& one : flags)
        if (name == ustring(one.name))
            return new ustring(package.*one.flag ? u"true" : u"false");
    return nullptr;
}
} // namespace

void dynamic_variable_list::set_package(cm_package* package) { set_package(package, value_of); }

} // namespace km
