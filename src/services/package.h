// package: the package object
//
// The root of a command tree, with the identity of the package, its attributes and the working
// state of one operation. One class in three roles:
//   - the package that a caller decodes from a package file or stream and runs;
//   - the profile: the same tree on disk without data, from which a later operation rebuilds it;
//   - the backup package, whose commands undo the package that made it.
//
// A caller makes the package, gives it `catalog`, `messages` and `reference_table`, sets
// `connected`, `block_size` and `restart_offset` if it runs from a stream, asks the gate
// (validate_cm_status) and calls the operation on the answer 0. One thread per operation. The page
// of the format: docs/formats/package-file.md.
#pragma once

#include "catalog.h"
#include "channel.h"
#include "composite_command.h"
#include "log_objects.h"
#include "nested_packages.h"
#include "persistent_hashtable.h"
#include "unzipping_channel.h"
#include "zipping_channel.h"

#include <ctime>
#include <memory>

namespace km {

class cm_ref_count_table;
class importer;
class pair;
class restart;
class spmessage;
class variable_list;

// Reason of the last failure, kept in the profile.
enum internal_error_code : int {
    ie_none = 0,
    ie_action_and_state = 1,
    ie_not_prepared = 3, // also: no valid state in commit
    ie_not_committable = 4,
    ie_not_undoable = 5,
    ie_prepared_undo = 6,
    ie_already_committed = 8,
    ie_not_in_catalog = 9,
    ie_entry_not_removed = 10,
    ie_catalog_update = 12,
    ie_backup_refused = 13,
    ie_backup_not_built = 14,
    ie_cleanup_backup = 15,
    ie_prepare_refused = 16,
    ie_do_refused = 17,
    ie_commit_refused = 18,
    ie_prepare_failed = 19, // a rollback was run
    ie_do_failed = 20,
    ie_commit_failed = 21,
    ie_memory = 22, // also: no restart condition
    ie_force = 23,  // the old reference could not be deleted
    ie_operation = 24,
    ie_must_be_undoable = 25,
    ie_must_be_committable = 26
};

class cm_package : public cm_composite_command {
  public:
    cm_package();
    // Deep for what the package owns; catalog, table, messages, variables, channels and the partner
    // are shared, and stay the source's.
    cm_package(const cm_package& other);
    cm_package& operator=(const cm_package& other);
    ~cm_package() override;

