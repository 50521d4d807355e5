// catalog: keys and entries of the packages on this machine
// format: docs/formats/catalog.md
// invariant: the status word that is written is the one that the status fields give
#include "catalog.h"

#include "codec.h"
#include "status_words.h"

#include <ctime>

namespace km {

ustring cm_catalog_key::get_text() const { return name + ustring(u"^") + version; }

std::uint32_t cm_catalog_key::hash_code() const {
    std::uint32_t hash = (name.hash_code() << 1) ^ u'^';
    for (unsigned i = 0; i < version.length(); ++i)
        hash = (hash << 1) ^ version[i];
    return hash;
}

bool cm_catalog_key::operator==(const cm_catalog_key& other) const {
    return version == other.version && name == other.name;
}

bool cm_catalog_key::operator==(const codable& other) const {
    const auto* key = dynamic_cast<const cm_catalog_key*>(&other);
    return key && *this == *key;
}

const char* cm_catalog_key::codable_name() const {
    return "com.ombrel.sd.cmObjects.cm_catalog_key";
}

void cm_catalog_key::encode_object(encoder& to) const {
    to.encode_string_field(0, name);
    to.encode_string_field(1, version);
}

codable* cm_catalog_key::decode_object(decoder& from, long) {
    from.decode_string_field(0, name);
    from.decode_string_field(1, version);
    return this;
}

namespace {
constexpr std::uint32_t kept_bits = 0xF0000000;

std::uint32_t word(long status) { return static_cast<std::uint32_t>(status); }

void encode_path(encoder& to, int id, const pathname& path) {
    to.encode_string_field(id, path.get_text());
}

void decode_path(decoder& from, int id, pathname& path) {
    ustring text = path.get_text();
    from.decode_string_field(id, text);
    path = text;
}
} // namespace

long cm_catalog_entry::get_dbstatus() const {
    const std::int32_t both = cm_status | current_cm_status;
    long status;
    if (cm_status == current_cm_status)
        status = cmstatus_to_dbstatus(current_cm_status);
    else if (both & cs_error)
        status = cmstatus_to_dbstatus(both);
    else
        status = cmstatus_to_dbstatus(current_cm_status) | db_pending;
    return static_cast<std::int32_t>(word(status | lastaction_to_dbstatus(last_action) |
                                          current_result_to_dbstatus(current_result)));
}

bool cm_catalog_entry::is_hidden() const { return word(db_status) & db_hidden; }

bool cm_catalog_entry::is_discovered() const { return word(db_status) & db_discovered; }

void cm_catalog_entry::set_discovered(int discovered) {
    const std::uint32_t rest = word(db_status) & ~static_cast<std::uint32_t>(db_discovered);
    db_status = static_cast<std::int32_t>(rest | (discovered ? db_discovered : 0U));
}

void cm_catalog_entry::update_installed_filepack_time() {
    installed_filepack_time = static_cast<long>(::time(nullptr));
}

const char* cm_catalog_entry::codable_name() const {
    return "com.ombrel.sd.cmObjects.cm_catalog_entry";
}

void cm_catalog_entry::encode_object(encoder& to) const {
    to.encode_integer_field(0, cm_status);
    to.encode_integer_field(1, current_cm_status);
    to.encode_integer_field(2, last_action);
    to.encode_integer_field(3, entry_mode);
    to.encode_integer_field(4, operation_requested);
    to.encode_integer_field(5, operation_in_progress);
    to.encode_integer_field(6, internal_package);
    to.encode_integer_field(7, current_result);
    to.encode_integer_field(8, entry_operation_result);
    to.encode_boolean_field(9, backup_package);
    to.encode_boolean_field(10, backup_availability);
    to.encode_boolean_field(11, already_committed);
    to.encode_boolean_field(12, inverse_action);
    encode_path(to, 13, profile_name);
    encode_path(to, 14, undo_package_name);
    to.encode_string_field(15, entry_text_1);
    to.encode_string_field(16, entry_text_2);
    to.encode_long_field(17, installed_filepack_time);
    to.encode_long_field(18, entry_time_2);
    to.encode_string_field(19, entry_text_3);
    to.encode_integer_field(21, call_argument);
    to.encode_integer_field(20, call_mode);
    to.encode_string_field(22, entry_text_4);
    to.encode_integer_field(23, status_at_start);
    to.encode_long_field(
        24, static_cast<std::int32_t>(word(get_dbstatus()) | (word(db_status) & kept_bits)));
    to.encode_integer_field(25, entry_package_type);
    to.encode_integer_field(26, entry_versioning_type);
    to.encode_string_field(27, entry_dependency);
    to.encode_integer_field(28, entry_last_field);
}

codable* cm_catalog_entry::decode_object(decoder& from, long) {
    from.decode_integer_field(0, cm_status);
    from.decode_integer_field(1, current_cm_status);
    from.decode_integer_field(2, last_action);
    from.decode_integer_field(3, entry_mode);
    from.decode_integer_field(4, operation_requested);
    from.decode_integer_field(5, operation_in_progress);
    from.decode_integer_field(6, internal_package);
    from.decode_integer_field(7, current_result);
    from.decode_integer_field(8, entry_operation_result);
    from.decode_boolean_field(9, backup_package);
    from.decode_boolean_field(10, backup_availability);
    from.decode_boolean_field(11, already_committed);
    from.decode_boolean_field(12, inverse_action);
    decode_path(from, 13, profile_name);
    decode_path(from, 14, undo_package_name);
    from.decode_string_field(15, entry_text_1);
    from.decode_string_field(16, entry_text_2);
    from.decode_long_field(17, installed_filepack_time);
    from.decode_long_field(18, entry_time_2);
    from.decode_string_field(19, entry_text_3);
    from.decode_integer_field(21, call_argument);
    from.decode_integer_field(20, call_mode);
    from.decode_string_field(22, entry_text_4);
    from.decode_integer_field(23, status_at_start);
    from.decode_long_field(24, db_status);
    from.decode_integer_field(25, entry_package_type);
    from.decode_integer_field(26, entry_versioning_type);
    from.decode_string_field(27, entry_dependency);
    from.decode_integer_field(28, entry_last_field);
    return this;
}

} // namespace km

extern "C" km::codable* make_cm_catalog_key() { return new km::cm_catalog_key; }
extern "C" km::codable* make_cm_catalog_entry() { return new km::cm_catalog_entry; }
