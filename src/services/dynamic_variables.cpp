// dynamic_variables: values of the running operation and of removable media
// no format
// invariants: a mount point is given to one name only; the package is asked before the media
#include "dynamic_variables.h"

#include "trclog.h"

#include <memory>
#include <mntent.h>
#include <string_view>
#include <unistd.h>

namespace km {

dynamic_variable_list* dynamic_variable_list::singleton = nullptr;
variable_list* dynamic_variable_list::media = nullptr;

namespace {

cm_package* running_package = nullptr;
dynamic_variable_list::package_values values_of = nullptr;

// Whether the name is the prefix with a drive index behind it.
bool is_drive(const ustring& name, const char16_t* prefix) {
    const ustring head(prefix);
    return name.compare(0, head.length(), head, 0, head.length(), 0) == 0 &&
           dynamic_variable_list::check_drive_index(name.substr(head.length()));
}

bool is_medium(std::string_view type) {
    return type == "hsfs" || type == "iso9660" || type == "udf";
}

bool is_given(const variable_list& media, const ustring& mount_point) {
    for (Keyslist keys(media); keys.hasMoreElements();)
        if (*keys.next_entry()->get_value() == mount_point)
            return true;
    return false;
}

struct closer {
    void operator()(FILE* open) const { ::endmntent(open); }
};

} // namespace

int dynamic_variable_list::check_drive_index(const ustring& text) {
    if (text.empty() || text.length() > 2)
        return 0;
    int number = 0;
    for (unsigned i = 0; i < text.length(); ++i) {
        if (text[i] < u'0' || text[i] > u'9')
            return 0;
        number = number * 10 + (text[i] - u'0');
    }
    return number < 27;
}

ustring* dynamic_variable_list::get_cdrom(const ustring& name) {
    KM_TRACE_FUNCTION("dynamic_variable_list::get_cdrom");
    const char* table = ::access("/etc/mnttab", F_OK) == 0 ? "/etc/mnttab" : "/proc/self/mounts";
    const std::unique_ptr<FILE, closer> mounts(::setmntent(table, "re"));
    if (!mounts) {
        KM_TRACE(trace_warning, "common", "Error opening %s", table);
        return nullptr;
    }
    while (const mntent* mount = ::getmntent(mounts.get())) {
        const ustring place(mount->mnt_dir);
        if (!is_medium(mount->mnt_type) || is_given(*media, place))
            continue;
        media->set_value(name, place);
        return new ustring(place);
    }
    return nullptr;
}

ustring* dynamic_variable_list::medium_of(const ustring& name) {
    if (!is_drive(name, u"cdrom_"))
        return nullptr;
    if (!media)
        media = new variable_list;
    const auto* known = media->get_as<ustring>(name);
    return known ? new ustring(*known) : get_cdrom(name);
}

ustring* dynamic_variable_list::get_value(const ustring& name) {
    ustring* value = running_package && values_of ? values_of(*running_package, name) : nullptr;
    if (!value)
        value = own_value(name);
    if (!value)
        value = medium_of(name);
    if (!value && get_next())
        value = get_next()->get_value(name);
    return resolved(value);
}

ustring* dynamic_variable_list::check_defined(const ustring& name) {
    if (is_drive(name, u"freedrive_") || is_drive(name, u"cdrom_") ||
        name == ustring(u"operation_name") || name == ustring(u"operation_phase") ||
        name == ustring(u"operation_result"))
        return new ustring;
    return get_next() ? get_next()->check_defined(name) : nullptr;
}

void dynamic_variable_list::set_package(cm_package* package, package_values values) {
    running_package = package;
    values_of = values;
}

cm_package* dynamic_variable_list::get_package() { return running_package; }

dynamic_variable_list* dynamic_variable_list::get_list() {
    if (!singleton)
        singleton = new dynamic_variable_list;
    return singleton;
}

void dynamic_variable_list::terminate() {
    delete singleton;
    singleton = nullptr;
    delete media;
    media = nullptr;
}

} // namespace km
