// program_command: runs programs of the user in the operations of a package
//
// Up to five programs: for install, remove, undo, commit and verify. Coded form behind that of
// every command: for each of the five, in this order and at the ids 200, 210, 220, 230 and 240:
// string path, string arguments (id + 1), integer time limit in seconds, -1 none (id + 2). Then
// string fields 250 working directory, 251 environment, 252 user, 253 exit codes; only where they
// are not empty object field 254 files, string field 255 directory; only in an upgrade string field
// 256 acts_for, boolean field 257 is_removal.
//
// Which program runs:
//   a_execute, p_do                          install
//   a_execute, p_commit, after the reboot    commit, or install where there is no commit
//   a_reverse, in the same phases            remove
//   a_verify_execute, a_verify_reverse; p_do verify; its failure is a difference
//   p_prepare, p_commit_before_reboot        none: whether it could be run
// The undo of an install is this command with the undo program as its install program; none if
// there is no undo program. The undo of a remove is the install program. An undo runs only where
// the command that it undoes was carried out.
//
// A path that is not absolute names a file that the package brings for the program alone (see
// program_files.h). KM_FILES tells the directory of these.
//
// Arguments are split at blanks, with the quoting of a shell ('...', "...", \), without a shell.
// The program runs in a session of its own, with standard input empty, the signals as they are by
// default, the umask 022 and the environment PATH, HOME, USER, LOGNAME, SHELL, LANG, LC_ALL, TZ,
// what the package gives, and
//   KM_OPERATION  install, remove, undo, commit, verify
//   KM_PHASE      commit, prepare, commit_after_reboot
//   KM_PACKAGE    NAME^VERSION; in an undo that of the package that is undone
//   KM_ACTION     install or remove: which of them is done, or verified
//   KM_RERUN      1 if it may have run before in this operation, whole or in part; else 0
// Below a target root it runs with that as its root directory, which needs privilege.
//
// What it writes goes to the log of the package, line by line, marked "[output]"; the last 64 KiB
// are kept. At its time limit its process group gets SIGTERM, 5 seconds later SIGKILL.
#pragma once

#include "command.h"
#include "program_exit_codes.h"
#include "program_files.h"

#include <array>
#include <string>

namespace km {

struct program_request;
struct program_outcome;

class program_command : public cm_command {
  public:
    enum part : int { of_install, of_remove, of_undo, of_commit, of_verify, parts };

    codable* clone() const override { return new program_command(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    long codable_version() const override { return 1; }
    // Stanza "user_program". Keys "install_path", "install_arguments", "install_timeout" and the
    // same with "remove_", "undo_", "commit_", "verify_"; "working_directory" (default "/"),
    // "environment" (NAME=VALUE apart by blanks, quoted as arguments are), "user" (name or number),
    // "exit_codes" (see program_exit_codes.h), "caption", the block "corequisite_files" with the
    // files that come with it. A text that cannot be split or read is a message, and so is a path
    // that none of those files has.
    void import(importer& from) override;
    void export_(exporter& to) const override;

    // 9 with a message where the program of that action and phase could not be run: it is not there
    // and the package does not bring it, is no executable file, has unbalanced quotes, its user is
    // unknown or cannot be taken on. Runs nothing.
    void can_execute(int action, int phase) override;
    // The result is that of the exit code; 9 for a program that cannot be started, ended by a
    // signal or reached its time limit, with a message.
    void do_execute(int action, int phase) override;
    void can_backup(int action) override;
    cm_command* get_undo_command(int action) override;
    // Sum of the limits of the programs that the action runs, with that of the undo where asked
    // for; -1 if one of them has none.
    int get_timeout(int* count, int action, bool undo, bool in_reboot) override;
    int is_to_be_executed() override;
    // The verify program says that it is not as it should be; so a repair installs it again.
    int is_to_be_reexecuted() override;
    long get_size() override;
    void delta_save_command(pathname* base, unzipping_channel* in, zipping_channel* out) override;
    void save_command(unzipping_channel* in, zipping_channel* out) override;
    void save_command(zipping_channel* out) override;
    void load_command(const int load) override;
    void skip_data() override;
    void set_package(cm_package* of) override;
    ustring get_name() override;
    ustring get_log(int action) override;
    // Empty where no program was to run, so that the log tells of none.
    ustring map_result(int action, int phase) override;

    struct program {
        ustring path; // empty: none
        ustring arguments;
        std::int32_t timeout = -1;
    };
    // The program that runs then; null for none.
    const program* program_for(int action, int phase) const;

    std::array<program, parts> programs;
    ustring working_directory;
    ustring environment;
    ustring user;
    ustring exit_codes;
    program_files files;
    // An upgrade runs what only the older version has: the NAME^VERSION of that one, and whether
    // its remove program is what this command installs.
    ustring acts_for;
    std::int32_t is_removal = 0;
    // Such a command, the caller's: its install program is the remove program of this one, and its
    // undo program the install program. Null without a remove program.
    program_command* removal_for(const ustring& name_and_version) const;
    // Such a command for a program that the newer version has, too: nothing is installed, and its
    // undo runs the install program, behind the undo program of the newer one; null without one of
    // the two.
    program_command* return_for(const ustring& name_and_version,
                                const program_command& newer) const;
    ustring directory; // where an install laid them, in the target root; empty: not yet

  private:
    template <class Act> void on_files(const Act& act);
    program_command* undone_by_this(const ustring& version) const;
    std::string place_of(const ustring& path) const;
    std::string own_directory() const;
    bool lay_files();
    void import_files(importer& from);
    bool fill(const program& one, int action, int phase, program_request& request);
    bool take_user(program_request& request);
    void check(const program& one, int action, int phase);
    bool is_brought(const ustring& path);
    void run(const program& one, int action, int phase);
    void fold(const program& one, const program_outcome& end, int action);
    void log_output(const program_outcome& end);
    void fail(long message, const std::string& what, const std::string& reason = {});
};

} // namespace km
