// program_command: runs programs of the user in the operations of a package
// format: docs/formats/package-file.md
// invariants: no shell reads what the package gives; the note that a program ran stands before it
// starts
#include "program_command.h"

#include "accounts.h"
#include "log_objects.h"
#include "object_command.h"
#include "object_messages.h"
#include "package.h"
#include "program_notes.h"
#include "program_run.h"
#include "stop_request.h"
#include "target_root.h"
#include "trclog.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace km {

const char* program_command::codable_name() const { return "com.ombrel.sd.cmObjects.KmProgram"; }

namespace {
// A line of the package's log.
class output_line : public cm_command {
  public:
    codable* clone() const override { return new output_line(*this); }
    const char* codable_name() const override { return ""; }
    long codable_version() const override { return 1; }
    ustring get_log(int) override { return text; }
    ustring map_result(int, int) override { return u"output"; }

    ustring text;
};

bool does_work(int phase) {
    return phase == p_do || phase == p_commit || phase == p_commit_after_reboot;
}

std::string bytes_of(const ustring& text) { return text.mbcs_str(); }
} // namespace

const program_command::program* program_command::program_for(int action, int phase) const {
    const auto one = [this](part of) {
        const program& named = programs[static_cast<size_t>(of)];
        return named.path.empty() ? nullptr : &named;
    };
    if (action == a_verify_execute || action == a_verify_reverse)
        return phase == p_do ? one(of_verify) : nullptr;
    if (action == a_reverse)
        return one(of_remove);
    if (action != a_execute)
        return nullptr;
    const bool commits = phase == p_commit || phase == p_commit_after_reboot ||
                         phase == p_prepare || phase == p_commit_before_reboot;
    return commits && one(of_commit) ? one(of_commit) : one(of_install);
}

void program_command::fail(long message, const std::string& what, const std::string& reason) {
    tell(package, static_cast<object_message>(message), what, reason);
    result = failure;
}

// Whether the package itself puts something at that path.
bool program_command::is_brought(const ustring& path) {
    return package && package->find(ustring(u"add ") + path, 1);
}

bool program_command::take_user(program_request& request) {
    account who;
    if (!user.empty() && !find_account(bytes_of(user), who)) {
        fail(om_program, request.path, "its user " + bytes_of(user) + " is not known");
        return false;
    }
    if (user.empty())
        find_account(std::to_string(::geteuid()), who);
    request.changes_user = !user.empty() && who.user != ::geteuid();
    request.user = who.user;
    request.group = who.group;
    request.groups = who.groups;
    const bool privileged = ::geteuid() == 0;
    if (request.changes_user && !privileged) {
        fail(om_program, request.path,
             "only a privileged user can run it as " + bytes_of(user) + "; run this as root");
        return false;
    }
    if (!get_target_root().empty() && !privileged) {
        fail(om_program, request.path,
             "programs run inside the root " + get_target_root() +
                 ", and only a privileged user can go there; run this as root");
        return false;
    }
    request.environment = {"PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                           "HOME=" + who.home, "USER=" + who.name, "LOGNAME=" + who.name,
                           "SHELL=" + who.shell};
    for (const char* name : {"LANG", "LC_ALL", "TZ"})
        if (const char* value = std::getenv(name))
            request.environment.push_back(std::string(name) + "=" + value);
    return true;
}

// The directory of its files is that of the package that brought them, also in an undo.
std::string program_command::own_directory() const {
    if (!directory.empty() || !package)
        return bytes_of(directory);
    ustring name, version;
    set_package_name_and_version(*package, name, version);
    return program_directory(bytes_of(name), bytes_of(version), command_index);
}

std::string program_command::place_of(const ustring& path) const {
    const std::string bytes = bytes_of(path);
    const bool is_brought =
        !bytes.empty() && bytes[0] != '/' && (files.tree() || !directory.empty());
    return is_brought ? own_directory() + "/" + bytes : bytes;
}

bool program_command::lay_files() {
    directory = ustring(own_directory().c_str());
    result = files.unpack(*package, bytes_of(directory));
    return result == success;
}

