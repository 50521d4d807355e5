// object_command: command on one concrete object
//
// The commands decide, from the action, the phase, their options and the reference counts, whether
// the operations of their object run at all. An object counts as shared if it says so itself or if
// the table counts references to its name. A command without an object fails with 9, and has
// nothing to skip or to save.
#pragma once

#include "object.h"

namespace km {

class cm_ref_count_table;

// What both commands share: the object, which they own.
class cm_object_command : public cm_command {
  public:
    explicit cm_object_command(cm_object* of) : object(of) {}
    cm_object_command(const cm_object_command& other);
    cm_object_command& operator=(const cm_object_command& other);
    ~cm_object_command() override { delete object; }

    void set_package(cm_package* package) override;
    void set_data_source(ustring host, int from_source_host, pathname* base) override;
    void set_container(cm_command* container) override;
    virtual void set_is_effective(int effective) { is_effective = effective; }
    virtual int get_is_effective() { return is_effective; }

    cm_object* object;
    std::int32_t is_effective = 1; // the command applies at all

  protected:
    // Whether the object counts as shared; 0 without a table.
    bool is_shared_now();
    // The table of the package, null without one. Lent.
    cm_ref_count_table* counts() const;
    // The table's sum for the object's name, 0 without a table.
    int counted();
    // Others hold references, and this package holds none: then it was taken out before, and the
    // object is theirs.
    bool belongs_to_others();
    // Takes the references of this package away.
    void reset_own_counter();
    bool refuses_device(bool with_message, bool of_package_type);
    bool has_no_object();
};

// Coded form: the command's fields; object field 200 `object`, boolean fields 201
// `replace_if_existing`, 202 `replace_if_newer`, 203 `undo_replace_if_existing`, 204
// `undo_replace_if_newer`, 205 `undo_remove_if_modified`, 206 `remove_if_modified`, 207
// `is_effective`.
class cm_add_object : public cm_object_command {
  public:
    // Takes the object over.
    explicit cm_add_object(cm_object* of = nullptr) : cm_object_command(of) {}

    codable* clone() const override { return new cm_add_object(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    long codable_version() const override { return 1; }
    // Keys only: a concrete class opens the stanza around them.
    void import(importer& from) override;
    void export_(exporter& to) const override;

    void can_execute(int action, int phase) override;
    void do_execute(int action, int phase) override;
    void can_backup(int action) override;
    cm_command* get_undo_command(int action) override;
    long get_size() override;
    void delta_save_command(pathname* base, unzipping_channel* in, zipping_channel* out) override;
    void save_command(unzipping_channel* in, zipping_channel* out) override;
    void save_command(zipping_channel* out) override;
    void load_command(const int load) override;
    void skip_data() override;
    ustring get_name() override;
    ustring get_log(int action) override;
    int select_commands(filter_command_algorithm& filter, int evaluate, int reserved = 0) override;

    // What a class does about objects that were there before any package; here nothing.
    virtual void do_sharing_control(int action, int phase);
    // The behaviour to call from there: notes such an object in the table, so that it stays when
    // the last package goes.
    void do_default_sharing_control(int action, int phase);

    // The object exists; should it be put in place again?
    int is_to_be_added();
    int is_to_be_removed();
    // What this package contributed is all that is left.
    int is_to_be_shared_removed();

    std::int32_t replace_if_existing = 1;
    std::int32_t replace_if_newer = 0;
    std::int32_t undo_replace_if_existing = 1; // for the add command of an undo
    std::int32_t undo_replace_if_newer = 1;
    std::int32_t undo_remove_if_modified = 0;
    std::int32_t remove_if_modified = 0;

  private:
    bool may_be_removed();
    void check_execute(int phase);
    void check_reverse(int phase);
    void execute(int phase);
    bool put_in_place(int phase);
    void leave_alone(int phase, const char* why);
    void count_reference();
    void reverse(int phase);
    void take_away(int phase);
    void verify_execute(int phase);
    void verify_reverse(int phase);
    cm_command* undo_of_absent(int action);
    cm_command* undo_of_present(int action);
    cm_object* present_object();
    cm_command* new_add(cm_object* undo);
    cm_command* new_remove(cm_object* undo, int replace_if_existing);
    bool is_auto_shared() const;
    void mark_shared();
};

// Coded form: the command's fields; object field 200 `object`, boolean fields 201 `is_effective`,
// 203 `undo_replace_if_existing`, 204 `undo_replace_if_newer`.
class cm_remove_object : public cm_object_command {
  public:
    // Takes the object over.
    explicit cm_remove_object(cm_object* of = nullptr) : cm_object_command(of) {}

    codable* clone() const override { return new cm_remove_object(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    long codable_version() const override { return 1; }
    void import(importer& from) override;
    void export_(exporter& to) const override;

    void can_execute(int action, int phase) override;
    void do_execute(int action, int phase) override;
    void can_backup(int action) override;
    cm_command* get_undo_command(int action) override;
    ustring get_name() override;
    ustring get_log(int action) override;

    virtual void set_undo_replace_if_existing(int replace) { undo_replace_if_existing = replace; }
    virtual void set_undo_replace_if_newer(int replace) { undo_replace_if_newer = replace; }

    int is_to_be_removed() { return is_effective; }
    // An undo that took the count back to zero removes the object, if it was entitled to.
    int is_to_be_shared_removed();

    std::int32_t undo_replace_if_existing = 0;
    std::int32_t undo_replace_if_newer = 1;

  private:
    void execute(int phase);
    void check_present(int phase);
};

// Name and version under which a package counts: its own, or those of the package that a backup
// package undoes.
void set_package_name_and_version(cm_package& package, ustring& name, ustring& version);

} // namespace km
