// text_commands: the commands that put texts into files of others
//
// KmAddLine, KmAddToken, KmAddIniItem and KmRemoveLine, KmRemoveToken, KmRemoveIniItem; stanzas
// "add_line" and so on. Beside what object commands do: a verify wants the text to stand, also a
// shared one; of an undone or removed one only what the package put there counts as left over.
#pragma once

#include "object_commands.h"

namespace km {

class text_object;

class km_text_add_command : public km_add_command {
  public:
    using km_add_command::km_add_command;
    void can_execute(int action, int phase) override;
    void do_execute(int action, int phase) override;
    cm_command* get_undo_command(int action) override;
    void do_sharing_control(int action, int phase) override;

  private:
    text_object* tell_object();
};

class km_text_remove_command : public km_remove_command {
  public:
    explicit km_text_remove_command(cm_object* of);
    codable* decode_object(decoder& from, long stream_version) override;
    void can_execute(int action, int phase) override;
    void do_execute(int action, int phase) override;
    cm_command* get_undo_command(int action) override;

  private:
    text_object* tell_object();
};

// `of` is taken over; null makes an empty object.
cm_add_object* new_add_line(cm_object* of = nullptr);
cm_add_object* new_add_token(cm_object* of = nullptr);
cm_add_object* new_add_ini_item(cm_object* of = nullptr);

// The remove command of the object's class.
cm_remove_object* new_text_remove_of(text_object* of);

} // namespace km