namespace {
std::string fault_of_path(const std::string& path) {
    if (path.empty() || path[0] != '/')
        return "its path is not absolute";
    if (path.find("$(") != std::string::npos)
        return "its path holds a variable that is not defined; give its value with -D NAME=VALUE";
    return "";
}

// A later one of the same name takes the place of an earlier one.
void set_variable(std::vector<std::string>& all, const std::string& text) {
    const std::string head = text.substr(0, text.find('=') + 1);
    for (auto& one : all)
        if (one.compare(0, head.size(), head) == 0) {
            one = text;
            return;
        }
    all.push_back(text);
}
} // namespace

// Everything that a run needs, but for what differs from run to run. False: told.
bool program_command::fill(const program& one, int action, int phase, program_request& request) {
    request.path = place_of(one.path);
    if (const auto fault = fault_of_path(request.path); !fault.empty()) {
        fail(om_program, request.path, fault);
        return false;
    }
    std::vector<std::string> given;
    if (!split_words(bytes_of(one.arguments), request.arguments) ||
        !split_words(bytes_of(environment), given)) {
        fail(om_program, request.path, "a quote in its arguments or environment is not closed");
        return false;
    }
    std::string fault;
    if (!program_exit_codes().read(bytes_of(exit_codes), fault)) {
        fail(om_program, request.path, "in its exit codes, " + fault);
        return false;
    }
    if (!take_user(request))
        return false;
    for (const auto& text : given) {
        if (text.find('=') == std::string::npos || text[0] == '=') {
            fail(om_program, request.path, "'" + text + "' in its environment is no NAME=VALUE");
            return false;
        }
        set_variable(request.environment, text);
    }
    if (!working_directory.empty())
        request.working_directory = bytes_of(working_directory);
    request.time_limit = one.timeout;
    ustring name, version;
    set_package_name_and_version(*package, name, version);
    const std::string operation =
        package->operation_name.empty() ? "verify" : bytes_of(package->operation_name);
    const bool rerun = program_noted(bytes_of(name), bytes_of(version), command_index, operation);
    const bool takes_away = is_removal || action == a_reverse || action == a_verify_reverse;
    const std::string of =
        acts_for.empty() ? bytes_of(name) + "^" + bytes_of(version) : bytes_of(acts_for);
    for (const auto& text : {"KM_OPERATION=" + (is_removal ? std::string("remove") : operation),
                             "KM_PHASE=" + bytes_of(package->operation_phase), "KM_PACKAGE=" + of,
                             std::string("KM_ACTION=") + (takes_away ? "remove" : "install"),
                             std::string("KM_RERUN=") + (rerun ? "1" : "0")})
        set_variable(request.environment, text);
    if (files.tree() || !directory.empty())
        set_variable(request.environment, "KM_FILES=" + own_directory());
    return phase != 0;
}

// What is not there yet may be one that the package puts there first.
void program_command::check(const program& one, int action, int phase) {
    program_request request;
    if (!fill(one, action, phase, request) ||
        (action == a_execute && files.brings(bytes_of(one.path))))
        return;
    struct stat about {};
    if (!look_at(request.path, about)) {
        const int error = errno;
        if (!is_brought(one.path))
            fail(om_program, request.path, std::strerror(error));
        return;
    }
    constexpr mode_t by_anybody = S_IXUSR | S_IXGRP | S_IXOTH;
    const bool is_file = S_ISREG(about.st_mode);
    const bool refused = is_file ? !(about.st_mode & by_anybody) : !S_ISLNK(about.st_mode);
    if (refused && !is_brought(one.path))
        fail(om_program, request.path,
             is_file ? "it is not executable" : "it is neither a file nor a link");
}

void program_command::can_execute(int action, int phase) {
    KM_TRACE_FUNCTION("program_command::can_execute");
    result = success;
    if (is_quiet_phase(phase) || (action != a_execute && action != a_reverse))
        return;
    const program* one = program_for(action, phase);
    if (one && package)
        check(*one, action, phase);
    iserr_can_execute();
}

