// user_variables: variables of a file, of the environment and of the command line
//
// A variable file holds lines of name=value; blanks around both parts do not count, a line that
// starts with '#' is a comment, a later line wins. A file of at most 4096 bytes is read at once;
// a larger one is never held: each name is looked for when it is asked for, and the first line that
// defines it counts.
#pragma once

#include "pathname.h"
#include "variable_list.h"

#include <memory>

namespace km {

// Texts "name=value"; the caller's.
struct _sequence_string {
    unsigned long length = 0;
    char** buffer = nullptr;
};

class user_file_variable_list : public variable_list {
  public:
    // On the file that the setting "user_file_variables" names.
    user_file_variable_list();
    // On another file. One that cannot be read leaves the list empty, with a warning trace.
    explicit user_file_variable_list(const pathname& file);
    user_file_variable_list(const user_file_variable_list&) = delete;
    user_file_variable_list& operator=(const user_file_variable_list&) = delete;
    ~user_file_variable_list() override;

    ustring* get_value(const ustring& name) override;
    codable* clone() const override { return new variable_list(*this); }
    // Puts the names of this list into the file, each in the place of its old line. 1, or 0 if the
    // file could not be read or written; it is then as it was.
    int write();
    const pathname& get_file() const { return file_; }
    // Not 0: the whole file is in the table.
    int is_loaded() const { return loaded_; }

    // An instance on the configured file that stands in no chain; lent, until terminate().
    static user_file_variable_list* get_list();
    static void terminate();
    // Every live list on the configured file forgets its names and reads the file again.
    static void refresh();

  private:
    void load();
    ustring* scan(const ustring& name);

    pathname file_;
    int loaded_ = 0;
    bool configured_ = false;
    static user_file_variable_list* singleton;
};

// The environment of the process, asked at each look-up.
class environment_variable_list : public variable_list {
  public:
    ustring* get_value(const ustring& name) override;
    static environment_variable_list* get_list();
    static void terminate();

  private:
    static environment_variable_list* singleton;
};

class command_line_variable_list : public variable_list {
  public:
    command_line_variable_list() = default;
    // Null counts as no variables.
    explicit command_line_variable_list(const _sequence_string* sequence) { build(sequence); }
    // Adds the variables of the sequence; a text without '=' is skipped with a warning trace.
    void build(const _sequence_string* sequence);
    // The first call makes the list from the sequence; later ones do not look at it.
    static command_line_variable_list* get_list(const _sequence_string* sequence = nullptr);
    static void terminate();

  private:
    static command_line_variable_list* singleton;
};

} // namespace km