    codable* clone() const override { return new cm_package(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    long codable_version() const override { return 1; }
    // The block "package" of a definition. Failures: messages and the importer's status.
    void import(importer& from) override;
    void export_(exporter& to) const override;
    // An empty backup package, the caller's; null and `result` 10 without memory.
    cm_command* get_undo_command(int action) override;
    void set_name(ustring name) override;

    // Install (a_execute) or remove (a_reverse) from beginning to end, with commit and accept where
    // the mode asks for them. `call_argument` is kept in the entry and handed on. A run that a
    // reboot or a lost connection stops leaves a profile and an entry from which the same call goes
    // on. success_retry ends the process with status 0.
    virtual cm_result execute(int action, int mode, int call_argument);
    // Takes a prepared change back.
    virtual cm_result rollback(int mode, int call_argument);
    // Runs the backup package.
    virtual cm_result undo(int mode, int call_argument);
    // Makes a state final and throws the means of undo away.
    virtual cm_result accept(int mode, int call_argument);
    // Finishes a prepared change.
    virtual cm_result commit(int mode, int call_argument);
    // Checks that what the catalog says is true on the machine. Clones of the commands that fail go
    // into `comparison`, which may be null.
    virtual cm_result verify(cm_package*& comparison, int mode, int call_argument);
    // Writes the tree and the data of all commands, which are loaded first. A failure leaves `out`
    // as it is: it is the caller's.
    virtual cm_result save(zipping_channel* out);
    // Writes the tree only: what a profile is.
    virtual cm_result save_sp(zipping_channel* out);
    // As save, with the data copied from `in`; a null `out` only runs the commands' part.
    virtual cm_result save(unzipping_channel* in, zipping_channel* out);
    // A package that holds only what differs from `base`.
    virtual cm_result delta_save(pathname* base, unzipping_channel* in, zipping_channel* out);
    virtual unzipping_channel* get_input_channel();
    virtual km::input_channel* get_net_channel();
    // Builds the backup package and writes it to its file.
    virtual void build_undo_package(int action, int phase);

    // The gate in front of every operation: 0 allowed; 1 not in the proper state; 2 the action is
    // inverted, or an interrupted operation must go on first; 3 not in the catalog; 4 waiting for a
    // reboot; 5 hidden; -1 the catalog cannot be read. `status_out` takes the stable status, or the
    // one that caused the refusal. May store the entry: an interrupted operation that no reboot
    // explains becomes an error. With an interrupted entry it writes THIS tree over the profile, so
    // it is to be called on the package that came from it.
    int validate_cm_status(int operation, int action, int mode, int unused, int* status_out);
    // Status that an operation leads to from a status; a status outside the table stays.
    static int next_status(int operation, int from);

    // Looks `catalog_key` up; a clone of the entry becomes `catalog_entry`. 1 found; 0 not found (a
    // new entry then with `create`) or, with `result` 10, not cloned.
    int find_catalog_entry(int create);
    // A clone of the stored entry, the caller's, or null.
    cm_catalog_entry* get_entry_in_catalog() const;
    // Removes the package (and the backup package) from the catalog, and its files behind it. 0 or
    // 10. What could not be removed stays in the catalog, in error, so that the next remove finds
    // it.
    cm_result delete_package_reference(int delete_package, int delete_undo);
    // Rewrites the profile during an operation: 0, 7 if the profile has gone, 10.
    cm_result download_newsp();
    // Writes this tree to the path, durably: a plain coded stream with `as_zip` 0, else a zip. 1 or
    // 0.
    int download_list(const pathname& path, int as_zip);
    // Reads a package file with its data: the new package has this one's catalog and table, and
    // owns the channels. 1; 0 and `package_out` null.
    int load_list(const pathname& path, cm_package*& package_out);
    // A free name for a profile in the working directory, known to no entry. The file exists then,
    // empty. 1 or 0.
    int get_new_profile_name(pathname& path);
    bool is_checkpoint_to_be_executed();
    // Removes all other packages from the catalog; no object is touched. 1 or 0.
    int reset_history();
    // Removes the directories that the package's operations left behind. 1 or 0.
    int clear_service_directory();
    // Appends the default variables to the file of user variables.
    void save_default_variables();
    static int check_package_existence(const pathname& path);
    // Checksum of a file in the package that `central_directory` tells of; 0 for none.
    long get_crc_from_CEN(const pathname& path) const;
    // Makes the backup that an undoable operation needs; sets `result`.
    void make_backup(int action, int phase);
    // For classes of other libraries: runs a_reverse on their counterpart in the main package.
    cm_result do_remove_on_original_command(int command_index, int phase);

    // Sets the flags of the bits in `mode`; never clears one.
    void set_operation_option(int mode);
    // Older messages go in front of those of the new list, which is lent.
    void set_error_message(spmessage* list);
    void set_package_id_list(vector& pairs, int clear_source);
    // Whether a copy could be made.
    int insert_package_id(const pair& id);

    // Scopes that pass: all in an unconnected run whose mask is not the user's.
    std::uint32_t effective_mask() const {
        return !connected && package_mask != 2 ? ~0U : static_cast<std::uint32_t>(package_mask);
    }
    // Tells the progress hook that a command has ended.
    void note_progress(const cm_command& command);

    // What the engine itself made for this package goes with it; a caller may set another pointer
    // over `messages`, `input_channel` or `before_reboot_program` at any time, and keeps that one.
    void adopt_input_channel(unzipping_channel* made);
    void adopt_before_reboot_program(cm_command* clone);
    // Clears both channels, and deletes the reader if it was adopted.
    void release_channels();

    ustring name;
    ustring version;
    ustring title;
    ustring description;
    ustring copyright;
    std::int32_t undoable;    // 1 may not run undoably, 4 must, 2 free
    std::int32_t committable; // 1 may not run transactionally, 4 must, 2 free
    std::time_t creation_time;
    std::time_t last_modification_time;
    std::time_t additional_time;
    std::int32_t history_reset;
    std::int32_t caller_word;
    std::int32_t package_type;
    std::int32_t versioning_type;
    std::int32_t internal_error;
    ustring dependency;
    km::input_channel* net_channel = nullptr;       // lent
    km::unzipping_channel* input_channel = nullptr; // lent
    cm_package* partner_package = nullptr;
    Persistent_Hashtable* catalog = nullptr;       // lent
    cm_ref_count_table* reference_table = nullptr; // lent
    spmessage* messages = nullptr;                 // lent
    std::int32_t encode_messages;
    ustring extra_text;
    pathname spb_path;
    ustring source_host_name;
    std::int32_t move_removing_host;
    std::int32_t no_check_source_host;
    std::int32_t lenient_distribution;
    pathname qep_before_program_path;
    ustring qep_before_program_arguments;
    long qep_before_program_timeout;
    pathname qep_after_program_path;
    ustring qep_after_program_arguments;
    long qep_after_program_timeout;
    ustring default_operation;
    std::int32_t server_mode;
    std::int32_t operation_mode;
    pathname log_path;
    ustring log_host_name;
    std::int32_t log_mode;
    std::int32_t log_user_id;
    std::int32_t post_notice;
    ustring mail_id;
    pathname before_program_path;
    pathname before_input_path;
    long before_as_uid;
    std::int32_t skip_non_zero;
    pathname after_program_path;
    pathname after_input_path;
    long after_as_uid;
    ustring after_prog_env;
    ustring before_prog_env;
    pathname stage_area;
    std::int32_t no_chk_on_rm;
    long log_gid;
    long web_view_mode;
    vector* central_directory = nullptr; // owned: zip_entries
    ustring device_id;
    std::int32_t device_support;
    long sharing_control;
    ustring original_name;
    ustring original_version;
    cm_command* before_reboot_program = nullptr; // lent
    std::int32_t undo_only_executed_actions;
    variable_list* variables = nullptr;             // lent
    km::log_object_list* log_object_list = nullptr; // owned
    nested_package_list nested_packages;
    std::int32_t package_mask;
    std::int32_t save_default_variables_flag;
    std::int32_t internal_package;
    std::uint32_t device_failures;

    // Carried for other programs.
    std::int32_t reserved_314;
    std::int32_t reserved_356;
    vector reserved_361;
    vector reserved_362;
    ustring reserved_370;
    long reserved_372;

    // The running operation.
    cm_catalog_key catalog_key;
    cm_catalog_entry* catalog_entry = nullptr;           // owned: the working copy
    cm_catalog_entry* _previous_catalog_entry = nullptr; // owned, while an action is inverted
    std::uint32_t _curr_result;
    std::uint32_t _last_result;
    std::int32_t is_backup_package;
    std::int32_t external_call; // 0 while the engine calls itself
    std::int32_t commit_phase;
    std::int32_t commit_may_reboot;
    std::int32_t commit_goes_on; // its profile is that of a commit that stopped
    std::int32_t
        resume_stage; // leg at which a resumed run enters: 0 start, 1 do, 2 accept, 3 commit
    std::int32_t next_resume_stage;
    std::int32_t mode;
    long current_offset;
    long check_point_offset;
    long block_size; // bytes in the stream, 0 unknown
    std::int32_t not_compressed_installation;
    long restart_offset;
    std::int32_t connected;
    pathname source_path;
    ustring operation_name;
    ustring operation_phase;
    ustring operation_result;
    std::int32_t operation_is_transactional;
    std::int32_t operation_is_preferably_not_transactional;
    std::int32_t operation_is_undoable;
    std::int32_t operation_is_preferably_undoable;
    std::int32_t operation_is_undo_ability_transactional;
    std::int32_t operation_is_auto_commit;
    std::int32_t operation_is_auto_accept;
    std::int32_t operation_is_preferably_not_in_reboot;
    std::int32_t operation_is_in_a_reboot;
    std::int32_t operation_is_auto_reboot;
    std::int32_t operation_is_force;
    std::int32_t cleanup_flag;
    std::int32_t saving_profile;
    std::int32_t restart_internal;
    std::int32_t executing_as_undo;
    std::int32_t undo_preloaded;

    // Whether the destructor deletes the partner; not in copies and where the link points back.
    bool owns_partner = true;

  private:
    void init();
    void init_attributes();
    void init_operation();
    void copy_values(const cm_package& other);
    void release();
    void decode_attributes(decoder& from);
    void decode_operation(decoder& from);
    void decode_programs(decoder& from);
    void decode_lists(decoder& from);
    void encode_programs(encoder& to) const;
    void import_attributes(importer& from);
    void import_programs(importer& from);
    void import_lists(importer& from);
    void export_programs(exporter& to) const;

    // The gate, step by step.
    struct gate;
    int check_listed_entry(gate& at);
    int check_error_entry(gate& at);
    int check_interrupted_entry(gate& at);
    int check_execute_state(gate& at);
    int check_other_state(gate& at);

    // execute, step by step.
    struct run;
    void begin_execute(run& at);
    bool start_fresh(run& at);
    bool rebuild_for_resume(run& at);
    std::int32_t stored_status() const;
    bool drop_old_reference(run& at, bool& gone);
    bool step_down_without_backup(run& at);
    void keep_known(std::int32_t old_status);
    void initialize_execute(int action, int mode);
    void initialize_new_entry(int action, int mode);
    void initialize_known_entry(int action, int mode);
    bool resumes_interrupted_run(int action) const;
    void refuse(const char* trace, const char* attribute, int error);
    void check_execute(int action, int& mode);
    void check_attributes(int& mode);
    void choose_operation(int action, int& mode);
    void choose_backup(int action, int& mode);
    void choose_prepare(int action);
    void choose_do(int action, int& mode);
    void execute_package(run& at);
    void fold_execution(run& at);
    void fail_execution(run& at, cm_result outcome);
    void run_cleanup(const run& at);
    bool commit_leg(run& at);
    void accept_leg(run& at);
    bool has_no_reboot_flags() const;

    // What execute stores at its end. False: execute returns 10.
    cm_result finish_execute(run& at);
    bool choose_profile(run& at);
    bool store_outcome(run& at);
    bool write_new_profile(run& at);
    bool store_pending(run& at);
    bool store_success(run& at);
    bool store_failure(run& at);
    bool store_error(run& at);
    bool drop_failed_run(run& at);
    void restore_previous_entry();

    // delete_package_reference, step by step.
    struct removal;
    bool take_entries(removal& at, int delete_package, int delete_undo);
    bool remove_files(removal& at, int delete_package, int delete_undo);
    bool put_back(removal& at, bool own_entry);

    // Backup packages.
    void drop_stale_undo();
    void gather_undo_data();
    void make_undo_package(int action, int phase);
    void describe_undo(cm_package& undo, const pathname& path) const;
    bool save_undo(cm_package& undo, const pathname& path, int phase);
    bool note_undo(const pathname& path, int phase);
    const cm_catalog_entry* inner_entry() const;
    bool load_partner();
    static bool is_complete(const cm_catalog_entry& inner, std::int32_t in);
    void prepare_partner();
    void append_extra_text(cm_package& to) const;
    void clone_reboot_program();
    void take_back_variables();
    void drop_partner();

    // What the operations behind an execute share.
    bool begin_external(int operation, int mode, int call_argument, std::int32_t& started);
    bool begin_internal(int operation, int mode, int call_argument);
    bool store_rolled_back(int next);
    bool store_failed();
    int note_begun();
    void note_not_begun();
    void drop_prepared_copies();

    // commit, step by step.
    void initialize_commit(int mode, int call_argument);
    void treat_as_prepared(int mode);
    void check_commit(int& mode);
    void check_backup_of_commit(int mode);
    void check_tree_of_commit();
    bool commit_package(int mode, int call_argument);
    cm_result commit_not_begun();
    bool backup_before_commit(int mode);
    void commit_prepared_undo(int mode, int call_argument);
    cm_result run_commit(int mode, int call_argument);
    bool wait_for_reboot();
    bool end_commit(int next);
    bool suspend_commit();
    void fail_commit(int next, int call_argument);
    cm_result store_commit();

    // accept, step by step.
    cm_result accept_state(int mode, int call_argument, cm_result& outcome);
    cm_result drop_backup(std::int32_t before, std::int32_t after);
    cm_result accept_prepared_undo(int mode, int call_argument, cm_result& outcome);
    bool store_accepted(cm_result outcome, std::int32_t started);

    // undo, step by step.
    bool inner_run_is_complete(int& requested);
    bool run_partner(int mode, int call_argument, cm_result& outcome, int& requested);
    cm_result fold_undo(int requested, cm_result outcome, std::int32_t started);
    cm_result undone_to_beginning(cm_result outcome, std::int32_t started);
    cm_result undone_to(int next, cm_result outcome);
    cm_result undo_waits(int next, cm_result outcome);
    cm_result undo_failed(int next, cm_result outcome);

    // verify, step by step.
    bool verify_state(cm_package*& comparison, int action, int mode, int call_argument);
    void verify_tree(cm_package* comparison, int action, int phase);
    void apply_verify(cm_package* comparison, int action, int phase);
    bool verify_backup();
    bool verify_prepared_undo(cm_package*& comparison, int action, int mode, int call_argument);

    cm_result save_profile(zipping_channel* out, int load_data);
    cm_result end_of_save(zipping_channel* out);

    // Never copied.
    std::unique_ptr<unzipping_channel> own_input_channel_;
    std::unique_ptr<spmessage> own_messages_;
    std::unique_ptr<cm_command> own_before_reboot_program_;
    long progress_done_ = 0;
    long progress_total_ = 0;
    friend class cm_composite_command;
};

} // namespace km
