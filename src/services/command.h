// command: base of every node of the command tree
//
// A package is a tree of commands. A command never throws and returns no failure: every operation
// leaves its outcome in `result`, and the caller reads it after the call.
//
// Which result to use:
//   0  success                         done
//   1  success_reboot_now              done; reboot at once, no further command
//   2  success_reboot_now_reexecute    not finished; reboot at once, then this command again
//   3  success_reboot_after            done; reboot when the operation has ended
//   4  success_reboot_after_reexecute  not finished; reboot at the end, then this command again
//   5  success_in_a_reboot             done; takes effect at the next reboot, which nobody forces
//   6  success_retry                   not finished; stop now, this command again at the next try
//   7  warning                         done with a warning
//   8  temporary_failure               failed; may work later (busy, locked, a full disk)
//   9  failure                         failed
//   10 fatal_failure                   the tree cannot be processed further (a torn stream)
//   11 failure_with_info               of a whole package only: no backup could be made
#pragma once

#include "engine_types.h"
#include "link_list.h"
#include "pathname.h"

namespace km {

class cm_package;
class filter_command_algorithm;
class preview_operation;
class unzipping_channel;
class zipping_channel;

// Coded form: the base's form, object field 100 `package` (a back reference to the root), boolean
// 101 `executed`, string 102 `condition` (read with substitution off), integer 103 `result`, string
// 104 `caption`, integer 105 `scope`, boolean 106 `execute_in_commit`, integer 107 `command_index`.
class cm_command : public codable_link::link {
  public:
    enum result : int {
        success = 0,
        success_reboot_now = 1,
        success_reboot_now_reexecute = 2,
        success_reboot_after = 3,
        success_reboot_after_reexecute = 4,
        success_in_a_reboot = 5,
        success_retry = 6,
        warning = 7,
        temporary_failure = 8,
        failure = 9,
        fatal_failure = 10,
        failure_with_info = 11
    };

    // Draws a command index.
    cm_command();
    // A deep copy that keeps the index and stands in no list.
    cm_command(const cm_command& other) = default;
    cm_command& operator=(const cm_command& other) = default;

    const char* codable_name() const override = 0;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    // Keys "condition" (message 185 and the status 0x30000 if it does not parse; the text stays as
    // written) and "is_per_user".
    void import(importer& from) override;
    // The key "condition" only.
    void export_(exporter& to) const override;

    // The command of this index below this one, or null. Lent.
    virtual cm_command* get_command_executed(int index);
    // Inserts a child behind `after` (null: at the end) and takes it over.
    virtual void add(cm_command* child, cm_command* after);
    // Unlinks and deletes a child.
    virtual void remove(cm_command* child);
    // Whether the action could run; changes nothing but `result`.
    virtual void can_execute(int action, int phase);
    virtual void do_execute(int action, int phase);
    virtual void can_backup(int action);
    // Builds the command that undoes `source` and puts it below `parent` (null: the caller's).
    // Null, and `result` set, where that failed.
    virtual cm_command* do_backup(cm_command* source, cm_command* parent, int action);
    // A new command that undoes this one, the caller's, or null.
    virtual cm_command* get_undo_command(int action);
    // Bytes of data that the command carries.
    virtual long get_size();
    // Seconds that the command may take, -1 for no limit; `count`, if given, counts the commands
    // that were asked.
    virtual int get_timeout(int* count, int action, bool undo, bool in_reboot);
    // Data movement. The channels and paths are lent.
    virtual void delta_save_command(pathname* base, unzipping_channel* in, zipping_channel* out);
    virtual void save_command(unzipping_channel* in, zipping_channel* out);
    virtual void save_command(zipping_channel* out);
    virtual void load_command(const int load);
    // Steps over this command's data in the input stream.
    virtual void skip_data();
    // Where data lie that are not in the package's stream.
    virtual void set_data_source(ustring host, int from_source_host, pathname* base);
    // The command may reboot the machine in this action and phase.
    virtual int is_bootable(int action, int phase);
    virtual void set_package(cm_package* package);
    virtual cm_package* get_package();
    virtual void set_executed(int executed);
    virtual void set_executed_all(int executed);
    virtual int get_executed();
    // Whether a walk runs this command now; the rule stands in the source.
    virtual int is_to_be_executed();
    virtual int get_command_index();
    virtual void set_command_index(int index);
    virtual void reset_command_status();
    virtual void set_container(cm_command* container);
    virtual void set_name(ustring name);
    virtual ustring get_name();
    // Line for the log, per action.
    virtual ustring get_log(int action);
    virtual int get_scope();
    virtual int get_execute_in_commit();
    // This command if its name is `name`, or matches it as a pattern with `exact` 0; else null.
    virtual cm_command* find(ustring name, int exact);
    // Messages 199 and 200 for results that are no success.
    virtual void iserr_can_execute();
    virtual void iserr_can_backup();
    virtual void preview(preview_operation& operation);
    // 1 if the command does not pass the filter.
    virtual int not_verify(filter_command_algorithm& filter);
    virtual int is_to_be_reexecuted();
    // Whether a partial operation keeps the command. `reserved` is handed on unread.
    virtual int select_commands(filter_command_algorithm& filter, int evaluate, int reserved = 0);
    // Puts a clone of this command into the package, in the place of the first one of its name, or
    // at the end.
    virtual void add_to_package(cm_package* package);
    // Text of `result`, empty for a value outside the table.
    virtual ustring map_result(int action, int phase);
    virtual int override_is_effective();
    virtual int is_to_be_logged();
    virtual void set_to_be_logged(int logged);

    // This command if its coded name is `name`, else null.
    cm_command* find_by_codable_name(const char* name);

    cm_package* package = nullptr;      // the root, lent; the root's own is itself
    std::int32_t executed = 0;          // carried out, or counts so, in this or the previous pass
    ustring condition;                  // empty: always true
    enum result result = success;       // of the last operation
    ustring caption;                    // label for people
    std::int32_t scope = 1;             // 1 machine, 2 user
    std::int32_t execute_in_commit = 0; // did its work in a commit: only the cleanup remains
    std::int32_t preview_selected = 0;  // not coded
    std::int32_t to_be_logged = 1;      // not coded
    std::int32_t command_index;

  protected:
    // The decision before the last filter, which differs between a leaf and a composite.
    int is_due();
};

// The type `cm_command::result`, which the field of that name hides.
using cm_result = enum cm_command::result;

// Text of a result, "" outside the table.
const char* result_text(int result);

} // namespace km
