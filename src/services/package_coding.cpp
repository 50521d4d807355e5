// package_coding: coded form of packages
// format: docs/formats/package-file.md
// invariants: fields are read in the order in which they are written; what the stream brings is
// owned by exactly one field
#include "base/msg_supp.h"
#include "codec.h"
#include "pair.h"
#include "package.h"

#include <memory>

namespace km {

namespace {
void decode_path(decoder& from, int id, pathname& path) {
    ustring text = path.get_text();
    from.decode_string_field(id, text);
    path = pathname(text);
}

void decode_time(decoder& from, int id, std::time_t& time) {
    auto seconds = static_cast<std::int32_t>(time);
    from.decode_integer_field(id, seconds);
    time = static_cast<std::uint32_t>(seconds); // good to 2106
}

void encode_list(encoder& to, int id, const vector& all) {
    vector_iterator elements(const_cast<vector*>(&all));
    to.encode_iterator(id, &elements);
}

// Appends the elements of class T; another class is a fault of the stream.
template <class T> void decode_list(decoder& from, int id, vector& into) {
    iterator* read = nullptr;
    from.decode_iterator(id, read);
    const std::unique_ptr<iterator> elements(read);
    while (elements && elements->hasMoreElements()) {
        codable* one = elements->nextElement();
        if (dynamic_cast<T*>(one)) {
            into.push_back(one);
            continue;
        }
        from.set_status(decoder::failed);
        from.forget(one);
        delete one;
    }
}
} // namespace

const char* cm_package::codable_name() const { return "com.ombrel.sd.cmObjects.CmPackage"; }

void cm_package::encode_object(encoder& to) const {
    cm_composite_command::encode_object(to);
    to.encode_string_field(300, name);
    to.encode_string_field(301, version);
    to.encode_string_field(302, title);
    to.encode_string_field(303, description);
    to.encode_string_field(304, copyright);
    to.encode_integer_field(305, undoable);
    to.encode_integer_field(306, committable);
    to.encode_integer_field(307, static_cast<std::int32_t>(creation_time));
    to.encode_integer_field(308, static_cast<std::int32_t>(last_modification_time));
    to.encode_integer_field(309, static_cast<std::int32_t>(additional_time));
    to.encode_boolean_field(310, history_reset);
    to.encode_integer_field(311, internal_error);
    to.encode_integer_field(312, static_cast<std::int32_t>(_last_result));
    to.encode_boolean_field(313, is_backup_package);
    to.encode_boolean_field(314, reserved_314);
    to.encode_integer_field(315, resume_stage);
    to.encode_integer_field(316, mode);
    to.encode_long_field(317, current_offset);
    to.encode_boolean_field(318, connected);
    to.encode_string_field(319, source_path.get_text());
    to.encode_object_field(320, log_object_list);
    to.encode_string_field(322, spb_path.get_text());
    to.encode_string_field(323, source_host_name);
    to.encode_boolean_field(324, move_removing_host);
    to.encode_boolean_field(325, no_check_source_host);
    to.encode_boolean_field(326, lenient_distribution);
    to.encode_string_field(327, default_operation);
    to.encode_integer_field(328, server_mode);
    to.encode_integer_field(329, operation_mode);
    encode_programs(to);
    encode_list(to, 352, nested_packages);
    to.encode_integer_field(353, caller_word);
    to.encode_integer_field(354, package_type);
    to.encode_integer_field(355, versioning_type);
    to.encode_boolean_field(356, reserved_356);
    to.encode_string_field(357, dependency);
    to.encode_boolean_field(358, internal_package);
    to.encode_integer_field(359, package_mask);
    to.encode_boolean_field(360, device_support);
    encode_list(to, 361, reserved_361);
    encode_list(to, 362, reserved_362);
    to.encode_long_field(363, sharing_control);
    to.encode_string_field(364, qep_before_program_path.get_text());
    to.encode_string_field(365, qep_before_program_arguments);
    to.encode_long_field(366, qep_before_program_timeout);
    to.encode_string_field(367, qep_after_program_path.get_text());
    to.encode_string_field(368, qep_after_program_arguments);
    to.encode_long_field(369, qep_after_program_timeout);
    to.encode_string_field(370, reserved_370);
    const char* bound = messages && encode_messages ? messages->bind() : nullptr;
    to.encode_string_field(371, ustring(bound ? bound : ""));
    to.encode_long_field(372, reserved_372);
}

void cm_package::encode_programs(encoder& to) const {
    to.encode_string_field(330, log_path.get_text());
    to.encode_string_field(331, log_host_name);
    to.encode_integer_field(332, log_mode);
    to.encode_integer_field(333, log_user_id);
    to.encode_boolean_field(334, post_notice);
    to.encode_string_field(335, mail_id);
    to.encode_string_field(336, before_program_path.get_text());
    to.encode_string_field(337, before_input_path.get_text());
    to.encode_long_field(338, before_as_uid);
    to.encode_boolean_field(339, skip_non_zero);
    to.encode_string_field(340, after_program_path.get_text());
    to.encode_string_field(341, after_input_path.get_text());
    to.encode_long_field(342, after_as_uid);
    to.encode_string_field(343, after_prog_env);
    to.encode_string_field(344, before_prog_env);
    to.encode_string_field(345, stage_area.get_text());
    to.encode_long_field(346, log_gid);
    to.encode_boolean_field(349, no_chk_on_rm);
    to.encode_boolean_field(350, save_default_variables_flag);
    to.encode_long_field(351, web_view_mode);
}

codable* cm_package::decode_object(decoder& from, long stream_version) {
    *this = cm_package(); // what the stream does not say has its default
    cm_composite_command::decode_object(from, stream_version);
    cm_command::set_package(this); // whatever the stream said
    decode_attributes(from);
    decode_operation(from);
    decode_programs(from);
    decode_lists(from);
    set_package(this);
    return this;
}

void cm_package::decode_attributes(decoder& from) {
    from.decode_string_field(300, name);
    from.decode_string_field(301, version);
    from.decode_string_field(302, title);
    from.decode_string_field(303, description);
    from.decode_string_field(304, copyright);
    from.decode_integer_field(305, undoable);
    from.decode_integer_field(306, committable);
    decode_time(from, 307, creation_time);
    decode_time(from, 308, last_modification_time);
    decode_time(from, 309, additional_time);
    from.decode_boolean_field(310, history_reset);
    from.decode_integer_field(311, internal_error);
}

void cm_package::decode_operation(decoder& from) {
    auto bits = static_cast<std::int32_t>(_last_result);
    from.decode_integer_field(312, bits);
    _last_result = static_cast<std::uint32_t>(bits);
    from.decode_boolean_field(313, is_backup_package);
    from.decode_boolean_field(314, reserved_314);
    from.decode_integer_field(315, resume_stage);
    from.decode_integer_field(316, mode);
    from.decode_long_field(317, current_offset);
    from.decode_boolean_field(318, connected);
    decode_path(from, 319, source_path);
    if (auto* log = from.take_owned<km::log_object_list>(320)) {
        delete log_object_list;
        log_object_list = log;
    }
    decode_path(from, 322, spb_path);
    from.decode_string_field(323, source_host_name);
    from.decode_boolean_field(324, move_removing_host);
    from.decode_boolean_field(325, no_check_source_host);
    from.decode_boolean_field(326, lenient_distribution);
    from.decode_string_field(327, default_operation);
    from.decode_integer_field(328, server_mode);
    from.decode_integer_field(329, operation_mode);
}

void cm_package::decode_programs(decoder& from) {
    decode_path(from, 330, log_path);
    from.decode_string_field(331, log_host_name);
    from.decode_integer_field(332, log_mode);
    from.decode_integer_field(333, log_user_id);
    from.decode_boolean_field(334, post_notice);
    from.decode_string_field(335, mail_id);
    decode_path(from, 336, before_program_path);
    decode_path(from, 337, before_input_path);
    from.decode_long_field(338, before_as_uid);
    from.decode_boolean_field(339, skip_non_zero);
    decode_path(from, 340, after_program_path);
    decode_path(from, 341, after_input_path);
    from.decode_long_field(342, after_as_uid);
    from.decode_string_field(343, after_prog_env);
    from.decode_string_field(344, before_prog_env);
    decode_path(from, 345, stage_area);
    from.decode_long_field(346, log_gid);
    from.decode_boolean_field(349, no_chk_on_rm);
    from.decode_boolean_field(350, save_default_variables_flag);
    from.decode_long_field(351, web_view_mode);
}

void cm_package::decode_lists(decoder& from) {
    decode_list<pair>(from, 352, nested_packages);
    from.decode_integer_field(353, caller_word);
    // Packages of the oldest signature told their mask where the type stands now.
    from.decode_integer_field(354, from.package_40 ? package_mask : package_type);
    from.decode_integer_field(355, versioning_type);
    from.decode_boolean_field(356, reserved_356);
    // A dependency is asked later, with the variables of that time.
    variable_list* const variables_of_stream = from.variables;
    from.variables = nullptr;
    from.decode_string_field(357, dependency);
    from.variables = variables_of_stream;
    from.decode_boolean_field(358, internal_package);
    from.decode_integer_field(359, package_mask);
    from.decode_boolean_field(360, device_support);
    decode_list<codable>(from, 361, reserved_361);
    decode_list<codable>(from, 362, reserved_362);
    from.decode_long_field(363, sharing_control);
    decode_path(from, 364, qep_before_program_path);
    from.decode_string_field(365, qep_before_program_arguments);
    from.decode_long_field(366, qep_before_program_timeout);
    decode_path(from, 367, qep_after_program_path);
    from.decode_string_field(368, qep_after_program_arguments);
    from.decode_long_field(369, qep_after_program_timeout);
    from.decode_string_field(370, reserved_370);
    ustring told;
    from.decode_string_field(371, told);
    if (!told.empty()) {
        if (!messages) {
            own_messages_ = std::make_unique<spmessage>();
            messages = own_messages_.get();
        }
        messages->add(told.mbcs_str());
    }
    from.decode_long_field(372, reserved_372);
}

extern "C" codable* make_CmPackage() { return new cm_package; }

} // namespace km
