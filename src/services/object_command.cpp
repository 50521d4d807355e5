// object_command: command on one concrete object
// no format
// invariant: without a table nothing is shared
#include "object_command.h"

#include "base/msg_supp.h"
#include "package.h"
#include "refcounttable.h"
#include "trclog.h"

namespace km {

namespace {
cm_object* copy_of(const cm_object* one) {
    return one ? static_cast<cm_object*>(one->clone()) : nullptr;
}
} // namespace

cm_object_command::cm_object_command(const cm_object_command& other)
    : cm_command(other), object(copy_of(other.object)), is_effective(other.is_effective) {}

cm_object_command& cm_object_command::operator=(const cm_object_command& other) {
    if (this == &other)
        return *this;
    cm_command::operator=(other);
    delete object;
    object = copy_of(other.object);
    is_effective = other.is_effective;
    return *this;
}

void cm_object_command::set_package(cm_package* of) {
    cm_command::set_package(of);
    if (object)
        object->set_package(of);
}

void cm_object_command::set_data_source(ustring host, int from_source_host, pathname* base) {
    if (object)
        object->set_data_source(host, from_source_host, base);
}

void cm_object_command::set_container(cm_command* container) {
    if (object)
        object->set_container(container);
}

cm_ref_count_table* cm_object_command::counts() const {
    return package ? package->reference_table : nullptr;
}

int cm_object_command::counted() {
    return counts() ? counts()->get_ref_count(object->get_name()) : 0;
}

bool cm_object_command::is_shared_now() { return counts() && (object->is_shared || counted() > 0); }

bool cm_object_command::belongs_to_others() {
    if (counted() <= 0)
        return false;
    ustring name, version;
    set_package_name_and_version(*package, name, version);
    return counts()->get_ref_count(object->get_name(), name, version) == 0;
}

void cm_object_command::reset_own_counter() {
    ustring name, version;
    set_package_name_and_version(*package, name, version);
    counts()->reset_counter(object->get_name(), name, version);
}

bool cm_object_command::refuses_device(bool with_message, bool of_package_type) {
    constexpr std::uint32_t wrong_device = 6;
    if (!package || !(package->mode & m_device))
        return false;
    KM_TRACE(trace_info, "common", "the distribution is for devices");
    if (of_package_type && package->device_support)
        return false;
    if (with_message) {
        if (package->messages)
            package->messages->add(559L);
        package->device_failures |= wrong_device;
    }
    result = failure;
    return true;
}

bool cm_object_command::has_no_object() {
    if (object)
        return false;
    KM_TRACE(trace_error, "common", "the command has no object");
    result = failure;
    return true;
}

void set_package_name_and_version(cm_package& package, ustring& name, ustring& version) {
    name = package.name;
    version = package.version;
    if (!package.is_backup_package)
        return;
    const ustring& both = package.description;
    const auto at = both.find(u'^');
    name = both.substr(0, at);
    version = at == ustring::npos ? ustring() : both.substr(at + 1);
}

} // namespace km
