// object_commands: the commands that put the objects of this library in place
//
// Each wraps the stanza of its name around the keys of the command, "is_per_user" with them where
// it is set, tells its object which command it belongs to, and switches itself off where it was
// passed over: what was never added must not be removed later.
#pragma once

#include "object_command.h"

namespace km {

class km_object;

class km_add_command : public cm_add_object {
  public:
    using cm_add_object::cm_add_object;
    void import(importer& from) override;
    void export_(exporter& to) const override;
    void can_execute(int action, int phase) override;
    void can_backup(int action) override;
    void do_execute(int action, int phase) override;
    void skip_data() override;
    cm_command* get_undo_command(int action) override;
    void do_sharing_control(int action, int phase) override;

    // In this run another package holds the object, too: a removal leaves it where it is. Not
    // coded, since who holds what may be another the next time.
    bool stays_for_others = false;

  protected:
    virtual const char* stanza() const = 0;

  private:
    // The object as one of this library; null for none.
    km_object* own();
    bool is_left(int action) const;
    void tell_what_stays(int action, int phase);
    bool takes_back_prepared(int phase);
    bool leaves_existing(int action, int phase);

    const cm_object* asked_ = nullptr;
    km_object* own_ = nullptr; // of `asked_`
};

class km_remove_command : public cm_remove_object {
  public:
    using cm_remove_object::cm_remove_object;
    void import(importer& from) override;
    void export_(exporter& to) const override;
    void can_execute(int action, int phase) override;
    void do_execute(int action, int phase) override;
    cm_command* get_undo_command(int action) override;

  protected:
    virtual const char* stanza() const = 0;
};

// The classes: KmAddFile, KmAddDirectory, KmAddLink, KmAddHardLink, KmAddKeptFile and the same with
// Remove. `of` is taken over; null makes an empty object.
cm_add_object* new_add_file(cm_object* of = nullptr);
cm_add_object* new_add_directory(cm_object* of = nullptr);
cm_add_object* new_add_link(cm_object* of = nullptr);
cm_add_object* new_add_hard_link(cm_object* of = nullptr);
cm_add_object* new_add_kept_file(cm_object* of = nullptr);

// The remove command of the object's class.
cm_remove_object* new_remove_of(cm_object* of);

} // namespace km
