// dependency: what a package demands of the installed software
// no format
// invariant: no text that was collected outlives the check
#include "dependency.h"

#include "catalog.h"
#include "expression.h"
#include "persistent_hashtable.h"
#include "trclog.h"
#include "variable_list.h"

#include <memory>

namespace km {

namespace {

const char16_t separator[] = u" ---------------------------- ";
constexpr ustring::size_type most_collected = 1U << 20; // enough for any reader

// The comparisons of the evaluation that runs.
std::unique_ptr<ustring> collected;
// Hosts read it as "anything undefined so far": nothing takes it back.
int variable_not_resolved = 0;

bool is_leaf(const value_t& operand) {
    return operand.type != value_t::t_boolean && operand.type != value_t::t_error;
}

void callback(const value_t& left, const operator_t& op, const value_t* right,
              const value_t& result) {
    if (!variable_not_resolved)
        variable_not_resolved =
            left.type == value_t::t_variable || (right && right->type == value_t::t_variable);
    if (!collected || collected->length() > most_collected || !is_leaf(left) ||
        (right && !is_leaf(*right)))
        return;
    ustring& text = *collected;
    if (right)
        text += left.to_string() + op.to_string() + right->to_string();
    else
        text += op.to_string().substr(1) + left.to_string() + ustring(u" ");
    text += ustring(u" [ ") + result.to_string() + ustring(u"] \n");
}

// The account of a condition that does not hold.
ustring account_of(const condition& failed) {
    if (collected->empty())
        return failed.error;
    const ustring line = ustring(u"\n");
    return failed.error + line + separator + line + *collected + separator;
}

int evaluate(condition& dependency, ustring& account) {
    collected = std::make_unique<ustring>();
    const int holds = dependency.evaluate(callback);
    if (!holds)
        account = account_of(dependency);
    collected.reset();
    return holds;
}

// The list's own value of the installed software.
class installed_software {
  public:
    explicit installed_software(variable_list* list) : list_(list) {
        if (const auto* value = list ? list->get_as<ustring>(name_) : nullptr)
            old_ = std::make_unique<ustring>(*value);
    }
    void set_old_and(const ustring& more) {
        if (list_)
            list_->set_value(name_, (old_ ? *old_ : ustring()) + more);
    }
    void restore() {
        if (old_)
            set_old_and(ustring());
        else if (list_)
            list_->remove(&name_);
    }

  private:
    const ustring name_ = u"installed_software";
    variable_list* list_;
    std::unique_ptr<ustring> old_;
};

} // namespace

int is_valid_dependency(variable_list* variables, const ustring& dependency, const ustring& package,
                        const ustring& extra, const int style, int& unresolved, ustring& message) {
    KM_TRACE_FUNCTION("is_valid_dependency");
    condition demanded(dependency);
    expression::set_variable_list(variables);
    installed_software installed(variables);
    const auto refuse = [&](const ustring& account) {
        message = account;
        unresolved = variable_not_resolved;
        return 0;
    };
    ustring without_account, with_account;
    installed.set_old_and(extra);
    const int without = evaluate(demanded, without_account);
    if (style == dependency_as_is || package.empty()) {
        if (without)
            return 1;
        KM_TRACE(trace_info, "common", "dependency check failed !");
        return refuse(without_account);
    }
    installed.set_old_and(package + ustring(u";"));
    const int with = evaluate(demanded, with_account);
    installed.restore();
    if (with != without) {
        KM_TRACE(trace_warning, "common", "rc_with != rc_without");
        if (style == dependency_on_removal && !without) {
            KM_TRACE(trace_info, "common", "dependency check 'without' fails");
            return refuse(without_account);
        }
        if (style == dependency_on_install && !with) {
            KM_TRACE(trace_info, "common", "dependency check 'with' fails");
            return refuse(with_account);
        }
    }
    KM_TRACE(trace_info, "common", "dependency check ok ... ");
    return 1;
}

int get_check_dependency_style(const long, long operation, long status) {
    const auto word = static_cast<std::uint32_t>(status);
    const bool present = (word & 0x4000000) != 0;
    const bool installed = present && (word & 0x20000) != 0;
    switch (operation) {
    case 0:
    case 16:
        return dependency_on_install;
    case 6:
        return (word & 0x8000000) ? dependency_on_install
               : installed        ? dependency_on_removal
                                  : dependency_ignored;
    case 10:
        return present ? dependency_on_install : dependency_ignored;
    case 1000:
        return present ? dependency_on_removal : dependency_ignored;
    default:
        return dependency_ignored;
    }
}

int get_backup_filename(Persistent_Hashtable* catalog, pathname& path) {
    const cm_catalog_key key(path.get_text(), u"1.0.0");
    const auto* entry = catalog ? catalog->get_as<cm_catalog_entry>(key) : nullptr;
    if (!entry || entry->profile_name.get_text().empty())
        return 0;
    path = entry->profile_name;
    return 1;
}

} // namespace km