void program_command::do_execute(int action, int phase) {
    KM_TRACE_FUNCTION("program_command::do_execute");
    result = success;
    execute_in_commit = 0;
    const bool verifies = action == a_verify_execute || action == a_verify_reverse;
    if (!package || is_quiet_phase(phase) || phase == p_backup_finish)
        return;
    const program* one = program_for(action, phase);
    const bool lays = files.tree() && action == a_execute && (phase == p_do || phase == p_prepare);
    if (!verifies && (lays || (one && does_work(phase))) &&
        (stop_requested() || take_failure_request())) {
        result = stop_requested() ? result_of_stop(*package, phase) : failure;
        return;
    }
    if (lays && !lay_files())
        return;
    if (one && (does_work(phase) || verifies)) {
        run(*one, action, phase);
    } else if (one && !verifies) {
        check(*one, action, phase);
    }
    if (!verifies && (phase == p_commit || phase == p_commit_after_reboot))
        execute_in_commit = 1;
}

void program_command::run(const program& one, int action, int phase) {
    program_request request;
    if (!fill(one, action, phase, request))
        return;
    const bool verifies = action == a_verify_execute || action == a_verify_reverse;
    ustring name, version;
    set_package_name_and_version(*package, name, version);
    if (!verifies && !note_program(bytes_of(name), bytes_of(version), command_index,
                                   bytes_of(package->operation_name)))
        return fail(om_program, request.path,
                    std::string("its run cannot be noted: ") + std::strerror(errno));
    KM_TRACE(trace_info, "common", "running '%s'", request.path.c_str());
    const program_outcome end = run_program(request);
    log_output(end);
    fold(one, end, action);
}

namespace {
std::string signal_text(int number) {
    const char* name = ::sigabbrev_np(number);
    return name ? std::string("SIG") + name : "signal " + std::to_string(number);
}

const char* plain_words(cm_result result) {
    return result == cm_command::temporary_failure ? ": it may work later" : ": it failed";
}
} // namespace

void program_command::fold(const program& one, const program_outcome& end, int action) {
    const std::string path = bytes_of(one.path);
    switch (end.how) {
    case program_outcome::end::exited:
        break;
    case program_outcome::end::killed:
        return fail(om_program_end, path, "was ended by " + signal_text(end.code));
    case program_outcome::end::timed_out:
        return fail(om_program_end, path,
                    "did not end within " + std::to_string(one.timeout) +
                        " seconds, and was ended");
    case program_outcome::end::not_started:
        return fail(om_program, path, "it cannot " + end.step + ": " + std::strerror(end.code));
    }
    program_exit_codes table;
    std::string fault;
    table.read(bytes_of(exit_codes), fault);
    result = table.result_of(end.code);
    const bool verifies = action == a_verify_execute || action == a_verify_reverse;
    if (verifies && result != success)
        result = failure;
    if (result == temporary_failure || result == failure)
        tell(package, om_program_end, path,
             "ended with code " + std::to_string(end.code) +
                 (verifies ? ": it is not as it should be" : plain_words(result)));
}

