// sp_object: reader and writer of the package stream
// format: docs/formats/package-file.md
// invariants: only the newest signature is written; a package is handed out whole or not at all
#include "sp_object.h"

#include "base/msg_supp.h"
#include "base_configuration.h"
#include "codec.h"
#include "decode_channel.h"
#include "dynamic_variables.h"
#include "encode_channel.h"
#include "engine_exit.h"
#include "entry_ahead.h"
#include "file.h"
#include "package.h"
#include "signatures.h"
#include "trclog.h"
#include "unzipping_channel.h"
#include "variable_builder.h"

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>

namespace km {

namespace {
constexpr int signature_field = 0;
constexpr int variables_field = 1;
constexpr int package_field = 2;
constexpr int build_field = 3;
constexpr int encode_buffer = 8192;

// While alive, who reads from the channel leaves it open.
class kept_open {
  public:
    explicit kept_open(input_channel& channel)
        : channel_(channel), before_(channel.is_to_be_deleted()) {
        channel.inhibit(1);
    }
    ~kept_open() { channel_.inhibit(before_ ? 0 : 1); }
    kept_open(const kept_open&) = delete;
    kept_open& operator=(const kept_open&) = delete;

  private:
    input_channel& channel_;
    bool before_;
};

// An entry is the package's alone.
bool is_entry(input_channel& source) {
    return dynamic_cast<unzipping_channel*>(&source) || dynamic_cast<entry_ahead*>(&source);
}

// To the end of the entry: the checksum is seen, and the offset is one that can be returned to.
void close_entry_of(input_channel& source) {
    if (auto* zip = dynamic_cast<unzipping_channel*>(&source))
        zip->close_entry();
    else if (auto* ahead = dynamic_cast<entry_ahead*>(&source))
        ahead->close_entry();
}

// To start a thread takes as long as to inflate some of these.
bool is_worth_a_thread(file_input_channel& source) {
    constexpr long bytes = 65536;
    return source.get_handle().filelength() >= bytes;
}

bool is_one_of(const ustring& signature, const char* const* all) {
    for (; *all; ++all)
        if (signature == ustring(*all))
            return true;
    return false;
}
} // namespace

int sp_object::is_valid_signature(const ustring& signature, sp_type type) {
    return (type != spb && is_one_of(signature, sp_signatures)) ||
           (type != sp && is_one_of(signature, spb_signatures));
}

cm_result sp_object::encode(cm_package* package, variable_list* variables, output_channel& to,
                            sp_type type) {
    KM_TRACE_FUNCTION("sp_object::encode");
    result = cm_command::success;
    encode_channel channel(&to, encode_buffer);
    {
        encoder stream(&channel);
        stream.encode_string_field(signature_field,
                                   type == spb ? spb_signatures[0] : sp_signatures[0]);
        stream.encode_long_field(build_field, get_engine_build_number());
        stream.encode_object_field(variables_field, variables);
        stream.encode_object_field(package_field, package);
        channel.flush();
        const int error = stream.get_status() ? stream.get_status() : channel.get_error();
        if (error) {
            KM_TRACE(trace_error, "common", "Encoding error. rc = %d", error);
            result = cm_command::failure;
        }
    }
    channel.close();
    if (result == cm_command::success && to.get_error()) {
        KM_TRACE(trace_error, "common", "Encoding error. rc = %d", to.get_error());
        result = cm_command::failure;
    }
    return result;
}

cm_result sp_object::fail_open(const char* trace, long key, const pathname& path, int error) {
    KM_TRACE(trace_error, "common", "%s '%s'. rc = %d", trace, path.mbcs_str(), error);
    if (messages)
        messages->add(key, path.mbcs_str(), std::to_string(error).c_str());
    return result = cm_command::failure;
}

cm_result sp_object::encode(cm_package* package, variable_list* variables, const pathname& to,
                            sp_type type) {
    file_output_channel target(to, 0);
    if (target.get_error())
        return fail_open("Unable to create the file", 25L, to,
                         target.get_handle().get_system_error());
    const pathname working_dir(base_configuration().get_var(u"working_dir"));
    const std::unique_ptr<file> temporary(file::get_temp_name(working_dir, u"PP", 1, nullptr));
    if (!temporary) {
        const int error = errno;
        KM_TRACE(trace_error, "common", "Unable to create temporary file.");
        if (messages)
            messages->add(25L, working_dir.mbcs_str(), std::to_string(error).c_str());
        return result = cm_command::failure;
    }
    file_output_channel plain(temporary->get_path(), 0);
    if (encode(package, variables, plain, type) == cm_command::success) {
        zipping_channel zip(&target);
        if (!zip.add(temporary->get_path(), 1, "SoftwarePackage", 1) || !zip.finish() ||
            zip.get_error())
            result = cm_command::failure;
    }
    temporary->remove(0);
    target.close();
    if (target.get_error())
        result = cm_command::failure;
    return result;
}

bool sp_object::decode_head(decoder& from, sp_type type) {
    constexpr int longest_traced = 800;
    ustring signature;
    from.decode_string_field(signature_field, signature);
    const std::string shown(signature.mbcs_str());
    KM_TRACE(trace_info, "common", "signature is : '%.*s'", longest_traced, shown.c_str());
    if (from.get_status() || !is_valid_signature(signature, type)) {
        KM_TRACE(trace_error, "common",
                 "Invalid signature '%.*s' for the Software Package. Aborting decode",
                 longest_traced, shown.c_str());
        result = cm_command::failure;
        invalid_signature = 1;
        return false;
    }
    from.decode_long_field(build_field, from.package_build_number);
    KM_TRACE(trace_info, "common", "package build number: %d",
             static_cast<int>(from.package_build_number));
    if (signature == ustring(oldest_spb_signature())) {
        KM_TRACE(trace_info, "common", "4.0 package!!");
        from.package_40 = 1;
    }
    return true;
}

namespace {
// Packages may ask that a remove walks their commands in the order in which they were made.
void keep_order_in_remove(variable_list& chain) {
    static char empty_setting[] = "__REVERSE_ORDER_DURING_REMOVE__=";
    const std::unique_ptr<ustring> value(chain.get_value(u"INHIBIT_REVERSE_ORDER_DURING_REMOVE"));
    if (!value || *value != ustring(u"YES"))
        return;
    KM_TRACE(trace_info, "common",
             "inhibit_remove_reverse_order set, following correct order in remove");
    if (::putenv(empty_setting))
        KM_TRACE(trace_error, "common", "error setting env variable");
}
} // namespace

void sp_object::decode_tree(cm_package*& package, decoder& from, input_channel& source,
                            int substitute) {
    auto* defaults = from.take_owned<variable_list>(variables_field);
    variable_list* chain =
        variable_list_builder::get_decoder_variables(command_line_variables, defaults);
    if (substitute)
        from.variables = chain;
    keep_order_in_remove(*chain);
    std::unique_ptr<cm_package> read(from.take_owned<cm_package>(package_field));
    if (read)
        close_entry_of(source);
    if (!read || from.get_status() || source.get_error()) {
        if (source.get_error() == channel_network) {
            KM_TRACE(trace_error, "common", "Unable to decode package. A Network error occured");
            engine_exit(0, "the network failed while the package was read");
        }
        KM_TRACE(trace_error, "common",
                 "Unable to decode package. The Software Package is corrupted");
        result = cm_command::failure;
        return;
    }
    read->variables = chain;
    package = read.release();
    dynamic_variable_list::set_package(package);
}

void sp_object::tell_corrupted() {
    if (messages)
        messages->add(82L);
}

cm_result sp_object::decode(cm_package*& package, input_channel* from, int substitute,
                            sp_type type) {
    KM_TRACE_FUNCTION("sp_object::decode");
    result = cm_command::success;
    invalid_signature = 0;
    package = nullptr;
    dynamic_variable_list::set_package(nullptr);
    {
        const kept_open guard(*from);
        decode_channel channel(from);
        if (whole_channel || is_entry(*from))
            channel.read_in_blocks();
        decoder stream(&channel);
        if (decode_head(stream, type))
            decode_tree(package, stream, *from, substitute);
    }
    if (result != cm_command::success)
        tell_corrupted();
    return result;
}

cm_result sp_object::decode(cm_package*& package, const pathname& from, int substitute,
                            sp_type type) {
    package = nullptr;
    file_input_channel source(from);
    if (source.get_error())
        return fail_open("Unable to open the file", 24L, from,
                         source.get_handle().get_system_error());
    source.inhibit(1);
    unzipping_channel zip(&source);
    zip.set_skip_tail(0);
    if (!zip.get_next_entry()) {
        KM_TRACE(trace_error, "common", "[%s %d]: Can't get next entry from zip file", __FILE__,
                 __LINE__);
        tell_corrupted();
        return result = cm_command::failure;
    }
    if (!is_worth_a_thread(source))
        return decode(package, &zip, substitute, type);
    entry_ahead ahead(zip);
    return decode(package, &ahead, substitute, type);
}

cm_result sp_object::decode_variables(input_channel* from, variable_list*& variables) {
    result = cm_command::success;
    invalid_signature = 0;
    variables = nullptr;
    const kept_open guard(*from);
    decode_channel channel(from);
    decoder stream(&channel);
    if (decode_head(stream, either)) {
        variables = stream.take_owned<variable_list>(variables_field);
        if (stream.get_status()) {
            delete variables;
            variables = nullptr;
            result = cm_command::failure;
        }
    }
    if (result != cm_command::success)
        tell_corrupted();
    return result;
}

} // namespace km
