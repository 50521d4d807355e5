// composite_command: a command that holds commands
// no format
// invariant: a list owns its children, and each child stands in one list only
#include "composite_command.h"

#include "base/msg_supp.h"
#include "command_filter.h"
#include "package.h"
#include "preview.h"
#include "trclog.h"

#include <new>

namespace km {

namespace {
cm_command* next_command(list_iterator& at) { return static_cast<cm_command*>(at.nextElement()); }
} // namespace

cm_composite_command::cm_composite_command(int stop) : stop_on_failure(stop) {}

cm_composite_command::cm_composite_command(cm_command* parent) : stop_on_failure(1) {
    if (auto* composite = dynamic_cast<cm_composite_command*>(parent))
        stop_on_failure = composite->get_stop_on_failure();
}

cm_composite_command::cm_composite_command(const cm_composite_command& other)
    : cm_command(other), stop_on_failure(other.stop_on_failure),
      reverse_on_remove(other.reverse_on_remove) {
    copy_children(other);
}

cm_composite_command& cm_composite_command::operator=(const cm_composite_command& other) {
    if (this == &other)
        return *this;
    cm_command::operator=(other);
    stop_on_failure = other.stop_on_failure;
    reverse_on_remove = other.reverse_on_remove;
    children.clear();
    copy_children(other);
    return *this;
}

// `add` clears the result; a copy keeps that of its source.
void cm_composite_command::copy_children(const cm_composite_command& from) {
    const auto kept = result;
    for (list_iterator at(from.children); at.hasMoreElements();)
        cm_composite_command::add(static_cast<cm_command*>(at.nextElement()->clone()), nullptr);
    result = kept;
}

int cm_composite_command::get_stop_on_failure() { return stop_on_failure; }
void cm_composite_command::set_stop_on_failure(int stop) { stop_on_failure = stop; }

void cm_composite_command::add(cm_command* child, cm_command* after) {
    result = success;
    if (!child)
        return;
    child->set_package(package);
    if (after)
        children.insert_after(child, after);
    else
        children.push_back(child);
}

void cm_composite_command::remove(cm_command* child) {
    if (child)
        children.remove(child);
}

long cm_composite_command::count_commands() const {
    long count = 0;
    for (list_iterator at(children); at.hasMoreElements();) {
        auto* composite = dynamic_cast<cm_composite_command*>(at.nextElement());
        count += 1 + (composite ? composite->count_commands() : 0);
    }
    return count;
}

cm_command* cm_composite_command::get_command_executed(int index) {
    if (index == command_index)
        return this;
    for (list_iterator at(children); at.hasMoreElements();) {
        cm_command* child = next_command(at);
        cm_command* found = child->get_command_executed(index);
        if (found && found->get_command_index() == index)
            return found;
        if (!found && child->get_command_index() == index)
            return child;
    }
    KM_TRACE(trace_warning, "common", "the command with index = %d was not found!", index);
    return nullptr;
}

// A composite is always entered; its children decide. Only the undo of what really ran asks the
// package that it undoes, and there "not found" means no, unlike for a leaf.
int cm_composite_command::is_to_be_executed() {
    if (!package || !package->undo_only_executed_actions || !package->is_backup_package ||
        !package->partner_package)
        return 1;
    cm_command* undone = package->partner_package->get_command_executed(command_index);
    return undone ? undone->get_executed() : 0;
}

cm_command* cm_composite_command::get_undo_command(int) {
    auto* undo = new (std::nothrow) cm_composite_command(stop_on_failure);
    if (!undo) {
        KM_TRACE(trace_error, "common", "failed new allocation for a composite_command object");
        result = fatal_failure;
        return nullptr;
    }
    undo->scope = scope;
    undo->reverse_on_remove = reverse_on_remove;
    return undo;
}

int cm_composite_command::get_timeout(int* count, int action, bool undo, bool in_reboot) {
    int sum = 0;
    for (list_iterator at(children); at.hasMoreElements();) {
        const int one = next_command(at)->get_timeout(count, action, undo, in_reboot);
        if (one == -1)
            return -1;
        if (__builtin_add_overflow(sum, one, &sum))
            return -1;
    }
    return sum;
}

void cm_composite_command::delta_save_command(pathname* base, unzipping_channel* in,
                                              zipping_channel* out) {
    result = success;
    for (list_iterator at(children); at.hasMoreElements() && result == success;) {
        cm_command* child = next_command(at);
        child->delta_save_command(base, in, out);
        result = child->result;
    }
}

void cm_composite_command::save_command(unzipping_channel* in, zipping_channel* out) {
    result = success;
    for (list_iterator at(children); at.hasMoreElements() && result == success;) {
        cm_command* child = next_command(at);
        child->save_command(in, out);
        result = child->result;
    }
}

void cm_composite_command::save_command(zipping_channel* out) {
    result = success;
    for (list_iterator at(children); at.hasMoreElements() && result == success;) {
        cm_command* child = next_command(at);
        child->save_command(out);
        result = child->result;
    }
}

// A child's load may put commands into this list or take some out of it: only as many are asked as
// were there.
void cm_composite_command::load_command(const int load) {
    result = success;
    int left = children.size();
    for (list_iterator at(children); left > 0 && at.hasMoreElements() && result == success;
         --left) {
        cm_command* child = next_command(at);
        child->load_command(load);
        result = child->result;
    }
}

void cm_composite_command::set_data_source(ustring host, int from_source_host, pathname* base) {
    for (list_iterator at(children); at.hasMoreElements();)
        next_command(at)->set_data_source(host, from_source_host, base);
}

void cm_composite_command::set_package(cm_package* of) {
    cm_command::set_package(of);
    for (list_iterator at(children); at.hasMoreElements();)
        next_command(at)->set_package(of);
}

void cm_composite_command::set_executed(int done) { cm_command::set_executed(done); }

void cm_composite_command::set_executed_all(int done) {
    cm_command::set_executed_all(done);
    for (list_iterator at(children); at.hasMoreElements();)
        next_command(at)->set_executed_all(done);
}

void cm_composite_command::reset_command_status() {
    for (list_iterator at(children); at.hasMoreElements();)
        next_command(at)->reset_command_status();
}

cm_command* cm_composite_command::find(ustring name, int exact) {
    for (list_iterator at(children); at.hasMoreElements();)
        if (cm_command* found = next_command(at)->find(name, exact))
            return found;
    return nullptr;
}

void cm_composite_command::preview(preview_operation& operation) {
    for (list_iterator at(children); at.hasMoreElements();)
        next_command(at)->preview(operation);
    operation(*this);
}

void cm_composite_command::add_to_package(cm_package* into) {
    for (list_iterator at(children); at.hasMoreElements();)
        next_command(at)->add_to_package(into);
}

} // namespace km