namespace {
// What would look like something else in a log, or hide it, is shown as a question mark. An empty
// line is one with a blank: the log takes no empty text.
ustring printable(std::string line) {
    for (char& c : line)
        if ((static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7F)
            c = '?';
    return ustring(line.empty() ? " " : line.c_str());
}
} // namespace

void program_command::log_output(const program_outcome& end) {
    auto* log = package->log_object_list;
    if (!log || end.output.empty())
        return;
    if (!log->is_open_for(package))
        log->log_package(package);
    output_line line;
    const auto write = [&](const std::string& text) {
        line.text = printable(text);
        log->log_command(&line, a_execute, p_do);
    };
    if (end.lost)
        write("(" + std::to_string(end.lost) + " bytes before this are not kept)");
    for (size_t at = 0; at < end.output.size();) {
        size_t stop = end.output.find('\n', at);
        if (stop == std::string::npos)
            stop = end.output.size();
        write(end.output.substr(at, stop - at));
        at = stop + 1;
    }
}

// What a program does cannot be backed up.
void program_command::can_backup(int) { result = success; }

cm_command* program_command::get_undo_command(int action) {
    result = success;
    const part of = action == a_execute ? of_undo : of_install;
    if ((action != a_execute && action != a_reverse) ||
        programs[static_cast<size_t>(of)].path.empty())
        return nullptr;
    auto* undo = new program_command(*this);
    undo->reset_command_status();
    undo->execute_in_commit = 0;
    undo->programs = {};
    undo->programs[of_install] = programs[static_cast<size_t>(of)];
    if (undo->files.tree()) // they lie there already, or will by then
        undo->directory = ustring(own_directory().c_str());
    undo->files.take(nullptr);
    undo->is_removal = 0;
    return undo;
}

// Its undo program is the install program of this one.
program_command* program_command::undone_by_this(const ustring& version) const {
    auto* command = new program_command;
    command->caption = caption;
    command->programs[of_undo] = programs[of_install];
    command->working_directory = working_directory;
    command->environment = environment;
    command->user = user;
    command->exit_codes = exit_codes;
    command->directory = directory;
    command->acts_for = version;
    return command;
}

program_command* program_command::removal_for(const ustring& version) const {
    if (programs[of_remove].path.empty())
        return nullptr;
    auto* command = undone_by_this(version);
    command->programs[of_install] = programs[of_remove];
    command->is_removal = 1;
    return command;
}

program_command* program_command::return_for(const ustring& version,
                                             const program_command& newer) const {
    const bool is_taken_back = !newer.programs[of_undo].path.empty();
    return is_taken_back && !programs[of_install].path.empty() ? undone_by_this(version) : nullptr;
}

int program_command::get_timeout(int* count, int action, bool undo, bool) {
    if (count)
        ++*count;
    const bool verifies = action == a_verify_execute || action == a_verify_reverse;
    int sum = 0;
    const auto add = [&](part of) {
        const program& one = programs[static_cast<size_t>(of)];
        if (one.path.empty() || sum < 0)
            return;
        sum = one.timeout < 0 ? -1 : sum + one.timeout;
    };
    add(verifies ? of_verify : action == a_reverse ? of_remove : of_install);
    if (action == a_execute)
        add(of_commit);
    if (undo)
        add(of_undo);
    return sum;
}

// What never ran must not be undone: unlike an object, a program cannot see that.
int program_command::is_to_be_executed() {
    if (!cm_command::is_to_be_executed())
        return 0;
    if (!package->is_backup_package || !package->partner_package)
        return 1;
    cm_command* undone = package->partner_package->get_command_executed(command_index);
    return undone ? undone->get_executed() : 1;
}

int program_command::is_to_be_reexecuted() {
    const auto kept = result;
    result = success;
    if (const program* one = package ? program_for(a_verify_execute, p_do) : nullptr)
        run(*one, a_verify_execute, p_do);
    const bool differs = result != success;
    result = kept;
    return differs;
}

long program_command::get_size() { return files.size(); }

// No base package has them at a path.
void program_command::delta_save_command(pathname*, unzipping_channel* in, zipping_channel* out) {
    return in ? save_command(in, out) : save_command(out);
}

template <class Act> void program_command::on_files(const Act& act) {
    result = success;
    if (auto* tree = files.tree()) {
        act(*tree);
        result = static_cast<cm_result>(tree->result);
    }
}

void program_command::save_command(unzipping_channel* in, zipping_channel* out) {
    on_files([&](cm_composite_command& tree) { tree.save_command(in, out); });
}

void program_command::save_command(zipping_channel* out) {
    on_files([&](cm_composite_command& tree) { tree.save_command(out); });
}

void program_command::load_command(const int load) {
    on_files([&](cm_composite_command& tree) { tree.load_command(load); });
}

void program_command::skip_data() {
    on_files([](cm_composite_command& tree) { tree.skip_data(); });
}

void program_command::set_package(cm_package* of) {
    cm_command::set_package(of);
    if (auto* tree = files.tree())
        tree->set_package(of);
}

ustring program_command::get_name() {
    if (!caption.empty())
        return caption;
    for (const auto& one : programs)
        if (!one.path.empty())
            return ustring(u"run ") + one.path;
    return u"run no program";
}

ustring program_command::get_log(int action) {
    const program* one = program_for(action, p_do);
    return one ? ustring(u"run ") + one->path + ustring(u" ") + one->arguments : get_name();
}

ustring program_command::map_result(int action, int phase) {
    const bool verifies = action == a_verify_execute || action == a_verify_reverse;
    if (!program_for(action, phase) || (!does_work(phase) && !verifies && result == success))
        return {};
    return cm_command::map_result(action, phase);
}

extern "C" codable* make_KmProgram() { return new program_command; }

} // namespace km
