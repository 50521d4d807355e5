// package_later: operations behind an install that this build does not carry out
// no format
// invariant: each refuses with a message and changes nothing
#include "base/msg_supp.h"
#include "package.h"
#include "trclog.h"

#include <string>

namespace km {

namespace {
cm_result not_available(cm_package& package, const char* operation) {
    KM_TRACE(trace_error, "common", "%s is not available", operation);
    if (package.messages)
        package.messages->add((std::string("E This version does not carry out '") + operation +
                               "', and nothing was changed.\n")
                                  .c_str());
    return cm_command::failure;
}
} // namespace

cm_result cm_package::commit(int, int) { return not_available(*this, "commit"); }
cm_result cm_package::accept(int, int) { return not_available(*this, "accept"); }
cm_result cm_package::undo(int, int) { return not_available(*this, "undo"); }
cm_result cm_package::rollback(int, int) { return not_available(*this, "rollback"); }
cm_result cm_package::verify(cm_package*&, int, int) { return not_available(*this, "verify"); }

void cm_package::make_backup(int, int) {
    const int operation = catalog_entry ? catalog_entry->operation_in_progress : o_none;
    if (operation == o_execute_undoable || operation == o_prepare_undoable ||
        operation == o_prepare || operation == o_prepare_undo_prepare)
        result = not_available(*this, "an undoable or transactional mode");
}

void cm_package::build_undo_package(int, int) { result = not_available(*this, "an undoable mode"); }

cm_result cm_package::do_remove_on_original_command(int, int) { return fatal_failure; }

} // namespace km
