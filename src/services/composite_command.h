// composite_command: a command that holds commands
//
// It decides for every action and phase in which order the children run, which of them run, how
// their results fold into one, where the walk stops, and how the position in the package's data
// stream stays right when commands are left out:
//
//   The data of the commands lie in the stream one behind the other, in child order, and a command
//   consumes its own as it runs. One that does not run consumes them too (skip_data), in a_execute
//   of p_do and p_prepare only.
//
// The walk keeps no state of its own: its progress is the `executed` of the children and the bit
// words of the package, and these are stored. So a walk that was cut goes on where it stopped.
//
// Results of children are collected in package->_curr_result: 1 a warning or a failure that did not
// stop, 2 reboot after, 4 reboot after and again, 8 in a reboot. Each composite takes only the top
// bit off; the rest reaches the composite above or, through _last_result, the next phase.
#pragma once

#include "command.h"

namespace km {

enum result_bit : std::uint32_t {
    bit_warning = 1,
    bit_reboot_after = 2,
    bit_reboot_reexecute = 4,
    bit_in_a_reboot = 8
};

// Coded form: the command's fields, boolean field 200 `stop_on_failure`, iterator field 201 the
// children in order.
class cm_composite_command : public cm_command {
  public:
    explicit cm_composite_command(int stop_on_failure = 1);
    // Takes the stop flag of a parent.
    explicit cm_composite_command(cm_command* parent);
    cm_composite_command(const cm_composite_command& other);
    cm_composite_command& operator=(const cm_composite_command& other);

    codable* clone() const override { return new cm_composite_command(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    long codable_version() const override { return 1; }
    void import(importer& from) override;
    void export_(exporter& to) const override;

    cm_command* get_command_executed(int index) override;
    void add(cm_command* child, cm_command* after) override;
    void remove(cm_command* child) override;
    void can_execute(int action, int phase) override;
    void do_execute(int action, int phase) override;
    void can_backup(int action) override;
    cm_command* do_backup(cm_command* source, cm_command* parent, int action) override;
    cm_command* get_undo_command(int action) override;
    int get_timeout(int* count, int action, bool undo, bool in_reboot) override;
    void delta_save_command(pathname* base, unzipping_channel* in, zipping_channel* out) override;
    void save_command(unzipping_channel* in, zipping_channel* out) override;
    void save_command(zipping_channel* out) override;
    void load_command(const int load) override;
    void skip_data() override;
    void set_data_source(ustring host, int from_source_host, pathname* base) override;
    void set_package(cm_package* package) override;
    void set_executed(int executed) override;
    void set_executed_all(int executed) override;
    int is_to_be_executed() override;
    // Of the children; this node keeps its own.
    void reset_command_status() override;
    // The first answer of a child; the own name is not tested.
    cm_command* find(ustring name, int exact) override;
    // The children first, then this composite.
    void preview(preview_operation& operation) override;
    int not_verify(filter_command_algorithm& filter) override;
    int select_commands(filter_command_algorithm& filter, int evaluate, int reserved = 0) override;
    void add_to_package(cm_package* package) override;

    virtual int get_stop_on_failure();
    virtual void set_stop_on_failure(int stop);
    // 1 if the command's condition is true. 0 if it is false (its data are stepped over if
    // `skip_when_false` is not 0), and if it cannot be evaluated: `result` 10 and message 130.
    virtual int check_condition(cm_command* command, int skip_when_false);

    // From the iterator's position to the end. `result` 0, 6 or 10.
    void skip_data(list_iterator& from);
    list& get_children() { return children; }
    const list& get_children() const { return children; }
    // Number of the commands below this one, this one not counted.
    long count_commands() const;

    std::int32_t stop_on_failure;
    std::int32_t reverse_on_remove = 1; // walk from the tail where things are taken back; not coded

  protected:
    list children;

  private:
    enum class step { go_on, stop };

    void copy_children(const cm_composite_command& from);
    bool walks_forward(int action, int phase) const;
    bool stops_on_failure();
    bool logs_in(int phase) const;
    void note_offset();

    // The walk of do_execute.
    void begin_walk(int phase);
    step visit(list_iterator& at, int action, int phase);
    step skip_false_child(cm_command& child, int action, int phase, int already_executed);
    step run_child(list_iterator& at, cm_command& child, int action, int phase);
    void log_child(cm_command& child, int action, int phase);
    step fold(list_iterator& at, cm_command& child, int action, int phase);
    step end_walk_with(enum result code);
    step stop_or_note_failure(list_iterator& at, cm_command& child, int action, int phase);
    void fold_bits();
    bool prepare_checkpoint(bool bootable, bool checkpoint);
    bool store_checkpoint(const pathname& new_profile);

    // The walk of can_execute and can_backup.
    bool root_condition_holds();
    step check_child(cm_command& child, int action, int phase);
    void log_temporary_failure(cm_command& child, int action, int phase);
};

// Whether a tree mixes commands for devices with others: notes the kind of `child` in `word`.
bool mixed_package(cm_command& child, int& word);

} // namespace km
