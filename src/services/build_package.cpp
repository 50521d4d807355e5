// build_package: a package object from a package file
// format: docs/formats/package-file.md
// invariant: a target that is not whole is removed
#include "build_package.h"

#include "base/msg_supp.h"
#include "dynamic_variables.h"
#include "file.h"
#include "package.h"
#include "sp_object.h"
#include "trclog.h"

#include <cstdio>
#include <memory>
#include <string>

namespace km {

namespace {
cm_result end_unsuccessful(spmessage& messages, cm_result result) {
    messages.add(5L);
    messages.display(stderr);
    return result;
}

cm_result cannot_open(spmessage& messages, long key, const pathname& path, int error) {
    messages.add(key, path.mbcs_str(), std::to_string(error).c_str());
    return end_unsuccessful(messages, cm_command::failure);
}

// What decodes a second package leaves the running one to the dynamic variables.
class kept_dynamic_package {
  public:
    kept_dynamic_package() = default;
    ~kept_dynamic_package() { dynamic_variable_list::set_package(running_); }
    kept_dynamic_package(const kept_dynamic_package&) = delete;
    kept_dynamic_package& operator=(const kept_dynamic_package&) = delete;

  private:
    cm_package* const running_ = dynamic_variable_list::get_package();
};

void drop(file_output_channel& out, const pathname& target) {
    out.close();
    file(target).remove(0);
}
} // namespace

cm_result build_from_sp_file(pathname source, pathname target) {
    KM_TRACE_FUNCTION("build_from_sp_file");
    spmessage messages;
    file_input_channel in(source);
    if (in.get_error())
        return cannot_open(messages, 24L, source, in.get_handle().get_system_error());
    in.inhibit(1);
    unzipping_channel zip(&in);
    zip.set_skip_tail(0);
    if (!zip.get_next_entry()) {
        KM_TRACE(trace_error, "common", "[%s %d]: Can't get next entry from zip file", __FILE__,
                 __LINE__);
        messages.add(184L);
        return end_unsuccessful(messages, cm_command::failure);
    }
    file_output_channel out(target, 0);
    if (out.get_error())
        return cannot_open(messages, 25L, target, out.get_handle().get_system_error());
    sp_object reader(&messages);
    cm_package* read = nullptr;
    const kept_dynamic_package running;
    const auto decoded = reader.decode(read, &zip, 0, sp_object::sp);
    const std::unique_ptr<cm_package> package(read);
    if (decoded != cm_command::success) {
        KM_TRACE(trace_error, "common", "[%s %d]: Can't create package due to decode", __FILE__,
                 __LINE__);
        drop(out, target);
        return end_unsuccessful(messages, cm_command::failure);
    }
    package->set_error_message(&messages);
    zipping_channel block(&out);
    const auto saved = package->save(&block);
    if (saved != cm_command::success) {
        drop(out, target);
        return end_unsuccessful(messages, saved);
    }
    package->set_error_message(nullptr);
    return saved;
}

} // namespace km
